// Which way is up: the turns, and what is assumed of real files.
#include "Engine/SceneFile/UpAxis.h"
#include "Tests/Support/SceneText.h"

#include <algorithm>

using namespace oxbeam::test;

namespace {

// Sides of the box around all triangles, as the model is set up.
R3 standing(const fs::path& file) {
    const Model model = loadModel(file);
    SceneGeometry geometry;
    for (const ModelPart& part : model.parts)
        geometry.addInstance(geometry.addMesh(model.meshes[part.mesh]), turnUp(model.up) * part.meshToModel, 0);
    geometry.build();
    return geometry.bounds().upper - geometry.bounds().lower;
}

}  // namespace

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
        EXPECT_EQ(Determinant(turnUp(axis)), 1.0f) << "not mirrored";
        EXPECT_EQ(bounds.upper.y > 0.0f, axis < 3) << AxisNames[axis];
    }
}

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
