#include "Engine/Packages/Registry.h"

#include "Engine/Host/HostObjects.h"
#include "Engine/Packages/Overrides.h"
#include "Engine/System/System.h"
#include "Oxbeam/OxCamera.h"
#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxRenderingObject.h"
#include "Oxbeam/OxShader.h"

#define BOOST_DLL_USE_STD_FS
#include <boost/dll/runtime_symbol_info.hpp>
#include <boost/dll/shared_library.hpp>
#include <fmt/format.h>

#include <dlfcn.h>
#include <link.h>
#include <malloc.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <list>
#include <mutex>
#include <set>

namespace oxbeam {

namespace fs = std::filesystem;

// What the object that is being registered has declared so far. Packages are loaded one at a time.
static struct Pending {
    std::mutex mutex;
    std::vector<ParameterDeclaration> parameters;
    OxFactory factory = nullptr;
} s_pending;

static Error badPackage(const std::string& package, const std::string& message) {
    return {ExitStatus::BadPackage, fmt::format("{}: {}", package, message)};
}

const char* kindName(ObjectKind kind) {
    switch (kind) {
    case ObjectKind::RenderingObject: return "rendering object";
    case ObjectKind::Camera: return "camera";
    case ObjectKind::Light: return "light";
    case ObjectKind::Surface: return "surface";
    case ObjectKind::Environment: return "environment";
    case ObjectKind::Shader: return "shader";
    case ObjectKind::Unknown: break;
    }
    return "object";
}

std::string oneOf(ObjectKind kind) {
    const std::string name = kindName(kind);
    return fmt::format("{} {}", std::string_view("aeiou").find(name[0]) == std::string_view::npos ? "a" : "an", name);
}

// ---- ObjectClass

const ParameterDeclaration* ObjectClass::find(std::string_view wanted) const {
    for (const ParameterDeclaration& p : parameters)
        if (p.id == wanted) return &p;
    for (const ParameterDeclaration& p : parameters)
        if (std::count(p.aliases.begin(), p.aliases.end(), wanted)) return &p;
    return nullptr;
}

std::vector<std::string> ObjectClass::parameterNames() const {
    std::vector<std::string> names;
    for (const ParameterDeclaration& p : parameters) {
        names.push_back(p.id);
        names.insert(names.end(), p.aliases.begin(), p.aliases.end());
    }
    return names;
}

std::unique_ptr<OxLoadableObject> ObjectClass::make() const {
    std::unique_ptr<OxLoadableObject> object(factory());
    if (!object) throw badPackage(package, fmt::format("the factory of '{}' makes no object", name));
    object->Init();
    return object;
}

// ---- What a registered object turns out to be

static ObjectKind kindOf(const OxLoadableObject& object, const ShaderInfo& info) {
    if (dynamic_cast<const OxRenderingObject*>(&object)) return ObjectKind::RenderingObject;
    if (dynamic_cast<const OxCamera*>(&object)) return ObjectKind::Camera;
    if (dynamic_cast<const OxLight*>(&object)) return ObjectKind::Light;
    if (!dynamic_cast<const OxShader*>(&object)) return ObjectKind::Unknown;
    if (info.type == "surface") return ObjectKind::Surface;
    return info.type == "environment" ? ObjectKind::Environment : ObjectKind::Shader;
}

// A small integer is an int, a sensible float is a float, nothing but zero could be either.
static ElementType typeOfDefault(const std::vector<std::byte>& bytes) {
    if (bytes.size() == 1) return ElementType::Bool;
    if (bytes.size() > 4) return ElementType::Float;  // vectors and colours
    std::int32_t bits;
    std::memcpy(&bits, bytes.data(), sizeof bits);
    if (bits == 0) return ElementType::FromValue;
    if (std::abs(static_cast<std::int64_t>(bits)) <= 1 << 16) return ElementType::Int;
    const float number = std::fabs(std::bit_cast<float>(bits));
    return number > 1e-20f && number < 1e20f ? ElementType::Float : ElementType::FromValue;
}

static ElementType typeOf(const ParameterDeclaration& p) {
    if (p.size == 1 || (p.info && p.info->type == "bool")) return ElementType::Bool;
    if (p.info && p.info->type == "int") return ElementType::Int;
    if (p.info && p.info->type == "float") return ElementType::Float;
    return typeOfDefault(p.defaultBytes);
}

// Gives names that stand only in the document to the declaration that the document ties them to.
static void adoptAliases(ObjectClass& object) {
    for (const ParameterInfo& info : object.info.parameters) {
        std::vector<std::string> names = info.ids;
        names.insert(names.end(), info.aliases.begin(), info.aliases.end());
        ParameterDeclaration* owner = nullptr;
        for (ParameterDeclaration& p : object.parameters)
            if (!owner && std::count(names.begin(), names.end(), p.id)) owner = &p;
        for (const std::string& name : names)
            if (owner && !object.find(name)) owner->aliases.push_back(name);
    }
}

static void checkParameter(const ObjectClass& object, const ParameterDeclaration& p, std::size_t objectSize) {
    if (p.size != 1 && (p.size < 4 || p.size % 4 != 0))
        throw badPackage(object.package, fmt::format("parameter '{}' of '{}' is declared with {} bytes; expected 1 or "
                                                     "a multiple of 4",
                                                     p.id, object.name, p.size));
    if (p.offset < static_cast<std::ptrdiff_t>(sizeof(void*)) ||
        static_cast<std::size_t>(p.offset) + static_cast<std::size_t>(p.size) > objectSize)
        throw badPackage(object.package,
                         fmt::format("parameter '{}' of '{}' is declared outside its object: bytes {} to {} of {}",
                                     p.id, object.name, p.offset, p.offset + p.size, objectSize));
}

// Bytes from where parameters are counted to the end of the object's memory.
static std::size_t sizeFrom(OxLoadableObject* object) {
    void* block = dynamic_cast<void*>(object);
    const auto before = reinterpret_cast<std::byte*>(object) - static_cast<std::byte*>(block);
    return malloc_usable_size(block) - static_cast<std::size_t>(before);
}

void Registry::check(ObjectClass& object) const {
    const std::unique_ptr<OxLoadableObject> prototype = object.make();
    const char* document = prototype->GetShaderInfo();
    object.document = document ? document : "";
    object.info = parseShaderInfo(object.document);
    object.kind = kindOf(*prototype, object.info);
    object.type = &typeid(*prototype);
    const auto* shader = dynamic_cast<const OxShader*>(prototype.get());
    if (shader && overrides(*shader, &OxShader::Shade4))
        object.packetForm = virtualFunction(*shader, &OxShader::Shade4);
    const std::size_t objectSize = sizeFrom(prototype.get());
    for (ParameterDeclaration& p : object.parameters) {
        checkParameter(object, p, objectSize);
        const auto* bytes = reinterpret_cast<const std::byte*>(prototype.get()) + p.offset;
        p.defaultBytes.assign(bytes, bytes + p.size);
        p.info = object.info.find(p.id);
        p.type = typeOf(p);
    }
    adoptAliases(object);
}

// ---- Registry

Registry::Registry() {
    for (const HostObject& object : hostObjects()) registerObject(object.name, HostPackage, object.registration);
}

Registry::~Registry() = default;

void Registry::registerObject(const std::string& name, const std::string& package, int (*registration)()) {
    const std::scoped_lock lock(s_pending.mutex);
    if (const ObjectClass* other = find(name))
        throw badPackage(package, fmt::format("object '{}' is already registered by {}", name, other->package));
    s_pending.parameters.clear();
    s_pending.factory = nullptr;
    auto object = std::make_unique<ObjectClass>();
    object->name = name;
    object->package = package;
    const std::string failed = fmt::format("the registration of '{}' failed", name);
    try {
        if (registration() != 1 || !s_pending.factory) throw badPackage(package, failed);
        object->factory = s_pending.factory;
        object->parameters = std::move(s_pending.parameters);
        check(*object);
    } catch (const Error&) {
        throw;
    } catch (const std::exception& e) {  // no package may throw, but one that does is named
        throw badPackage(package, fmt::format("{}: {}", failed, e.what()));
    } catch (...) {
        throw badPackage(package, failed);
    }
    m_objects[name] = std::move(object);
}

// The <Name>s of all Register_<Name>_LoadableObject that a library itself exports. Every text in its dynamic string
// table may be one, and the loader knows which are; both are there in a stripped library too.
static std::set<std::string> registeredNames(void* library) {
    static constexpr std::string_view prefix = "Register_", suffix = "_LoadableObject";
    const link_map* map = nullptr;
    Dl_info own, found;
    if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0 || !dladdr(map->l_ld, &own)) return {};
    const char* table = nullptr;
    std::size_t size = 0;
    for (const auto* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_STRTAB) table = std::bit_cast<const char*>(entry->d_un.d_ptr);
        if (entry->d_tag == DT_STRSZ) size = entry->d_un.d_val;
    }
    const std::string_view strings(table, size);
    std::set<std::string> names;
    for (auto at = strings.find(prefix); at != std::string_view::npos; at = strings.find(prefix, at + 1)) {
        const std::string symbol(table + at);
        if (!symbol.ends_with(suffix) || symbol.size() <= prefix.size() + suffix.size()) continue;
        const void* function = dlsym(library, symbol.c_str());
        if (function && dladdr(function, &found) && found.dli_fbase == own.dli_fbase)
            names.insert(symbol.substr(prefix.size(), symbol.size() - prefix.size() - suffix.size()));
    }
    return names;
}

