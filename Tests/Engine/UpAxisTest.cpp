// Which way is up: the turns, and what is assumed of real files.
#include "Engine/SceneFile/UpAxis.h"
#include "Engine/SceneFile/ModelView.h"
#include "Tests/Support/SceneText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

using namespace oxbeam;
using namespace oxbeam::test;
namespace fs = std::filesystem;

TEST(UpAxis, IsTurnedUpwardsWithoutMirroring) {
    for (unsigned axis = 0; axis < AxisNames.size(); ++axis) {
        R3 up;
        up[axis % 3] = axis < 3 ? 1.0f : -1.0f;
        EXPECT_EQ(TransformVector(turnUp(axis), up), R3(0, 1, 0)) << AxisNames[axis];
        EXPECT_EQ(Determinant(turnUp(axis)), 1.0f) << AxisNames[axis];
    }
}

// The same square stands where it is told to, in a scene file as well.
TEST(UpAxis, HoldsForMeshesOfSceneFiles) {
    writeFile("corner.obj", "v 0 0 0\nv 1 0 0\nv 0 2 0\nv 0 0 3\nf 1 2 3\nf 1 3 4\nf 1 4 2\n");
    const R3 extents[] = {R3(2, 1, 3), R3(1, 2, 3), R3(1, 3, 2), R3(2, 1, 3), R3(1, 2, 3), R3(1, 3, 2)};
    for (unsigned axis = 0; axis < AxisNames.size(); ++axis) {
        const LoadedScene scene =
            loadText("[shader.s]\nobject = 'KelPhong'\n[[mesh]]\nfile = 'corner.obj'\nshader = 's'\nup = '" +
                     AxisNames[axis] + "'\n");
        ASSERT_TRUE(scene.said.empty()) << scene.said[0];
        const Bounds bounds = scene.world->geometry.instanceBounds(0);
        EXPECT_EQ(bounds.upper - bounds.lower, extents[axis]) << AxisNames[axis];
        EXPECT_EQ(bounds.upper.y > 0.0f, axis < 3) << AxisNames[axis];
    }
}

namespace {

// Sides of what a renderer would show, as it stands.
R3 standing(const fs::path& file) {
    const Model model = loadModel(file);
    Bounds bounds;
    for (const R3& p : visiblePoints(model, turnUp(model.up))) bounds.add(p);
    return bounds.upper - bounds.lower;
}

}  // namespace

// What these files show was looked at one by one: people stand, animals and cars are longer than high, landscapes and
// keyboards lie.
TEST(UpAxis, SuitsRealFilesOfEachFormat) {
    const fs::path folder = "/usr/share/assimp/models";
    if (!fs::is_directory(folder)) GTEST_SKIP() << "assimp-testmodels is not installed";
    enum Shape { Tall, Flat, Long };
    const struct {
        const char* file;
        Shape shape;
    } cases[] = {
        {"BLEND/HUMAN.blend", Tall},     {"COB/dwarf.cob", Tall},         {"IQM/mrfixit.iqm", Tall},
        {"MD2/sydney.md2", Tall},        {"SMD/holy_grailref.smd", Tall}, {"AMF/test1.amf", Tall},
        {"3MF/box.3mf", Tall},           {"HMP/terrain.hmp", Flat},       {"CSM/ThomasFechten.csm", Flat},
        {"STL/Spider_binary.stl", Flat}, {"OBJ/spider.obj", Flat},        {"IFC/AC14-FZK-Haus.ifc", Flat},
        {"COB/spider_6_6.cob", Flat},    {"MDC/spider.mdc", Flat},        {"X3D/ComputerKeyboard.x3d", Flat},
        {"PLY/Wuson.ply", Long},         {"OFF/Wuson.off", Long},         {"SMD/WusonSMD.smd", Long},
        {"MS3D/jeep1.ms3d", Long},       {"B3D/WusonBlitz.b3d", Long},    {"ASE/MotionCaptureROM.ase", Tall},
        {"Q3D/E-AT-AT.q3o", Long},       {"DXF/wuson.dxf", Long},
    };
    for (const auto& c : cases) {
        const R3 side = standing(folder / c.file);
        const float least = std::min(side.x, side.z), most = std::max(side.x, side.z);
        std::printf("%s %d: %g %g %g\n", c.file, c.shape, side.x, side.y, side.z);
        if (c.shape == Tall) EXPECT_GT(side.y, most) << c.file;
        if (c.shape == Flat) EXPECT_LT(side.y, least) << c.file;
        if (c.shape == Long) EXPECT_LT(side.y, most) << c.file;
    }
}
