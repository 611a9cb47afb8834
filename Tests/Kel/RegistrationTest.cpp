// What the package tells the host about its objects: factories, parameters and documents.
#include "Shaders/Kel/KelAlphaILS.h"
#include "Shaders/Kel/KelAmbientOcclusion.h"
#include "Shaders/Kel/KelCubicEnvironment.h"
#include "Shaders/Kel/KelDOFCamera.h"
#include "Shaders/Kel/KelDbgObjectID.h"
#include "Shaders/Kel/KelDiffuse.h"
#include "Shaders/Kel/KelDirectionalLight.h"
#include "Shaders/Kel/KelEnvironment.h"
#include "Shaders/Kel/KelFresnelPhong.h"
#include "Shaders/Kel/KelGlas.h"
#include "Shaders/Kel/KelPhongEyeLight.h"
#include "Shaders/Kel/KelSpotLight.h"
#include "Shaders/Kel/KelWallThickness.h"
#include "Tests/Support/Probe.h"

using namespace oxbeam;
using namespace oxbeam::test;

using Members = std::vector<const void*>;

static Members operator+(Members all, const Members& more) {
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

// The members in which the parameters should land, in order. Their names, their defaults and what the documents say of
// them stand in Docs/objects.md, with which a test of its own compares all objects.
static void expectMembers(const char* name, const OxLoadableObject& object, const Members& expected) {
    const ObjectClass& registered = *registry().find(name);
    ASSERT_EQ(registered.parameters.size(), expected.size()) << name;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const ParameterDeclaration& p = registered.parameters[i];
        EXPECT_EQ(reinterpret_cast<const char*>(&object) + p.offset, expected[i]) << name << '.' << p.id;
    }
}

template <class T>
static const T& made(TestWorld& world, const char* name) {
    return static_cast<const T&>(world.make(*registry().find(name)));
}

static Members common(const KelShader& s) {
    return {&s.m_thickness,     &s.m_wireframe,   &s.m_glossySurfaces, &s.m_fuzzyLights,
            &s.m_receiveShadow, &s.m_softShadows, &s.m_numFuzzySamples};
}

static Members phong(const KelPhongShader& s) {
    return common(s) + Members{&s.ambientIntensity, &s.diffuseColor,     &s.specularColor,
                               &s.texture,          &s.m_bumpMapTexture, &s.emissiveColor,
                               &s.transparentColor, &s.reflectiveColor,  &s.shininess};
}

TEST(Registration, ParametersOfSurfacesLandInTheirMembers) {
    TestWorld world;
    const auto& base = made<KelPhongShader>(world, "KelPhong");
    expectMembers("KelPhong", base, phong(base));
    for (const char* name : {"KelFresnelPhong", "KelCarPaint"}) {
        const auto& s = made<KelFresnelPhongShader>(world, name);
        expectMembers(name, s, phong(s) + Members{&s.fresnelMethod, &s.bindex, &s.bias, &s.scale, &s.index});
    }
    const auto& eye = made<KelPhongEyeLightShader>(world, "KelPhongEyeLight");
    expectMembers("KelPhongEyeLight", eye, phong(eye) + Members{&eye.intensity, &eye.m_cameraOffset});
    const auto& open = made<KelAmbientOcclusionShader>(world, "KelAmbientOcclusion");
    expectMembers("KelAmbientOcclusion", open, phong(open) + Members{&open.samples, &open.maxDistance});
    const auto& wall = made<KelWallThicknessShader>(world, "KelWallThickness");
    expectMembers("KelWallThickness", wall,
                  phong(wall) + Members{&wall.samples, &wall.minDistance, &wall.maxDistance, &wall.m_maxAngleDegree,
                                        &wall.m_scaleDist});
    const auto& glass = made<KelGlasShader>(world, "KelGlass");
    expectMembers("KelGlass", glass,
                  common(glass) + Members{&glass.reflectionFilterAmount, &glass.reflectionFilter,
                                          &glass.refractionFilterAmount, &glass.refractionFilter, &glass.bindex,
                                          &glass.reflectivity, &glass.scale, &glass.shininess, &glass.noRefract,
                                          &glass.m_bumpMapTexture});
    const auto& ils = made<KelAlphaILS>(world, "KelAlphaILS");
    expectMembers("KelAlphaILS", ils,
                  {&ils.ambientIntensity, &ils.diffuseColor, &ils.diffuseColor, &ils.specularColor, &ils.specularColor,
                   &ils.texture, &ils.texture, &ils.emissiveColor, &ils.reflectiveColor, &ils.exponent, &ils.samples});
    const auto& diffuse = made<KelDiffuseShader>(world, "KelDiffuse");
    expectMembers("KelDiffuse", diffuse,
                  common(diffuse) + Members{&diffuse.diffuseColor, &diffuse.emissiveColor, &diffuse.textureID});
    const auto& id = made<KelDbgObjectIDShader>(world, "KelDbgObjectID");
    expectMembers("KelDbgObjectID", id, {&id.rd, &id.ed, &id.textureID});
}