static boost::dll::shared_library open(const fs::path& library) {
    using boost::dll::load_mode::rtld_local, boost::dll::load_mode::rtld_now;
    try {
        return boost::dll::shared_library(library, rtld_now | rtld_local);
    } catch (const std::exception& e) {
        // The loader's own words stand behind Boost's, in parentheses.
        const std::string all = e.what(), mark = "dlerror system message: ";
        const auto at = all.find(mark), end = all.rfind("):");
        const std::string words = at == std::string::npos ? all : all.substr(at + mark.size(), end - at - mark.size());
        throw badPackage(library.string(), fmt::format("this package does not load: {}", words));
    }
}

void Registry::loadPackage(const fs::path& library) {
    std::error_code none;
    const fs::path path = fs::absolute(library, none);
    // Never unloaded, not even at exit: objects, documents and registered functions live in them.
    static auto& libraries = *new std::list<boost::dll::shared_library>;
    boost::dll::shared_library& loaded = libraries.emplace_back(open(path));
    const std::set<std::string> names = registeredNames(loaded.native());
    if (names.empty())
        throw badPackage(path.string(), "this library exports no Register_<Name>_LoadableObject; it is no package");
    for (const std::string& name : names) {
        if (!loaded.has(fmt::format("New{}LoadableObject", name)))
            throw badPackage(path.string(), fmt::format("object '{0}' has no factory: Register_{0}_LoadableObject is "
                                                        "exported, New{0}LoadableObject is not",
                                                        name));
        registerObject(name, path.string(), &loaded.get<int()>(fmt::format("Register_{}_LoadableObject", name)));
    }
    findInheritedPackets();
    m_packages.push_back(path);
}

