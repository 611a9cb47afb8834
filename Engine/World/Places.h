// The objects of a world by their places, and their parameters by name: the one door through which values come in,
// whether a scene file, the command line or a program brings them.
//
// Places are called as a scene file's sections are: "shader.table", "light.0", "camera", "camera.close", "environment",
// "render", and "model.0.shader.Material" for what the file of a [[model]] brought along. A parameter is a place, a dot
// and its id or one of its aliases: "shader.table.shininess".
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Packages/ParameterValue.h"
#include "Engine/World/TextureNames.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace oxbeam {

struct Place {
    std::string path;
    const ObjectClass* object = nullptr;  // of a scene that was only looked into, null where no package offers it
};

// No such place or parameter; names the nearest. Its status is BadScene.
struct NoSuchName : Error {
    explicit NoSuchName(const std::string& message) : Error(ExitStatus::BadScene, message) {}
};
// A value that the parameter cannot take; says what it can. Its status is BadScene.
struct BadValue : Error {
    explicit BadValue(const std::string& message) : Error(ExitStatus::BadScene, message) {}
};

// What messages call a place: "shader 'table'", "light 0", "model 0, shader 'Material'".
OXBEAM_API std::string labelOf(std::string_view place);
// The kinds of objects that can stand at a place, the first being what is expected; none where no object stands.
OXBEAM_API const std::vector<ObjectKind>& kindsAt(std::string_view place);
// The declaration behind "shader.table.shininess" or, of all shaders together, "shader.*.shininess", those of models
// among them; null where there is none.
OXBEAM_API const ParameterDeclaration* parameterAt(const std::vector<Place>& places, std::string_view path);
// "; did you mean 'shader.lacquer'?" for "shader.laquer", and for "lacquer" by itself; nothing where no place is near.
OXBEAM_API std::string placeMeant(std::string_view wanted, const std::vector<std::string>& places);
// Every name that can stand for a parameter at these places.
OXBEAM_API std::vector<std::string> parameterPaths(const std::vector<Place>& places);

// Owns the objects. Everything here belongs between frames and to the thread that renders them; what is set takes effect
// when the next frame begins.
class OXBEAM_API Places {
public:
    explicit Places(TextureNames& textures) : m_textures(textures) {}
    Places(const Places&) = delete;
    Places& operator=(const Places&) = delete;

    // In the order in which they came. The classes are the registry's and must outlive this.
    std::vector<Place> all() const;
    bool has(std::string_view place) const { return find(place) != nullptr; }
    // The three throw NoSuchName. References to objects hold until the next frame begins.
    const ObjectClass& classAt(std::string_view place) const;
    OxLoadableObject& objectAt(std::string_view place) const;
    const ParameterDeclaration& declaration(std::string_view path) const;

    // What was set, or else the default: an object may make something else of it for itself. A texture is its name, or
    // -1 where there is none. Throws NoSuchName.
    ParameterValue get(std::string_view path) const;
    // Sets a parameter. The value is of the kind that the declaration asks for: true or false, an integer, a number, the
    // name of a texture or of an enumeration's item, or a list of as many numbers as it has components. Values outside
    // the declared bounds are set; the answer warns of them, and is else empty. Throws NoSuchName, or BadValue for one
    // of another kind; either leaves everything as it was.
    std::vector<std::string> set(std::string_view path, const ParameterValue& value);
    // What `set` would say of a value, with everything that is wrong in the diagnostics, and sets nothing. Throws NoSuchName.
    void check(std::string_view path, const ParameterValue& value, Diagnostics& diagnostics);
    // Gives it the default of its class. Throws NoSuchName.
    void reset(std::string_view path);
    // Whether anybody set it, to whatever value. One who writes to an object's member and not through this door is noticed
    // by the value: before the first frame, what equals the default counts as not set. Throws NoSuchName.
    bool isSet(std::string_view path) const;

    // ---- For those who make worlds

    // Another object stands at the place from now on; what was set and it knows too, it takes over. Answers the one that
    // stood there, of which nobody may speak when it ends. Throws NoSuchName, and BadValue for a class that cannot stand
    // there.
    std::unique_ptr<OxLoadableObject> setClass(std::string_view place, const ObjectClass& object);

    // Makes an object with its defaults. It takes the place of one that is there.
    OxLoadableObject& add(std::string place, const ObjectClass& object);
    void remove(std::string_view place);
    // A place is called otherwise from now on, as where a list is counted anew.
    void rename(std::string_view place, std::string to);
    // Of the object, or nothing.
    std::string placeOf(const OxLoadableObject* object) const;
    // As `set`, with everything that is wrong in the diagnostics. `otherNames` are what may be meant by an unknown name
    // beside a parameter.
    void write(std::string_view place, const std::string& name, const SourceLocation& nameAt,
               const ParameterValue& value, Diagnostics& diagnostics, const std::vector<std::string>& otherNames = {});
    // A texture's name stands for another picture: all parameters that have it follow.
    void textureChanged(const std::string& scope, const std::string& name);

    // ---- For those who render them

    // Makes what has changed over, with all others of its class, so that no object knows of frames that the scene as it
    // is now has never had, and calls `replaced` for each; gives the others the values back that were set for them.
    using Replaced = std::function<void(OxLoadableObject* before, OxLoadableObject* now, const ObjectClass& object)>;
    void beginFrame(const Replaced& replaced);
    // All have seen the frame begin: what they have made of their parameters is theirs and no setting.
    void frameBegun();

private:
    struct Object {
        Place place;
        std::unique_ptr<OxLoadableObject> made;
        std::vector<std::byte> set, left;  // the parameters one after the other: as set, and as a frame left them
        std::map<std::string, std::string> given;  // parameters that were set, with the name where it is a texture's
        bool framed = false;                       // it has seen a frame begin
        bool changed = false;                      // since then

        std::vector<std::byte> values() const;
        std::vector<std::byte> valuesSet() const;
        std::vector<std::byte> valueSet(const ParameterDeclaration& p) const;
        std::vector<std::string> otherNamesOf(const ParameterDeclaration& p) const;  // parameters of the same member
        void noteWritten();
        void giveBack(const std::vector<std::byte>& values);
    };

    Object* find(std::string_view place) const;
    Object& at(std::string_view place) const;
    std::pair<Object*, const ParameterDeclaration*> parameter(std::string_view path) const;
    bool write(Object& object, const std::string& name, const SourceLocation& nameAt, const ParameterValue& value,
               Diagnostics& diagnostics, const std::vector<std::string>& otherNames);

    TextureNames& m_textures;
    std::vector<std::unique_ptr<Object>> m_objects;
    std::map<std::string, Object*, std::less<>> m_byPath;  // a scene may have a hundred thousand lights
};

}  // namespace oxbeam
