// The objects that packages offer: loading packages, and finding objects by name.
#pragma once

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/Packages/PackageFile.h"
#include "Engine/Packages/ShaderInfo.h"
#include "Oxbeam/OxLoadableObject.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

namespace oxbeam {

// What a parameter's bytes hold. Declarations do not say; the document does, else the default gives it away, and
// where that is all zero the way in which a value is written decides.
enum class ElementType { Bool, Int, Float, FromValue };

struct ParameterDeclaration {
    std::string id;
    std::ptrdiff_t offset = 0;  // from the start of the object
    int size = 0;               // bytes: 1 for a bool, else 4 a component
    ElementType type = ElementType::FromValue;
    std::vector<std::string> aliases;     // names that only the document gives it
    std::vector<std::byte> defaultBytes;  // as Init leaves them
    const ParameterInfo* info = nullptr;  // null where the document says nothing
    const char* followed = nullptr;       // what the host works out where nobody sets it, for people; else null

    unsigned components() const { return size < 4 ? 1u : static_cast<unsigned>(size) / 4u; }
};

enum class ObjectKind { RenderingObject, Camera, Light, Surface, Environment, Shader, Unknown };

// "rendering object", "camera", ...; Shader is one whose document does not say what it shades.
OXBEAM_API const char* kindName(ObjectKind kind);
// "a light", "an environment"
OXBEAM_API std::string oneOf(ObjectKind kind);

struct ObjectClass {
    std::string name;
    std::string package;  // path of the library, or "Oxbeam" for the host's own
    ObjectKind kind = ObjectKind::Unknown;
    OxFactory factory = nullptr;
    std::string document;  // byte for byte
    ShaderInfo info;
    std::vector<ParameterDeclaration> parameters;
    const std::type_info* type = nullptr;
    const void* packetForm = nullptr;  // a shader's Shade4, where it is not the interface's
    bool packetsInherited = false;     // and where it is that of another object, from whose class this one derives

    ObjectClass() = default;
    ObjectClass(const ObjectClass&) = delete;  // parameters point into info
    ObjectClass& operator=(const ObjectClass&) = delete;

    // By id or alias; null where there is none.
    OXBEAM_API const ParameterDeclaration* find(std::string_view wanted) const;
    OXBEAM_API std::vector<std::string> parameterNames() const;
    // A new object with its defaults.
    OXBEAM_API std::unique_ptr<OxLoadableObject> make() const;
};

// A file that is named as packages are and cannot be used as one.
struct BrokenPackage {
    std::filesystem::path path;
    std::string why;
    std::set<std::string> objects;  // that it would offer, as far as it is known
    bool namesKnown = false;        // it would offer no others

    bool mayOffer(const std::string& name) const { return !namesKnown || objects.contains(name); }
};

class OXBEAM_API Registry {
public:
    // How the code of a package is opened. Of a file that was overwritten or built anew, a process that has opened it gets
    // the old code again, or comes to harm; a copy in memory stays what it is, and another registry gets the new code.
    enum class Opening { Files, Copies };

    // Knows the host's own objects from the start.
    explicit Registry(Opening opening = Opening::Files);
    ~Registry();

    // Loads one package, after it has been tried in a process of its own; how that ended is known then for all files of
    // the same content. Throws Error(BadPackage) and offers none of its objects: it does not load, was built for another
    // version of the interface, exports no object, an object lacks its factory or describes itself wrongly, its
    // registration throws, crashes, hangs or ends the process, or a name is taken. Packages stay loaded until the process
    // ends.
    void loadPackage(const std::filesystem::path& library);
    // Loads every package (lib*.so) of the folders, in their order; of two files with the same name the first wins.
    // A folder that does not exist is skipped. A package that does not load harms no other.
    void loadPackages(const std::vector<std::filesystem::path>& folders);

    // Null where no object has this name.
    const ObjectClass* find(std::string_view name) const;
    // By name.
    std::vector<const ObjectClass*> all() const;
    // Names of the objects of some kinds; all where none is given.
    std::vector<std::string> names(const std::vector<ObjectKind>& kinds = {}) const;
    const std::vector<std::filesystem::path>& packages() const { return m_packages; }
    // Those of the folders that did not load.
    const std::vector<BrokenPackage>& broken() const { return m_broken; }
    // One of them that offers an object of this name, or might; null where no such is to blame for its absence.
    const BrokenPackage* brokenFor(std::string_view name) const;
    // "no package offers an object 'X'", with the name of one of these kinds that was probably meant, or with the
    // package that would offer it.
    std::string whyMissing(const std::string& name, const std::vector<ObjectKind>& kinds = {}) const;
    // What there is to say of the packages of the folders: of broken ones, of those that are skipped, of documents.
    const Diagnostics& remarks() const { return m_remarks; }

    // Registers one object by calling its registration function.
    void registerObject(const std::string& name, const std::string& package, int (*registration)());

private:
    void check(ObjectClass& object);
    void load(const PackageFile& file);
    void requireNewNames(const PackageFile& file) const;
    void open(const PackageFile& file, const std::function<void(const std::string& object)>& onObject);
    void findInheritedPackets();

    Opening m_opening;
    std::map<std::string, std::unique_ptr<ObjectClass>, std::less<>> m_objects;
    std::vector<std::filesystem::path> m_packages;
    std::vector<BrokenPackage> m_broken;
    Diagnostics m_remarks;
};

// Where packages are looked for unless told otherwise: in `packages` beside the program, then where they are installed, in
// `oxbeam/packages` beside the library.
OXBEAM_API std::vector<std::filesystem::path> defaultPackageFolders();

}  // namespace oxbeam
