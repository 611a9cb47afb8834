// The camera with a lens, and what scene files say about cameras.
#include "Oxbeam/OxPerspectiveCamera.h"
#include "Shaders/Kel/KelDOFCamera.h"
#include "Tests/Support/Probe.h"
#include "Tests/Support/SceneText.h"

using namespace oxbeam::test;

// Both cameras with the same view, whose window is off the middle.
struct LensWorld : TestWorld {
    OxPerspectiveCamera pinhole;
    KelDOFCamera& lens = static_cast<KelDOFCamera&>(setCamera(*registry().find("KelDOFCamera")));

    void aim(float distance = 1.3f) {
        session();  // aims the camera too
        lens.InitCamera(R3(1, -2, 0.3f), R3(0.1f, 0.7f, -3), R3(0.2f, 1, 0), 37, 23, -0.7f, 0.6f, -0.4f, 0.5f, 1.3f);
        pinhole.InitCamera(R3(1, -2, 0.3f), R3(0.1f, 0.7f, -3), R3(0.2f, 1, 0), 37, 23, -0.7f, 0.6f, -0.4f, 0.5f,
                           distance);
    }
    Ray ray(const OxCamera& from, int x, int y, float dx, float dy) {
        OxState state = session().primaryState();
        state.ray.maxDist = state.ray.clippedNear = state.ray.clippedFar = 3.0f;
        const float pattern[] = {dx, dy};
        EXPECT_TRUE(from.InitPrimaryRay(&state, x, y, pattern));
        return state.ray;
    }
};

TEST(DOFCamera, WithoutALensItIsTheHostsCamera) {
    for (const bool own : {false, true}) {
        LensWorld world;
        world.lens.lensRadius = 0.0f;
        world.lens.focalLengthFromCamera = own ? 0 : 7;
        world.aim(own ? 0.7f : 1.3f);  // its own focal length by default
        for (int i = 0; i < 37 * 23; i += 5) {
            const Ray lens = world.ray(world.lens, i % 37, i / 37, 0.25f, 0.75f);
            const Ray pinhole = world.ray(world.pinhole, i % 37, i / 37, 0.25f, 0.75f);
            expectNear(lens.direction, pinhole.direction, 1e-6f);
            EXPECT_EQ(lens.origin, R3(1, -2, 0.3f));
            EXPECT_EQ(lens.maxDist, RayInfinity);
        }
    }
}

TEST(DOFCamera, RaysOfAPlaceMeetInThePlaneInFocus) {
    LensWorld world;
    world.lens.lensRadius = 0.5f;
    world.aim();
    const R3 forward = Normalize(R3(-0.9f, 2.7f, -3.3f));
    for (const float focus : {2.6f, 0.4f, 50.0f}) {
        world.lens.setFocalDistance(focus);
        for (const auto& [x, y] : {std::pair(0, 0), std::pair(36, 22), std::pair(20, 3)}) {
            const Ray through = world.ray(world.pinhole, x, y, 0.1f, 0.9f);
            const R3 meeting = focus / Dot(through.direction, forward) * through.direction;  // from the eye
            R3 sum;
            float squares = 0.0f;
            for (int i = 0; i < 2000; ++i) {
                const Ray ray = world.ray(world.lens, x, y, 0.1f, 0.9f);
                const R3 place = ray.origin - R3(1, -2, 0.3f);
                EXPECT_LE(Length(place), 0.500001f);
                EXPECT_NEAR(Dot(place, forward), 0.0f, 1e-6f);
                expectNear(ray.direction, Normalize(meeting - place), 2e-6f);
                sum += place;
                squares += Dot(place, place);
            }
            // Evenly over the disk: the mean square of the radius is half the square of the largest.
            EXPECT_LT(Length(sum) / 2000, 0.03f);
            EXPECT_NEAR(squares / 2000, 0.125f, 0.008f);
        }
    }
}

static const std::string lens = "[camera]\nobject = 'KelDOFCamera'\nfocalDistance = 9\n",
                         view = "position = [0, 0, 5]\nlookAt = [0, 0, 3]\n",
                         balls =
                             "[shader.s]\nobject = 'KelPhong'\n[[mesh]]\nname = 'ball'\nshape = 'box'\n"
                             "shader = 's'\ntranslate = [3, 0, -2]\n[[mesh]]\nname = 'ball'\nshape = 'box'\n"
                             "shader = 's'\ntranslate = [0, 9, -4]\n";

