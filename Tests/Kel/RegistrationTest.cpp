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

#include <array>
#include <cstring>

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

template <class T>
static const T& made(TestWorld& world, const char* name) {
    return static_cast<const T&>(world.make(*registry().find(name)));
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

    const auto& sun = made<KelDirectionalLight>(world, "KelDirectionalLight");
    expectParameters("KelDirectionalLight", sun,
                     {{"direction", sun.direction, R3(0, 0, 1), "0 0 1"},
                      {"radiance", sun.intensity, White, "1 1 1"},
                      {"intensity", sun.intensity, White, "1 1 1"},
                      {"emission", sun.intensity, White, "1 1 1"},
                      {"castShadow", sun.castShadow, 1},
                      {"fuzzyness", sun.fuzzyness, 0.1f}});

    const auto& spot = made<KelSpotLight>(world, "KelSpotLight");
    expectParameters("KelSpotLight", spot,
                     {{"atten0", spot.atten0, 2.0f, "1"},
                      {"atten1", spot.atten1, 0.0f, "0"},
                      {"atten2", spot.atten2, 0.0f, "0"},
                      {"position", spot.position, Black, "0 0 0"},
                      {"intensity", spot.intensity, White, "1 1 1"},
                      {"direction", spot.direction, R3(0, -1, 0), "0 -1 0"},
                      {"minAngle", spot.minAngle, 0.17453292f, "0, 0 .. 1.570796327"},
                      {"maxAngle", spot.maxAngle, 0.2617994f, "1, 0 .. 1.570796327"},
                      {"angle", spot.maxAngle, 0.2617994f},
                      {"castShadow", spot.castShadow, 1},
                      {"fuzzyness", spot.fuzzyness, 0.1f}});

    const auto& lens = made<KelDOFCamera>(world, "KelDOFCamera");
    expectParameters("KelDOFCamera", lens,
                     {{"focalLength", lens.focalLength, 0.7f, "0.7"},
                      {"focalDistance", lens.focalDistance, 2.6f, "2.6"},
                      {"lensRadius", lens.lensRadius, 0.08f, "0.08"},
                      {"focalLengthFromCamera", lens.focalLengthFromCamera, 1u, "true"}});
}

static std::vector<Expected> common(const KelShader& s, const std::vector<Expected>& own) {
    std::vector<Expected> all = {{"thickness", s.m_thickness, -1.0f},        {"wireframe", s.m_wireframe, 0},
                                 {"glossySurfaces", s.m_glossySurfaces, 0},  {"fuzzyLights", s.m_fuzzyLights, 0},
                                 {"receiveShadow", s.m_receiveShadow, 0},    {"softShadows", s.m_softShadows, 0},
                                 {"numFuzzySamples", s.m_numFuzzySamples, 1}};
    all.insert(all.end(), own.begin(), own.end());
    return all;
}

// What the documents of Phong shading's relatives say about the nine parameters that they share.
using Documented = std::array<const char*, 9>;

static std::vector<Expected> phong(const KelPhongShader& s, const Documented& text, const std::vector<Expected>& own) {
    std::vector<Expected> all = common(s, {{"ambientIntensity", s.ambientIntensity, 0.2f, text[0]},
                                           {"diffuseColor", s.diffuseColor, White, text[1]},
                                           {"specularColor", s.specularColor, Black, text[2]},
                                           {"texture", s.texture, -1, text[3]},
                                           {"bumpMap", s.m_bumpMapTexture, -1, text[4]},
                                           {"emissiveColor", s.emissiveColor, Black, text[5]},
                                           {"transparent", s.transparentColor, Black, text[6]},
                                           {"reflective", s.reflectiveColor, Black, text[7]},
                                           {"shininess", s.shininess, 5.0f, text[8]}});
    all.insert(all.end(), own.begin(), own.end());
    return all;
}

TEST(Registration, ParametersOfPhongShadingAndItsRelatives) {
    TestWorld world;
    const Documented nothing = {}, plain = {"0.1, 0 .. 1", "1 1 1", "1 1 1", "Ox_NOTEXTURE", "",
                                            "0 0 0",       "0 0 0", "0 0 0", "16, 1 .. 512"},
                     paint = {"0.2, 0 .. 1", "1 1 1, 0 0 0 .. 1 1 1", "1 1 1", "", nullptr, "0 0 0", nullptr,
                              "1 1 1",       "64, 0 .. 512"};
    const auto& base = made<KelPhongShader>(world, "KelPhong");
    expectParameters("KelPhong", base, phong(base, plain, {}));
    for (const char* name : {"KelFresnelPhong", "KelCarPaint"}) {
        const auto& s = made<KelFresnelPhongShader>(world, name);
        expectParameters(name, s,
                         phong(s, paint,
                               {{"fresnelMethod", s.fresnelMethod, 1, "1, 1 .. 3"},
                                {"bindex", s.bindex, 1.5f, "1.2, 1 .. 10"},
                                {"bias", s.bias, 0.1f, "0.000, -1 .. 1"},
                                {"scale", s.scale, 1.0f, "1.0, 1.0 .. 10"},
                                {"index", s.index, 5.0f, "1.000, 1 .. 10"}}));
    }
    const auto& eye = made<KelPhongEyeLightShader>(world, "KelPhongEyeLight");
    expectParameters(
        "KelPhongEyeLight", eye,
        phong(eye, plain, {{"intensity", eye.intensity, White}, {"cameraOffset", eye.m_cameraOffset, false}}));
    const auto& open = made<KelAmbientOcclusionShader>(world, "KelAmbientOcclusion");
    expectParameters("KelAmbientOcclusion", open,
                     phong(open, nothing, {{"samples", open.samples, 2}, {"maxDistance", open.maxDistance, 500.0f}}));
    const auto& wall = made<KelWallThicknessShader>(world, "KelWallThickness");
    expectParameters("KelWallThickness", wall,
                     phong(wall, nothing,
                           {{"samples", wall.samples, 2},
                            {"minDistance", wall.minDistance, 0.0f},
                            {"maxDistance", wall.maxDistance, 500.0f},
                            {"maxAngleDegree", wall.m_maxAngleDegree, 30.0f},
                            {"scaleDistance", wall.m_scaleDist, 1.0f}}));
}

