// What the package tells the host about its objects: factories, parameters and documents.
#include "Tests/Support/Probe.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <cstring>
#include <regex>
#include <set>

using namespace oxbeam;
using namespace oxbeam::test;

// A parameter as it should be: which member it lands in, what Init leaves there, and what the document says
// ("default" or "default, lower .. upper"; null: nothing).
struct Expected {
    const char* id;
    const void* member;
    std::vector<std::byte> inForce;
    const char* documented;

    template <class T>
    Expected(const char* name, const T& where, const T& value, const char* text = nullptr)
        : id(name), member(&where), inForce(sizeof(T)), documented(text) {
        std::memcpy(inForce.data(), &value, sizeof(T));
    }
};

static void expectParameters(const char* name, const OxLoadableObject& object, const std::vector<Expected>& expected) {
    const ObjectClass& registered = *registry().find(name);
    ASSERT_EQ(registered.parameters.size(), expected.size()) << name;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const ParameterDeclaration& p = registered.parameters[i];
        const Expected& e = expected[i];
        SCOPED_TRACE(std::string(name) + "." + e.id);
        EXPECT_EQ(p.id, e.id);
        EXPECT_EQ(reinterpret_cast<const char*>(&object) + p.offset, e.member);
        EXPECT_EQ(p.defaultBytes, e.inForce);
        ASSERT_EQ(p.info != nullptr, e.documented != nullptr);
        if (!p.info) continue;
        const std::string& lower = p.info->lowerbound;
        EXPECT_EQ(p.info->defaultText + (lower.empty() ? "" : ", " + lower + " .. " + p.info->upperbound),
                  e.documented);
    }
}

TEST(Registration, ParametersAreDeclaredInOrderAndLandInTheirMembers) {
    TestWorld world;
    const KelRenderingObject& ro = world.ro();
    expectParameters("Kel", ro,
                     {{"multiThreading", ro.m_multiThreading, 1, "false"},
                      {"numThreads", ro.m_numThreads, 0, "1, 1 .. 128"},
                      {"recursionLimit", ro.m_recursionLimit, 25u, "25, 0 .. 128"},
                      {"rayEpsilon", ro.m_rayEpsilon, 0.01f, "0.01, 0.0000001 .. 100"},
                      {"samplesPerPixel", ro.m_samplesPerPixel, 16, "1, 1 .. 24"},
                      {"wireframe", ro.m_wireframe, 0},
                      {"numFuzzySamples", ro.m_numFuzzySamples, 1},
                      {"softShadows", ro.m_softShadows, 0, "false"},
                      {"receiveShadow", ro.m_receiveShadow, 0},
                      {"fuzzyLights", ro.m_fuzzyLights, 0, "false"},
                      {"glossySurfaces", ro.m_glossySurfaces, 0, "false"},
                      {"transparentAccuracy", ro.m_transparentAccuracy, 0.15f, "0.01, 0.01 .. 0.5"},
                      {"reflectiveAccuracy", ro.m_reflectiveAccuracy, 0.15f, "0.01, 0.01 .. 0.5"},
                      {"refractiveAccuracy", ro.m_refractiveAccuracy, 0.15f, "0.01, 0.01 .. 0.5"}});

    const KelPointLight& light = world.pointLight(R3());
    const auto& attenuation = reinterpret_cast<const R3&>(light.atten0);
    expectParameters("KelPointLight", light,
                     {{"atten0", light.atten0, 1e-9f, "1"},
                      {"atten1", light.atten1, 0.0f, "0"},
                      {"atten2", light.atten2, 1.0f, "0"},
                      {"atten", attenuation, R3(1e-9f, 0.0f, 1.0f), "1"},
                      {"position", light.position, Black, "0 0 0"},
                      {"intensity", light.intensity, White, "1 1 1"},
                      {"emission", light.intensity, White, "1 1 1"},
                      {"castShadow", light.castShadow, 1}});

    const KelPhongShader& phong = world.phong();
    expectParameters("KelPhong", phong,
                     {{"thickness", phong.m_thickness, -1.0f},
                      {"wireframe", phong.m_wireframe, 0},
                      {"glossySurfaces", phong.m_glossySurfaces, 0},
                      {"fuzzyLights", phong.m_fuzzyLights, 0},
                      {"receiveShadow", phong.m_receiveShadow, 0},
                      {"softShadows", phong.m_softShadows, 0},
                      {"numFuzzySamples", phong.m_numFuzzySamples, 1},
                      {"ambientIntensity", phong.ambientIntensity, 0.2f, "0.1, 0 .. 1"},
                      {"diffuseColor", phong.diffuseColor, White, "1 1 1"},
                      {"specularColor", phong.specularColor, Black, "1 1 1"},
                      {"texture", phong.texture, -1, "Ox_NOTEXTURE"},
                      {"bumpMap", phong.m_bumpMapTexture, -1, ""},
                      {"emissiveColor", phong.emissiveColor, Black, "0 0 0"},
                      {"transparent", phong.transparentColor, Black, "0 0 0"},
                      {"reflective", phong.reflectiveColor, Black, "0 0 0"},
                      {"shininess", phong.shininess, 5.0f, "16, 1 .. 512"}});
}