TEST(CameraInAScene, FocusesOnPointsAndMeshes) {
    const std::pair<const char*, float> cases[] = {
        {"", 9}, {"focus = [1, 2, 1]", 4}, {"focus = [7, 7, 4.5]", 0.5f}, {"focus = 'ball'", 8}};
    for (const auto& [focus, distance] : cases) {
        const LoadedScene scene = loadText(lens + view + focus + "\n" + balls);
        EXPECT_THAT(scene.said, IsEmpty());
        EXPECT_NEAR(static_cast<KelDOFCamera&>(*scene.world->camera).focalDistance, distance, 1e-5f) << focus;
    }
    const std::pair<std::string, const char*> wrong[] = {
        {view + "focus = 'bal'",
         "6:9: error: camera: 'focus' names mesh 'bal', which is not defined; did you mean "
         "'ball'?"},
        {view + "focus = [0, 0, 6]", "6:9: error: camera: 'focus' lies behind the camera"},
        {"focus = 'ball'", "4:9: error: camera: 'focus' needs 'position' and 'lookAt'"},
    };
    for (const auto& [focus, said] : wrong)
        EXPECT_THAT(loadText(lens + focus + "\n" + balls).said, ElementsAre(std::string("scene.toml:") + said));
    EXPECT_THAT(
        loadText("[camera]\n" + view + "focus = 'ball'\n" + balls).said,
        ElementsAre("scene.toml:4:9: warning: camera: 'focus' changes nothing: OxPerspectiveCamera does not focus"));
}

TEST(CameraInAScene, ADistanceThatWasSetByNameComesBeforeTheFocusWhicheverCameraIsInForce) {
    const std::string text =
        lens + view + "[camera.close]\nobject = 'KelDOFCamera'\n" + view + "focus = 'ball'\n" + balls;
    for (const bool set : {false, true}) {
        const LoadedScene scene = loadText(text);
        World& world = *scene.world;
        EXPECT_EQ(std::get<double>(world.places.get("camera.close.focalDistance").data), 8.0);
        if (set) world.places.set("camera.close.focalDistance", {3.0, {}});
        world.chooseCamera("camera.close");
        world.geometry.build();
        world.beginFrame();
        EXPECT_EQ(static_cast<KelDOFCamera&>(*world.camera).focalDistance, set ? 3.0f : 8.0f);
    }
}

TEST(CameraInAScene, OneOfSeveralIsChosenByItsName) {
    const std::string text = lens + view + "fov = 20\nfocus = [0, 0, 4]\n[camera.side]\nposition = [7, 0, 0]\n" +
                             "lookAt = [0, 0, 0]\n[camera.close]\nobject = 'KelDOFCamera'\nfov = 60\n" +
                             "position = [0, 0, 1]\nlookAt = [0, 0, 0]\nfocus = 'none'\n";
    const LoadedScene plain = loadText(text), side = loadText(text, {}, registry(), "side");
    EXPECT_THAT(plain.said, IsEmpty());
    EXPECT_EQ(plain.world->fov, 20.0f);
    EXPECT_EQ(static_cast<KelDOFCamera&>(*plain.world->camera).focalDistance, 1.0f);
    EXPECT_THAT(side.said, IsEmpty());
    EXPECT_EQ(side.world->view->position, R3(7, 0, 0));
    EXPECT_EQ(side.world->fov, 40.0f) << "nothing of the unnamed one's";
    EXPECT_THAT(side.world->camera->GetShaderInfo(), HasSubstr("OxPerspectiveCamera"));
    EXPECT_THAT(loadText(text, {}, registry(), "close").said,
                ElementsAre("scene.toml:16:9: error: camera 'close': 'focus' names mesh 'none', which is not defined"));
    EXPECT_THAT(loadText(text, {}, registry(), "sid").said,
                ElementsAre("scene.toml: error: the scene has no camera 'sid'; did you mean 'side'?"));
}
