#include "Tests/Support/EditedScene.h"

#include "Engine/Render/Renderer.h"
#include "Engine/Textures/TextureFile.h"

#include <cstring>

namespace oxbeam::test {

static std::string vector(float x, float y, float z) { return textOf(valueOf(R3(x, y, z))); }

// The whole placement of a mesh, in place of what a file says of it otherwise.
static std::string matrix(const Matrix& m) {
    std::vector<ParameterValue::Number> numbers;
    for (const auto& row : m.m)
        for (const float element : row) numbers.emplace_back(double{element});
    for (const double element : {0.0, 0.0, 0.0, 1.0}) numbers.emplace_back(element);
    return textOf({numbers, {}});
}

Document smallScene() {
    writeImage(scratch() / "one.png", 2, 2, {Black, White, Red, Green});
    writeImage(scratch() / "two.png", 3, 1, {Red, Green, White});
    Document d;
    d.textures = {{"wood", {{"file", "'one.png'"}, {"wrap", "'mirror'"}}},
                  {"bumps", {{"file", "'two.png'"}, {"bump", "'height'"}, {"filter", "'nearest'"}}},
                  {"sky", {{"file", "'one.png'"}, {"projection", "'equirectangular'"}, {"rotate", "30"}}}};
    d.render = {{"softShadows", "true"}, {"recursionLimit", "4"}, {"numFuzzySamples", "2"}};
    d.camera = {{"position", "[0.5, 2.0, 6.0]"}, {"lookAt", "[0.0, 0.5, 0.0]"}, {"fov", "40"}};
    d.environment = {{"object", "'OxBackground'"}, {"background", "[0.2, 0.3, 0.4]"}};
    d.shaders = {{"floor", {{"object", "'KelPhong'"}, {"texture", "'wood'"}, {"bumpMap", "'bumps'"}}},
                 {"red", {{"object", "'KelPhong'"}, {"diffuseColor", "[0.8, 0.2, 0.1]"}}},
                 {"mirror", {{"object", "'KelFresnelPhong'"}, {"fresnelMethod", "3"}}}};
    d.lights = {{{"object", "'KelPointLight'"}, {"position", "[3.0, 5.0, 4.0]"}, {"intensity", "[30.0, 30.0, 30.0]"}},
                {{"object", "'KelDirectionalLight'"}, {"direction", "[-0.3, -0.9, 0.2]"}}};
    const auto box = [](const char* shader, const char* scale, const char* rotate, const char* translate) {
        return Values{
            {"shape", "'box'"}, {"shader", shader}, {"scale", scale}, {"rotate", rotate}, {"translate", translate}};
    };
    d.meshes = {{{"shape", "'plane'"}, {"scale", "4"}, {"shader", "'floor'"}},
                box("'red'", "0.3", "[10, 20, 30]", "[-0.5, 3.1, 0.2]"),
                box("'red'", "[0.2, 0.4, 0.3]", "[40, -20, 5]", "[0.4, 3.2, 0.4]"),
                {{"shape", "'sphere'"},
                 {"shader", "'red'"},
                 {"scale", "[0.9, 0.6, 1.1]"},
                 {"rotate", "[20, 30, 40]"},
                 {"segments", "24"},
                 {"translate", "[-1.2, 1.0, 0.0]"}},
                box("'mirror'", "0.6", "[0, 0, 0]", "[1.3, 0.65, 0.3]")};
    return d;
}

Document focusedScene() {
    Document d = smallScene();
    d.camera["object"] = "'KelDOFCamera'";
    d.camera["focus"] = "'ball'";
    d.camera["lensRadius"] = "0.1";
    d.meshes[3]["name"] = "'ball'";
    d.meshes.push_back({{"shape", "'ground'"}, {"shader", "'floor'"}, {"translate", "[0.0, -0.5, 0.0]"}});
    return d;
}

std::unique_ptr<World> loaded(const Document& document) {
    LoadedScene scene = loadText(document.text());
    for (const std::string& said : scene.said) EXPECT_THAT(said, HasSubstr("warning")) << document.text();
    return std::move(scene.world);
}

std::vector<R3> freshPicture(const Document& document, unsigned passes) {
    const auto world = loaded(document);
    Workers workers(2);
    workers.within([&] { world->geometry.build(); });
    RenderOptions options;
    options.samples = passes;
    return render(*world, workers, options).film.pixels();
}

std::size_t differing(const std::vector<R3>& a, const std::vector<R3>& b) {
    if (a.size() != b.size()) return std::max(a.size(), b.size());
    std::size_t count = 0;
    for (std::size_t i = 0; i < a.size(); ++i) count += std::memcmp(&a[i], &b[i], sizeof(R3)) != 0;
    return count;
}

std::string Editor::edit() {
    switch (below(12)) {
    case 0: return setClass();
    case 1: return lightComesOrGoes();
    case 2: return setPicture();
    case 3: return changePlacement();
    case 4: return changeView();
    case 5: return setEnvironment();
    case 6:
    case 7:
    case 8: return meshComesOrGoes();
    default: return setParameter();
    }
}

// Of the kind that the declaration asks for, small enough to be rendered at once.
ParameterValue Editor::valueFor(const ParameterDeclaration& p) {
    // A number would be that of whichever texture was made then.
    const bool undocumented = !p.info && (p.id.starts_with("texture") || p.id == "bumpMap");
    if (isTexture(p) || undocumented) return {std::string(any<std::string>({"wood", "bumps", "sky"})), {}};
    if (p.info && !p.info->items.empty())
        return {std::int64_t{std::next(p.info->items.begin(), below(p.info->items.size()))->first}, {}};
    if (p.type == ElementType::Bool) return {below(2) == 1, {}};
    if (p.type == ElementType::Int) return {std::int64_t{1 + below(3)}, {}};
    std::vector<ParameterValue::Number> numbers;
    for (unsigned i = 0; i < p.components(); ++i) numbers.emplace_back(double{between(0.05f, 1.0f)});
    if (p.components() > 1) return {numbers, {}};
    return {std::get<double>(numbers[0]), {}};
}

std::string Editor::setParameter() {
    static const std::set<std::string> others = {"numThreads", "multiThreading", "samplesPerPixel", "rayEpsilon"};
    const Place place = any(m_world.places.all());
    if (place.object->parameters.empty()) return "nothing";
    const ParameterDeclaration& p = any(place.object->parameters);
    if (others.contains(p.id) || p.type == ElementType::FromValue) return "nothing";
    const std::string path = place.path + '.' + p.id;
    const ParameterValue value = valueFor(p);
    m_world.places.set(path, value);
    Values& values = m_document.at(place.path);
    values[p.id] = textOf(value);
    if (path == "camera.focalDistance") values.erase("focus");          // which goes before it in a file
    for (const ParameterDeclaration& other : place.object->parameters)  // which may be a part of it, or a second name
        if (values.contains(other.id) && other.offset < p.offset + p.size && p.offset < other.offset + other.size)
            values[other.id] = textOf(m_world.places.get(place.path + '.' + other.id));
    EXPECT_EQ(textOf(m_world.places.get(path)), textOf(value)) << path;
    return path + " = " + textOf(value);
}

std::string Editor::setClass() {
    const std::string place = "shader." + any<std::string>({"floor", "red", "mirror"});
    const std::string name = any<std::string>(
        {"KelPhong", "KelGlass", "KelDiffuse", "KelFresnelPhong", "KelAlphaILS", "KelPhongEyeLight", "KelDbgObjectID"});
    return become(place, name);
}

// Some take their light apart into lights of the scene's.
std::string Editor::setEnvironment() {
    const std::string name = any<std::string>({"OxBackground", "KelEnvironment", "KelCubicEnvironment"});
    return become("environment", name);
}

std::string Editor::become(const std::string& place, const std::string& name) {
    const ObjectClass& object = *registry().find(name);
    m_world.setClass(place, object);
    Values& values = m_document.at(place);
    values = {{"object", '\'' + name + '\''}};
    for (const ParameterDeclaration& p : object.parameters)  // what one class calls otherwise than another goes along
        if (m_world.places.isSet(place + '.' + p.id)) values[p.id] = textOf(m_world.places.get(place + '.' + p.id));
    return place + " is a " + name;
}

std::string Editor::lightComesOrGoes() {
    if (m_document.lights.size() > 1 && below(2) == 0) {
        const unsigned number = below(m_document.lights.size());
        m_world.removeLight("light." + std::to_string(number));
        m_document.lights.erase(m_document.lights.begin() + number);
        return "no light " + std::to_string(number);
    }
    const std::string name =
        any<std::string>({"KelPointLight", "KelDirectionalLight", "KelSpotLight", "KelEnvMapLight"});
    m_world.addLight(*registry().find(name));
    m_document.lights.push_back({{"object", '\'' + name + '\''}});
    return "a " + name;
}

// Turned, stretched, and flat at times.
Matrix Editor::placement() {
    const R3 middle(between(-1, 1), between(0.5f, 2), between(-1, 1));
    const R3 scale(between(0.2f, 0.6f), below(6) == 0 ? 0.0f : between(0.2f, 0.6f), between(0.2f, 0.6f));
    return TranslationMatrix(middle) * RotationMatrix(below(3), between(-3, 3)) *
           RotationMatrix(below(3), between(-3, 3)) * ScaleMatrix(scale);
}

// A sphere that comes has its own number of triangles, so that the file does not place one mesh twice.
std::string Editor::meshComesOrGoes() {
    const unsigned number = below(m_document.meshes.size());
    const bool ground = m_document.meshes[number]["shape"] == "'ground'";
    if (m_document.meshes.size() > 2 && !m_document.meshes[number].contains("name") && below(2) == 0) {
        m_world.placements.remove("mesh." + std::to_string(number));
        m_document.meshes.erase(m_document.meshes.begin() + number);
        return "no mesh " + std::to_string(number);
    }
    const Matrix toWorld = placement();
    Values mesh = {{"shape", "'sphere'"}, {"segments", std::to_string(m_segments)}, {"shader", "'red'"}};
    std::string said = "a sphere";
    if (!ground && below(4) != 0) {
        mesh = m_document.meshes[number];
        for (const char* key : {"scale", "rotate", "translate", "name"}) mesh.erase(key);
        said = "mesh " + std::to_string(number) + " again";
        m_world.placements.addAgain("mesh." + std::to_string(number), toWorld);
    } else {
        m_world.placements.addMesh(sphereMesh(m_segments++), m_world.shaderNumber("shader.red"), toWorld);
    }
    mesh["matrix"] = matrix(toWorld);
    m_document.meshes.push_back(mesh);
    return said;
}

std::string Editor::setPicture() {
    const std::string file = any<std::string>({"one.png", "two.png"}),
                      name = any<std::string>({"wood", "bumps", "sky"});
    m_world.setPicture("texture." + name, TextureReader().read(scratch() / file));
    m_document.textures[name]["file"] = '\'' + file + '\'';
    return name + " is " + file;
}

std::string Editor::changePlacement() {
    const unsigned number = below(m_document.meshes.size());
    const std::string place = "mesh." + std::to_string(number);
    if (below(2) == 0) {
        m_world.placements.setVisibility(place, RAY_PRIMARY | RAY_REFLECTION);
        m_document.meshes[number]["visibleTo"] = "['primary', 'reflection']";
        return place + " is seen by few";
    }
    const std::string shader = any<std::string>({"floor", "red", "mirror"});
    m_world.placements.setShader(place, m_world.shaderNumber("shader." + shader));
    m_document.meshes[number]["shader"] = '\'' + shader + '\'';
    return place + " has shader " + shader;
}

std::string Editor::changeView() {
    if (below(2) == 0) {
        m_world.image = m_document.image = {33 + below(20), 20 + below(20)};
        return "another size";
    }
    m_world.view->position = R3(between(-1, 1), between(1, 3), between(4, 6));
    const R3& p = m_world.view->position;
    m_document.camera["position"] = vector(p.x, p.y, p.z);
    return "another view";
}

}  // namespace oxbeam::test
