// What the host's base classes do where a package leaves an operation out: say so, and carry on.
#include "Oxbeam/OxCamera.h"
#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxShader.h"
#include "Oxbeam/OxState.h"
#include "Oxbeam/ProgBRDF.h"
#include "Tests/Support/Probe.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

static std::string printed(const std::function<void()>& call) {
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

TEST(DefaultBodies, UnimplementedOperationsNameThemselvesAndAnswer) {
    OxShader shader;
    OxLight light;
    OxCamera camera;
    OxState state;
    OxState4 state4;
    R3 a(1, 2, 3), b(4, 5, 6);
    float f = 7.0f, g = 8.0f;
    ISSEVec4 v;
    sse_t s = _mm_setzero_ps();
    const struct {
        const char* signature;
        std::function<void()> call;
    } cases[] = {
        {"virtual Oxvoid OxShader::Shade(OxState*)", [&] { shader.Shade(&state); }},
        {"virtual bool OxLight::Illuminate(const R3&, R3&, float&, R3&, OxState*, void*)",
         [&] { EXPECT_TRUE(light.Illuminate(a, b, f, b, &state, &shader)); }},
        {"virtual bool OxLight::Illuminate4(const ISSEVec4&, ISSEVec4&, sse_t&, ISSEVec4&, OxState4&, void*)",
         [&] { EXPECT_TRUE(light.Illuminate4(v, v, s, v, state4, &shader)); }},
        {"virtual void OxLight::SamplePosition(R3&, float, float) const", [&] { light.SamplePosition(b, 0, 0); }},
        {"virtual void OxLight::SampleDirection(R3&, float, float) const", [&] { light.SampleDirection(b, 0, 0); }},
        {"virtual void OxLight::GetIWE(const R3&, const R3&, R3&) const", [&] { light.GetIWE(a, a, b); }},
        {"virtual R3 OxLight::GetNormal(const R3&) const", [&] { light.GetNormal(a); }},
        {"virtual float OxLight::GetSampleProbability() const", [&] { EXPECT_EQ(light.GetSampleProbability(), 1.0f); }},
        {"virtual void OxLight::AsPointLight(R3&, R3&, float&) const", [&] { light.AsPointLight(a, b, f); }},
        {"virtual void OxLight::EstimateImportance(float&, float&) const", [&] { light.EstimateImportance(f, g); }},
        {"virtual void OxCamera::InitCamera(const R3&, const R3&, const R3&, unsigned int, unsigned int, float, float, "
         "float, float, float)",
         [&] { camera.InitCamera(a, a, a, 1, 1, 0, 1, 0, 1, 1); }},
        {"virtual bool OxCamera::InitPrimaryRay(OxState*, int, int, const float*) const",
         [&] { EXPECT_TRUE(camera.InitPrimaryRay(&state, 0, 0, &f)); }},
        {"virtual bool OxCamera::InitPrimaryRays(int, int, unsigned int, const float*, const float*, const float*, "
         "ISSERay4*) const",
         [&] { EXPECT_TRUE(camera.InitPrimaryRays(0, 0, 2, &f, &f, &f, nullptr)); }},
    };
    state.color = R3(0.25f, 0.5f, 0.75f);
    for (const auto& c : cases)
        EXPECT_EQ(printed(c.call), "function '" + std::string(c.signature) + "' not yet implemented\n");
    EXPECT_EQ(state.color, R3(0.25f, 0.5f, 0.75f));
    EXPECT_EQ(a, R3(1, 2, 3));
    EXPECT_EQ(b, R3(4, 5, 6));
    EXPECT_EQ(f, 7.0f);
    EXPECT_EQ(g, 8.0f);
}

TEST(DefaultBodies, OptionalOperationsAreSilent) {
    OxShader shader;
    OxLight light;
    OxCamera camera;
    OxState state;
    OxState4 state4;
    ProgBRDF brdf;
    EXPECT_EQ(printed([&] {
                  shader.NewFrame();
                  shader.Register();
                  shader.Init();
                  shader.Shade4(state4);
                  shader.EvalBRDF(brdf, state);
                  EXPECT_FALSE(shader.LightTransparency(&state));
                  EXPECT_EQ(light.GetIlluminanceAngle(), 0.0f);
                  camera.setFocalDistance(3.0f);
              }),
              "");
    EXPECT_STREQ(camera.GetShaderInfo(), "GetShaderInfo from class OxLoadableObject. No Info.");
}