TEST(Registration, ParametersOfTheOtherShaders) {
    TestWorld world;
    const char *unit = "1 1 1, 0 0 0 .. 1 1 1", *zero = "0 0 0, 0 0 0 .. 1 1 1";
    const R3 grey(0.5f, 0.5f, 0.5f);
    const auto& glass = made<KelGlasShader>(world, "KelGlass");
    expectParameters("KelGlass", glass,
                     common(glass, {{"reflectionFilterAmount", glass.reflectionFilterAmount, 0.0f, "0.0, 0.0 .. 1.0"},
                                    {"reflectionFilter", glass.reflectionFilter, White, "1.0 1.0 1.0, 0 0 0 .. 1 1 1"},
                                    {"refractionFilterAmount", glass.refractionFilterAmount, 0.0f, "1.0, 0 .. 1"},
                                    {"refractionFilter", glass.refractionFilter, White, unit},
                                    {"bindex", glass.bindex, 1.517f, "1.517, 1 .. 10"},
                                    {"reflectivity", glass.reflectivity, 0.0f, "0.1, 0 .. 1"},
                                    {"refractionFilterScale", glass.scale, 1.0f, "1, 0.0001 .. 1000"},
                                    {"shininess", glass.shininess, 5.0f},
                                    {"oneSidedGlass", glass.noRefract, 0},  // not what the document calls it
                                    {"bumpMap", glass.m_bumpMapTexture, -1}}));
    const auto& ils = made<KelAlphaILS>(world, "KelAlphaILS");
    expectParameters("KelAlphaILS", ils,
                     {{"ambientIntensity", ils.ambientIntensity, 0.2f, "0.1, 0 .. 1"},
                      {"diffuseColor", ils.diffuseColor, White, unit},
                      {"rd", ils.diffuseColor, White, unit},
                      {"specularColor", ils.specularColor, White, unit},
                      {"rs", ils.specularColor, White, unit},
                      {"texture", ils.texture, -1, ""},
                      {"texture0", ils.texture, -1, ""},
                      {"emissiveColor", ils.emissiveColor, Black, zero},
                      {"reflective", ils.reflectiveColor, Black, zero},
                      {"shininess", ils.exponent, 64.0f, "16, 1 .. 512"},
                      {"samples", ils.samples, 4, "4"}});
    const auto& diffuse = made<KelDiffuseShader>(world, "KelDiffuse");
    expectParameters("KelDiffuse", diffuse,
                     common(diffuse, {{"diffuseColor", diffuse.diffuseColor, grey, "1 1 1"},
                                      {"emissiveColor", diffuse.emissiveColor, Black, "0 0 0"},
                                      {"texture", diffuse.textureID, -1, "Ox_NOTEXTURE"}}));
    const auto& id = made<KelDbgObjectIDShader>(world, "KelDbgObjectID");
    expectParameters("KelDbgObjectID", id,
                     {{"diffuseColor", id.rd, grey}, {"emissiveColor", id.ed, Black}, {"texture0", id.textureID, -1}});
    const auto& cube = made<KelCubicEnvironmentShader>(world, "KelCubicEnvironment");
    expectParameters(
        "KelCubicEnvironment", cube,
        {{"texture", cube.textureid, -1}, {"texture0", cube.textureid, -1}, {"isVisible", cube.isVisible, 1u}});
    const auto& sky = made<KelEnvironmentShader>(world, "KelEnvironment");
    expectParameters("KelEnvironment", sky,
                     common(sky, {{"texture", sky.textureid, -1, ""},
                                  {"upDirection", sky.upDirection, 1u, "1"},
                                  {"visibleForDirect", sky.visiblePrimary, 1u, "true"},
                                  {"visibleForReflections", sky.visibleReflections, 1u, "true"},
                                  {"visibleForRefractions", sky.visibleRefractions, 1u, "true"},
                                  {"visibleForTransparency", sky.visibleTransparent, 1u, "true"},
                                  {"color", sky.color, Black, zero},
                                  {"intensity", sky.intensity, White},
                                  {"scale", sky.scale, 1.0f, "1, 0.0001 .. 100"},
                                  {"shadowPlaneOrigin", sky.shadowPlaneOrigin, Black},
                                  {"shadowPlaneNormal", sky.shadowPlaneNormal, R3(0, 1, 0)},
                                  {"shadowIntensity", sky.shadowIntensity, 0.5f},
                                  {"numEnvLights", sky.m_envLights, -1}}));
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