TEST(Registration, ParametersOfEverythingElseLandInTheirMembers) {
    TestWorld world;
    const KelRenderingObject& ro = world.ro();
    expectMembers("Kel", ro,
                  {&ro.m_multiThreading, &ro.m_numThreads, &ro.m_recursionLimit, &ro.m_rayEpsilon,
                   &ro.m_samplesPerPixel, &ro.m_wireframe, &ro.m_numFuzzySamples, &ro.m_softShadows,
                   &ro.m_receiveShadow, &ro.m_fuzzyLights, &ro.m_glossySurfaces, &ro.m_transparentAccuracy,
                   &ro.m_reflectiveAccuracy, &ro.m_refractiveAccuracy});
    const KelPointLight& light = world.pointLight(R3());
    expectMembers("KelPointLight", light,
                  {&light.atten0, &light.atten1, &light.atten2, &light.atten0, &light.position, &light.intensity,
                   &light.intensity, &light.castShadow});
    const auto& sun = made<KelDirectionalLight>(world, "KelDirectionalLight");
    expectMembers("KelDirectionalLight", sun,
                  {&sun.direction, &sun.intensity, &sun.intensity, &sun.intensity, &sun.castShadow, &sun.fuzzyness});
    const auto& spot = made<KelSpotLight>(world, "KelSpotLight");
    expectMembers("KelSpotLight", spot,
                  {&spot.atten0, &spot.atten1, &spot.atten2, &spot.position, &spot.intensity, &spot.direction,
                   &spot.minAngle, &spot.maxAngle, &spot.maxAngle, &spot.castShadow, &spot.fuzzyness});
    const auto& lens = made<KelDOFCamera>(world, "KelDOFCamera");
    expectMembers("KelDOFCamera", lens,
                  {&lens.focalLength, &lens.focalDistance, &lens.lensRadius, &lens.focalLengthFromCamera});
    const auto& cube = made<KelCubicEnvironmentShader>(world, "KelCubicEnvironment");
    expectMembers("KelCubicEnvironment", cube, {&cube.textureid, &cube.textureid, &cube.isVisible});
    const auto& sky = made<KelEnvironmentShader>(world, "KelEnvironment");
    expectMembers("KelEnvironment", sky,
                  common(sky) + Members{&sky.textureid, &sky.upDirection, &sky.visiblePrimary, &sky.visibleReflections,
                                        &sky.visibleRefractions, &sky.visibleTransparent, &sky.color, &sky.intensity,
                                        &sky.scale, &sky.shadowPlaneOrigin, &sky.shadowPlaneNormal,
                                        &sky.shadowIntensity, &sky.m_envLights});
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

// Programs that look for these texts must find them as they always were, slips included.
TEST(Registration, DocumentsKeepTheirWords) {
    const std::pair<const char*, const char*> cases[] = {
        {"Kel", "usefull for hared memory machines with many CPU's."},
        {"Kel", "error for rreflections"},
        {"KelPointLight", "<id>atten0</id><id>atten</id>"},
        {"KelPhong", "a prefect mirror."},
    };
    for (const auto& [object, words] : cases)
        EXPECT_NE(registry().find(object)->document.find(words), std::string::npos) << words;
}