void Registry::findInheritedPackets() {
    for (const auto& entry : m_objects) {
        ObjectClass& object = *entry.second;
        object.packetsInherited =
            object.packetForm && std::any_of(m_objects.begin(), m_objects.end(), [&](const auto& other) {
                return other.second->packetForm == object.packetForm && derives(*object.type, *other.second->type);
            });
    }
}

void Registry::loadPackages(const std::vector<fs::path>& folders, const std::function<void(const Error&)>& onFailure) {
    std::set<std::string> seen;
    for (const fs::path& folder : folders) {
        std::error_code missing;
        std::set<fs::path> libraries;
        for (const auto& entry : fs::directory_iterator(folder, missing)) {
            const std::string file = entry.path().filename().string();
            if (file.starts_with("lib") && file.ends_with(".so")) libraries.insert(entry.path());
        }
        for (const fs::path& library : libraries) {
            if (!seen.insert(library.filename().string()).second) continue;
            try {
                loadPackage(library);
            } catch (const Error& e) {
                if (!onFailure) throw;
                onFailure(e);
            }
        }
    }
}

const ObjectClass* Registry::find(std::string_view name) const {
    const auto found = m_objects.find(name);
    return found == m_objects.end() ? nullptr : found->second.get();
}

std::vector<const ObjectClass*> Registry::all() const {
    std::vector<const ObjectClass*> objects;
    for (const auto& [name, object] : m_objects) objects.push_back(object.get());
    return objects;
}

std::vector<std::string> Registry::names(const std::vector<ObjectKind>& kinds) const {
    std::vector<std::string> result;
    for (const auto& [name, object] : m_objects)
        if (kinds.empty() || std::count(kinds.begin(), kinds.end(), object->kind)) result.push_back(name);
    return result;
}

std::vector<fs::path> defaultPackageFolders() {
    return {boost::dll::program_location().parent_path() / "packages",
            engineLibrary().parent_path() / "oxbeam" / "packages"};
}

}  // namespace oxbeam

// ---- The two operations that packages call

Oxvoid oxsDeclareParameter(const char* id, int, std::ptrdiff_t offset, int size) {
    oxbeam::ParameterDeclaration declaration;
    declaration.id = id;
    declaration.offset = offset;
    declaration.size = size;
    oxbeam::s_pending.parameters.push_back(std::move(declaration));
}

int oxsDefine_NewLoadableObject_Fct(OxFactory factory) {
    oxbeam::s_pending.factory = factory;
    return factory ? 1 : 0;
}
