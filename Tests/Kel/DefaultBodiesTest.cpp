// What the host's base classes do where a package leaves an operation out: say so, or keep silent, and carry on.
#include "Oxbeam/OxCamera.h"
#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxShader.h"
#include "Tests/Support/Probe.h"

TEST(DefaultBodies, OperationsLeftOutSayTheirNamesUnlessTheyAreOptional) {
    OxShader shader;
    OxLight light;
    OxCamera camera;
    OxState state;
    state.color = Green;
    float f = 7.0f;
    testing::internal::CaptureStdout();
    shader.Shade(&state);
    EXPECT_EQ(light.GetSampleProbability(), 1.0f);
    EXPECT_TRUE(camera.InitPrimaryRay(&state, 0, 0, &f));
    shader.NewFrame();
    shader.Register();
    shader.Init();
    EXPECT_FALSE(shader.LightTransparency(&state));
    EXPECT_EQ(light.GetIlluminanceAngle(), 0.0f);
    camera.setFocalDistance(3.0f);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "function 'virtual Oxvoid OxShader::Shade(OxState*)' not yet implemented\n"
              "function 'virtual float OxLight::GetSampleProbability() const' not yet implemented\n"
              "function 'virtual bool OxCamera::InitPrimaryRay(OxState*, int, int, const float*) const' not yet "
              "implemented\n");
    EXPECT_EQ(state.color, Green);
}
