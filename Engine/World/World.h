// Everything that a picture is made from: the objects of a scene with their parameters, geometry, textures, view.
#pragma once

#include "Engine/Packages/Registry.h"
#include "Engine/Scene/SceneGeometry.h"
#include "Engine/World/PixelFilter.h"
#include "Engine/World/Tone.h"
#include "Oxbeam/OxCamera.h"
#include "Oxbeam/OxContext.h"
#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxRenderingObject.h"
#include "Oxbeam/OxShader.h"
#include "Oxbeam/OxTexture.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace oxbeam {

struct View {
    R3 position{0.0f, 0.0f, 5.0f};
    R3 lookAt;
    R3 lookUp{0.0f, 1.0f, 0.0f};
};

// Where a surface keeps the colour that it has before any light falls on it, by what it declares; null where it
// declares none.
struct BaseColor {
    const R3* color = nullptr;
    const Oxint* texture = nullptr;  // an id
};

// What is seen where nothing is: the environment, or nothing ("transparent"), in this order.
OXBEAM_API const std::vector<std::string>& backgroundNames();

// What no sensible picture exceeds. Rays nested deeper than the limit would run out of stack.
inline constexpr unsigned MaxImageSide = 1u << 16;
inline constexpr unsigned MaxSamples = 1'000'000;
inline constexpr unsigned MaxRecursionLimit = 1024;

struct ImageSize {
    unsigned width = 1280;
    unsigned height = 720;
};

// Built once, by a scene file or a program, then rendered as often as wanted.
class OXBEAM_API World {
public:
    TextureList textures;
    SceneGeometry geometry;
    ImageSize image;
    Tone tone;  // of pictures for displays
    PixelFilter filter;
    bool transparentBackground = false;            // the picture has an alpha channel instead of the environment
    std::optional<View> view;                      // none: the whole scene is framed
    float fov = 40.0f;                             // vertical angle of the picture, degrees
    std::optional<float> rayEpsilon;               // none: follows the size of the scene
    OxRenderingObject* renderingObject = nullptr;  // all of these are owned by the world
    OxCamera* camera = nullptr;
    OxShader* environment = nullptr;
    std::vector<OxLight*> lights;
    std::vector<OxShader*> shaders;                        // surfaces, by the numbers that instances refer to
    std::map<std::filesystem::path, std::uint64_t> files;  // that were read for it, with hashes of what they held

    World();
    ~World();

    // Makes an object with its defaults and keeps it. The typed forms below also put it to its use.
    OxLoadableObject& make(const ObjectClass& object);
    OxRenderingObject& setRenderingObject(const ObjectClass& object);
    OxCamera& setCamera(const ObjectClass& object);
    OxShader& setEnvironment(const ObjectClass& object);
    OxLight& addLight(const ObjectClass& object);
    // Its number is shaders.size() - 1.
    OxShader& addShader(const ObjectClass& object);
    // One of the world's shaders has a packet form of its own, not just that of a simpler shader which it derives from.
    bool shadesPackets(const OxShader* shader) const { return m_packetShaders.contains(shader); }

    BaseColor baseColor(const OxShader* shader) const;
    // Files of the packages that the world's objects come from.
    const std::set<std::string>& packages() const { return m_packages; }
    // What an instance is called: by the scene, else by its mesh.
    void nameObject(unsigned instance, const std::string& name) { m_objectNames[instance] = name; }
    std::string objectName(unsigned instance) const;

    // A view of all that is there, or of what lies within such bounds, from the front, the right and above.
    View framingView() const { return framingView(geometry.bounds()); }
    View framingView(const Bounds& bounds) const;
    // The world's own view, or that of all.
    View viewInForce() const { return view ? *view : framingView(); }
    // Half the width and height of the picture at distance 1 from the eye.
    R2 imageWindow() const;
    // The epsilon in force once the geometry is built.
    float epsilon() const;

private:
    OxShader& makeShader(const ObjectClass& object);

    std::vector<std::unique_ptr<OxLoadableObject>> m_objects;
    std::unordered_set<const OxShader*> m_packetShaders;
    std::unordered_map<const OxShader*, BaseColor> m_baseColors;
    std::set<std::string> m_packages;
    std::map<unsigned, std::string> m_objectNames;  // by instance
};

}  // namespace oxbeam