// Checks one parameter element of a document.
static void checkParameter(const pugi::xml_node& node) {
    static const std::vector<std::string> order = {"id",         "alias",          "longname", "type",
                                                   "size",       "interpretation", "default",  "lowerbound",
                                                   "upperbound", "logarithmic",    "help"};
    std::size_t reached = 0;
    for (const auto& child : node.children()) {
        const auto at = std::find(order.begin(), order.end(), child.name()) - order.begin();
        ASSERT_LT(static_cast<std::size_t>(at), order.size()) << child.name();
        EXPECT_GE(static_cast<std::size_t>(at), reached) << child.name() << " stands too late";
        reached = static_cast<std::size_t>(at);
    }
    const std::string type = node.child("type").text().get();
    EXPECT_TRUE((std::set<std::string>{"float", "int", "bool"}.count(type))) << type;
    EXPECT_EQ(node.child("lowerbound").empty(), node.child("upperbound").empty());
}

TEST(Registration, DocumentsFollowTheFormat) {
    int documents = 0;
    for (const ObjectClass* object : registry().all()) {
        if (object->package == "Oxbeam" || !object->document.starts_with("<")) continue;
        SCOPED_TRACE(object->name);
        ++documents;
        EXPECT_TRUE(object->document.starts_with("<?xml version=\"1.0\" ?><ShaderInfo><type>"));
        EXPECT_TRUE(object->document.ends_with("> </ShaderInfo>"));
        EXPECT_EQ(object->document.find_first_of("\r\n\t"), std::string::npos);
        EXPECT_FALSE(std::regex_search(object->document, std::regex("<enum>[^ ]")));
        EXPECT_STREQ(object->make()->GetShaderInfo(), object->document.c_str());
        EXPECT_EQ(object->make()->GetShaderInfo(), object->make()->GetShaderInfo()) << "another copy";

        pugi::xml_document xml;
        ASSERT_TRUE(xml.load_string(object->document.c_str()));
        std::string head;
        for (const auto& child : xml.child("ShaderInfo").children()) {
            const std::string name = child.name();
            if (name == "parameter") {
                checkParameter(child);
            } else if (name == "group") {
                EXPECT_STREQ(child.first_child().name(), "longname");
                EXPECT_STREQ(child.first_child().next_sibling().name(), "help");
                for (const auto& inner : child.children("parameter")) checkParameter(inner);
            } else {
                head += name + ' ';
            }
        }
        EXPECT_EQ(head, "type package id longname ");
        EXPECT_EQ(object->info.package, "Kel");
    }
    EXPECT_GE(documents, 3);
}

// Programs that look for these texts must find them as they always were, slips included.
TEST(Registration, DocumentsKeepTheirWords) {
    const struct {
        const char *object, *type, *id, *longname;
        std::vector<const char*> words;
    } cases[] = {
        {"Kel",
         "renderingobject",
         "Kel",
         "Kel Rendering Object",
         {"usefull for hared memory machines with many CPU's.", "disactivate", "simultanuous", "error for rreflections",
          "<help>The magic number</help>", "<longname>Smooth Shadows</longname>"}},
        {"KelPointLight",
         "light",
         "KelPointLight",
         "Kel based point light shader",
         {"<id>atten0</id><id>atten</id>", "<id>intensity</id><alias>emission</alias>"}},
        {"KelPhong",
         "surface",
         "KelPhong",
         "Kel-based Phong Shader.",
         {"a prefect mirror.", "<alias>transparency</alias><alias>transparentColor</alias>",
          "<logarithmic><base>2</base><intermediate>true</intermediate></logarithmic>",
          "<alias>diffuse</alias><alias>rd</alias>", "<help>No description</help>"}},
    };
    for (const auto& c : cases) {
        const ObjectClass& object = *registry().find(c.object);
        EXPECT_EQ(object.info.type, c.type);
        EXPECT_EQ(object.info.id, c.id);
        EXPECT_EQ(object.info.longname, c.longname);
        for (const char* words : c.words) EXPECT_NE(object.document.find(words), std::string::npos) << words;
    }
}

TEST(Registration, FactoriesLeaveInitOfShadersToTheHost) {
    const auto make = [](const char* name) {
        return std::unique_ptr<OxLoadableObject>(registry().find(name)->factory());
    };
    const auto shader = make("KelPhong"), ro = make("Kel"), light = make("KelPointLight");
    const auto& phong = static_cast<const KelPhongShader&>(*shader);
    EXPECT_NE(phong.diffuseColor, White);
    EXPECT_EQ(phong.m_ro, nullptr);
    // These two have constructors that set their defaults.
    EXPECT_EQ(static_cast<const KelRenderingObject&>(*ro).m_reflectiveAccuracy, 0.15f);
    const auto& point = static_cast<const KelPointLight&>(*light);
    EXPECT_EQ(point.atten2, 1.0f);
    EXPECT_EQ(point.castShadow, 1);
    EXPECT_EQ(point.fuzzyness, 0.1f);
    EXPECT_NE(make("KelPhong"), shader);
}
