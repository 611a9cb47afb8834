// Everything that a picture is made from: the objects of a scene with their parameters, geometry, textures, view.
#pragma once

#include "Engine/Packages/Registry.h"
#include "Engine/Scene/SceneGeometry.h"
#include "Engine/World/PixelFilter.h"
#include "Engine/World/Placements.h"
#include "Engine/World/Places.h"
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
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace oxbeam {

struct View {
    R3 position{0.0f, 0.0f, 5.0f};
    R3 lookAt;
    R3 lookUp{0.0f, 1.0f, 0.0f};
};

// How a camera stands, the vertical angle of its picture in degrees, and what it is focused on.
struct CameraView {
    std::optional<View> view;  // none: the whole scene is framed
    float fov = 40.0f;
    std::optional<R3> focus = {};         // a point, or
    std::vector<unsigned> focusOn = {};   // instances, in whose middle it is; neither: by the camera's own parameters
    std::optional<float> focusedAt = {};  // the distance that the camera was given last
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

// Built by a scene file or a program, then rendered as often as wanted, and changed in between: by the names of its
// objects, textures and placements, or by what stands here. All of it belongs to the thread that renders it, and changes
// take effect when the next frame begins. Docs/engine.md tells how, and what each change costs.
class OXBEAM_API World {
public:
    TextureList textures;
    TextureNames textureNames{textures};
    Places places{textureNames};  // the objects, by place
    SceneGeometry geometry;
    Placements placements{geometry};
    ImageSize image;
    Tone tone;  // of pictures for displays
    PixelFilter filter;
    bool transparentBackground = false;  // the picture has an alpha channel instead of the environment
    std::optional<View> view;            // none: the whole scene is framed
    float fov = CameraView().fov;        // vertical angle of the picture, degrees
    std::map<std::string, CameraView, std::less<>> cameraViews;  // of the scene's cameras, by place
    // None: the rendering object's own if that was set, else by the scene's size. Who writes to the object's member before
    // the first frame is not told from one who does not where the value is its default, 0.01: this is the door for that.
    std::optional<float> rayEpsilon;
    // These are what the places hold; they are others after an object has been changed and a frame has begun.
    OxRenderingObject* renderingObject = nullptr;
    OxCamera* camera = nullptr;
    OxShader* environment = nullptr;
    std::vector<OxLight*> lights;
    std::vector<OxShader*> shaders;                        // surfaces, by the numbers that instances refer to
    std::map<std::filesystem::path, std::uint64_t> files;  // that were read for it, with hashes of what they held

    World();
    ~World();

    // Makes an object with its defaults, at its place: "render", "environment", and "light.N" with the next number.
    OxRenderingObject& setRenderingObject(const ObjectClass& object);
    OxShader& setEnvironment(const ObjectClass& object);
    OxLight& addLight(const ObjectClass& object);
    // The camera in force. addCamera makes one more, to choose from: "camera.close".
    OxCamera& setCamera(const ObjectClass& object, std::string place = "camera");
    OxCamera& addCamera(const ObjectClass& object, std::string place);
    // Its number is shaders.size() - 1, its place that or, where that is taken or nothing, "shader.N".
    OxShader& addShader(const ObjectClass& object, std::string place = {});

    // ---- Changes, beside those that `places`, `placements` and the members above take

    // Another object at a place; what was set and it knows too, it takes over. Throws NoSuchName, and BadValue for one
    // that cannot stand there.
    void setClass(std::string_view place, const ObjectClass& object);
    // Those after it are counted anew: "light.2" becomes "light.1". Throws NoSuchName.
    void removeLight(std::string_view place);
    // The camera at a place is in force from now on, with its view and focus where the scene has them for it. Throws
    // NoSuchName.
    void chooseCamera(std::string_view place);
    // How far along the way that the eye looks the middle lies of what a camera of the scene is focused on; nothing where it
    // is focused on nothing, the scene has no view or it lies behind.
    std::optional<float> focalDistance(const CameraView& camera, const std::optional<View>& from) const;
    // Gives the camera in force the distance of what it is focused on, unless another was set by name: a parameter
    // "focalDistance" comes first. Frames begin with it.
    void focusCamera();
    // A name stands for another picture, used as the one before: "texture.wood", "model.0.texture.wood". Throws NoSuchName.
    void setPicture(std::string_view texture, std::unique_ptr<Texture> picture);
    // What `placements` and instances call the shader at a place. Throws NoSuchName.
    unsigned shaderNumber(std::string_view place) const;

    // Called by sessions, before objects learn of a frame and after: see Places.
    void beginFrame();
    void frameBegun() { places.frameBegun(); }

    // One of the world's shaders has a packet form of its own, not just that of a simpler shader which it derives from.
    bool shadesPackets(const OxShader* shader) const { return m_packetShaders.contains(shader); }

    BaseColor baseColor(const OxShader* shader) const;
    // Files of the packages that the world's objects come from.
    std::set<std::string> packages() const;
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
    bool hasOwnFocus(std::string_view place, const CameraView& own) const;
    std::optional<float> ownEpsilon() const;
    OxShader& knownShader(OxLoadableObject& made, const ObjectClass& object);
    void replace(OxLoadableObject* before, OxLoadableObject* now, const ObjectClass& object);

    std::unordered_set<const OxShader*> m_packetShaders;
    std::unordered_map<const OxShader*, BaseColor> m_baseColors;
    std::map<unsigned, std::string> m_objectNames;  // by instance
};

}  // namespace oxbeam
