// What the package tells the host about its objects: factories, parameters and documents.
#include "Shaders/Kel/KelEnvironment.h"
#include "Shaders/Kel/KelGlas.h"
#include "Tests/Support/Probe.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>

using namespace oxbeam::test;

// Docs/objects.md holds the name of every parameter and the default that its member has, and a test of its own compares
// it with the objects. What that cannot see is a parameter that writes to another one's member.
TEST(Registration, ParametersShareNoMemberUnlessTheyAreMeantTo) {
    std::vector<std::string> shared;
    for (const ObjectClass* object : registry().all()) {
        if (object->package == "Oxbeam") continue;
        std::map<std::ptrdiff_t, std::string> members;
        for (const ParameterDeclaration& p : object->parameters) members[p.offset] += p.id + ' ';
        for (const auto& [offset, ids] : members)
            if (std::count(ids.begin(), ids.end(), ' ') > 1) shared.push_back(object->name + ": " + ids);
    }
    EXPECT_THAT(shared, testing::ElementsAre("KelAlphaILS: diffuseColor rd ", "KelAlphaILS: specularColor rs ",
                                             "KelAlphaILS: texture texture0 ", "KelCubicEnvironment: texture texture0 ",
                                             "KelDirectionalLight: radiance intensity emission ",
                                             "KelPointLight: intensity emission ", "KelPointLight: atten0 atten ",
                                             "KelSpotLight: maxAngle angle "));
}

// Those that could be swapped unseen, since their defaults are the same.
TEST(Registration, ParametersWithTheSameDefaultLandInTheirOwnMembers) {
    TestWorld world;
    const auto expectMembers = [](const char* name, const OxLoadableObject& object,
                                  const std::vector<std::pair<const char*, const void*>>& members) {
        for (const auto& [id, member] : members)
            EXPECT_EQ(reinterpret_cast<const char*>(&object) + registry().find(name)->find(id)->offset, member) << id;
    };
    const KelPhongShader& phong = world.phong();
    expectMembers("KelPhong", phong,
                  {{"specularColor", &phong.specularColor},
                   {"emissiveColor", &phong.emissiveColor},
                   {"transparent", &phong.transparentColor},
                   {"reflective", &phong.reflectiveColor},
                   {"texture", &phong.texture},
                   {"bumpMap", &phong.m_bumpMapTexture}});
    const auto& glass = world.shader<KelGlasShader>("KelGlass");
    expectMembers("KelGlass", glass,
                  {{"reflectionFilter", &glass.reflectionFilter}, {"refractionFilter", &glass.refractionFilter}});
    const auto& sky = world.surroundings<KelEnvironmentShader>("KelEnvironment");
    expectMembers("KelEnvironment", sky,
                  {{"visibleForDirect", &sky.visiblePrimary},
                   {"visibleForReflections", &sky.visibleReflections},
                   {"visibleForRefractions", &sky.visibleRefractions},
                   {"visibleForTransparency", &sky.visibleTransparent}});
    const KelRenderingObject& ro = world.ro();
    expectMembers("Kel", ro,
                  {{"transparentAccuracy", &ro.m_transparentAccuracy},
                   {"reflectiveAccuracy", &ro.m_reflectiveAccuracy},
                   {"refractiveAccuracy", &ro.m_refractiveAccuracy},
                   {"receiveShadow", &ro.m_receiveShadow},
                   {"softShadows", &ro.m_softShadows},
                   {"fuzzyLights", &ro.m_fuzzyLights},
                   {"glossySurfaces", &ro.m_glossySurfaces}});
}

TEST(Registration, DocumentsFollowTheFormat) {
    for (const ObjectClass* object : registry().all()) {
        const std::string& document = object->document;
        if (object->package == "Oxbeam" || !document.starts_with("<")) continue;
        SCOPED_TRACE(object->name);
        EXPECT_TRUE(document.starts_with("<?xml version=\"1.0\" ?><ShaderInfo><type>"));
        EXPECT_TRUE(document.ends_with("> </ShaderInfo>"));
        EXPECT_EQ(document.find_first_of("\r\n\t"), std::string::npos);
        for (auto at = document.find("<enum>"); at != std::string::npos; at = document.find("<enum>", at + 6))
            EXPECT_EQ(document[at + 6], ' ');
        EXPECT_EQ(object->info.package, "Kel");
    }
}
