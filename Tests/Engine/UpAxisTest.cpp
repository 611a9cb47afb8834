// Which way is up: the turns, and what is assumed of real files.
#include "Engine/SceneFile/UpAxis.h"
#include "Tests/Support/SceneText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

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

// Sides of the box around all triangles, as the model is set up.
R3 standing(const fs::path& file) {
    const Model model = loadModel(file);
    constexpr float far = std::numeric_limits<float>::max();
    R3 lower(far, far, far), upper = -lower;
    for (const ModelPart& part : model.parts)
        for (const unsigned i : model.meshes[part.mesh].indices) {
            const R3 p = TransformPoint(turnUp(model.up) * part.meshToModel, model.meshes[part.mesh].positions.at(i));
            for (unsigned k = 0; k < 3; ++k) lower[k] = std::min(lower[k], p[k]), upper[k] = std::max(upper[k], p[k]);
        }
    return upper - lower;
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
        {"BLEND/HUMAN.blend", Tall},     {"COB/dwarf.cob", Tall},
        {"MD2/sydney.md2", Tall},        {"SMD/holy_grailref.smd", Tall},
        {"AMF/test1.amf", Tall},         {"3MF/box.3mf", Tall},
        {"HMP/terrain.hmp", Flat},       {"CSM/ThomasFechten.csm", Flat},
        {"STL/Spider_binary.stl", Flat}, {"OBJ/spider.obj", Flat},
        {"IFC/AC14-FZK-Haus.ifc", Flat}, {"COB/spider_6_6.cob", Flat},
        {"MDC/spider.mdc", Flat},        {"X3D/ComputerKeyboard.x3d", Flat},
        {"PLY/Wuson.ply", Long},         {"OFF/Wuson.off", Long},
        {"SMD/WusonSMD.smd", Long},      {"MS3D/jeep1.ms3d", Long},
        {"B3D/WusonBlitz.b3d", Long},    {"ASE/MotionCaptureROM.ase", Tall},
        {"Q3D/E-AT-AT.q3o", Long},
    };
    for (const auto& c : cases) {
        const R3 side = standing(folder / c.file);
        const float least = std::min(side.x, side.z), most = std::max(side.x, side.z);
        const bool good = c.shape == Tall ? side.y > most : c.shape == Flat ? side.y < least : side.y < most;
        EXPECT_TRUE(good) << c.file << ": " << side.x << " x " << side.y << " x " << side.z;
    }
}
