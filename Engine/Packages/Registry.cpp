#include "Engine/Packages/Registry.h"

#include "Engine/Host/HostObjects.h"
#include "Engine/Packages/Overrides.h"
#include "Engine/Packages/ParameterValue.h"
#include "Engine/Packages/Trial.h"
#include "Engine/Packages/Watch.h"
#include "Engine/System/System.h"
#include "Oxbeam/OxCamera.h"
#include "Oxbeam/OxInterface.h"
#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxRenderingObject.h"
#include "Oxbeam/OxShader.h"

#define BOOST_DLL_USE_STD_FS
#include <boost/dll/runtime_symbol_info.hpp>
#include <fmt/format.h>

#include <dlfcn.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <mutex>
#include <set>

namespace oxbeam {

namespace fs = std::filesystem;

// What the object that is being registered has declared so far. Packages are loaded one at a time.
static struct Pending {
    std::mutex mutex;
    std::vector<ParameterDeclaration> parameters;
    OxFactory factory = nullptr;
    bool unnamed = false;  // one was declared without an id
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

static std::unique_ptr<OxLoadableObject> made(const ObjectClass& object) {
    std::unique_ptr<OxLoadableObject> result(object.factory());
    if (!result) throw badPackage(object.package, fmt::format("the factory of '{}' makes no object", object.name));
    result->Init();
    return result;
}

std::unique_ptr<OxLoadableObject> ObjectClass::make() const {
    noteMade(name);
    std::unique_ptr<OxLoadableObject> object;
    watchPackages([&] { object = made(*this); });
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

// Of the object, what the host keeps there: values of parameters would make it lose its way.
struct HostField {
    const char* name;
    std::ptrdiff_t begin, end;
};

static std::vector<HostField> hostFields(const OxLoadableObject& object) {
    std::vector<HostField> fields;
    const auto add = [&](const char* name, const auto& member) {
        const auto placeOf = [&](const auto* at) {
            return reinterpret_cast<const std::byte*>(at) - reinterpret_cast<const std::byte*>(&object);
        };
        fields.push_back({name, placeOf(&member), placeOf(&member + 1)});
    };
    if (const auto* shader = dynamic_cast<const OxShader*>(&object)) add("m_ro", shader->m_ro);
    if (const auto* light = dynamic_cast<const OxLight*>(&object)) add("type", light->type);
    if (const auto* ro = dynamic_cast<const OxRenderingObject*>(&object)) add("m_tilesPerFrame", ro->m_tilesPerFrame);
    return fields;
}

static void checkParameter(const ObjectClass& object, const ParameterDeclaration& p, std::size_t objectSize,
                           const std::vector<HostField>& fields) {
    if (p.size != 1 && (p.size < 4 || p.size % 4 != 0))
        throw badPackage(object.package, fmt::format("parameter '{}' of '{}' is declared with {} bytes; expected 1 or "
                                                     "a multiple of 4",
                                                     p.id, object.name, p.size));
    if (p.offset < static_cast<std::ptrdiff_t>(sizeof(void*)) ||
        static_cast<std::size_t>(p.offset) + static_cast<std::size_t>(p.size) > objectSize)
        throw badPackage(object.package,
                         fmt::format("parameter '{}' of '{}' is declared outside its object: bytes {} to {} of {}",
                                     p.id, object.name, p.offset, p.offset + p.size, objectSize));
    for (const HostField& field : fields)
        if (p.offset < field.end && field.begin < p.offset + p.size)
            throw badPackage(object.package, fmt::format("parameter '{}' of '{}' is declared over '{}', which is the "
                                                         "host's: bytes {} to {}",
                                                         p.id, object.name, field.name, p.offset, p.offset + p.size));
}

// One member may have many names, and stand also for itself in a group of members: an end within another's number may
// not.
static bool cross(const ParameterDeclaration& a, const ParameterDeclaration& b) {
    const auto end = [](const ParameterDeclaration& p) { return p.offset + p.size; };
    if (end(a) <= b.offset || end(b) <= a.offset) return false;
    const ParameterDeclaration &outer = a.size < b.size ? b : a, &inner = a.size < b.size ? a : b;
    const bool within = inner.offset >= outer.offset && end(inner) <= end(outer);
    return !within || (inner.offset - outer.offset) % 4 != 0 || (inner.size % 4 != 0 && inner.size != outer.size);
}

static void checkOverlaps(const ObjectClass& object) {
    for (auto a = object.parameters.begin(); a != object.parameters.end(); ++a)
        for (auto b = object.parameters.begin(); b != a; ++b)
            if (cross(*a, *b))
                throw badPackage(object.package,
                                 fmt::format("parameters '{}' and '{}' of '{}' overlap: bytes {} to {} and {} to {}",
                                             b->id, a->id, object.name, b->offset, b->offset + b->size, a->offset,
                                             a->offset + a->size));
}

// Bytes from where parameters are counted to the end of the object's memory.
static std::size_t sizeFrom(OxLoadableObject* object) {
    void* block = dynamic_cast<void*>(object);
    const auto before = reinterpret_cast<std::byte*>(object) - static_cast<std::byte*>(block);
    return malloc_usable_size(block) - static_cast<std::size_t>(before);
}

// What an object answers that has no document.
static bool isNoDocument(const std::string& text) { return text.empty() || text == OxLoadableObject().GetShaderInfo(); }

// What the host sets before every frame unless somebody else has; an object that begins with a value of its own has.
static const char* followedBy(const OxLoadableObject& object, const ParameterDeclaration& p) {
    static const OxRenderingObject untouched;
    const auto* ro = dynamic_cast<const OxRenderingObject*>(&object);
    if (!ro || memberOf(object, p) != reinterpret_cast<const std::byte*>(&ro->m_rayEpsilon)) return nullptr;
    if (ro->m_rayEpsilon != untouched.m_rayEpsilon) return nullptr;
    return "1e-5 of the scene's size, which is the diagonal of its bounds or, where that is more, their coordinate "
           "farthest from the origin";
}

void Registry::check(ObjectClass& object) {
    const std::unique_ptr<OxLoadableObject> prototype = made(object);
    const char* document = prototype->GetShaderInfo();
    object.document = document ? document : "";
    object.info = parseShaderInfo(object.document);
    if (!object.info.fault.empty() && !isNoDocument(object.document))
        m_remarks.warning({object.package, 0, 0},
                          fmt::format("the document of '{}' {}; it is not used", object.name, object.info.fault));
    object.kind = kindOf(*prototype, object.info);
    object.type = &typeid(*prototype);
    const auto* shader = dynamic_cast<const OxShader*>(prototype.get());
    if (shader && overrides(*shader, &OxShader::Shade4))
        object.packetForm = virtualFunction(*shader, &OxShader::Shade4);
    const std::size_t objectSize = sizeFrom(prototype.get());
    const std::vector<HostField> fields = hostFields(*prototype);
    for (ParameterDeclaration& p : object.parameters) {
        checkParameter(object, p, objectSize, fields);
        const auto* bytes = reinterpret_cast<const std::byte*>(prototype.get()) + p.offset;
        p.defaultBytes.assign(bytes, bytes + p.size);
        p.info = object.info.find(p.id);
        p.type = typeOf(p);
        p.followed = followedBy(*prototype, p);
    }
    checkOverlaps(object);
    adoptAliases(object);
    watchClass(object, *prototype);
}

// ---- Registry

Registry::Registry(Opening opening) : m_opening(opening) {
    for (const HostObject& object : hostObjects()) registerObject(object.name, HostPackage, object.registration);
}

Registry::~Registry() = default;

void Registry::registerObject(const std::string& name, const std::string& package, int (*registration)()) {
    const std::scoped_lock lock(s_pending.mutex);
    if (const ObjectClass* other = find(name))
        throw badPackage(package, fmt::format("object '{}' is already registered by {}", name, other->package));
    s_pending.parameters.clear();
    s_pending.factory = nullptr;
    s_pending.unnamed = false;
    auto object = std::make_unique<ObjectClass>();
    object->name = name;
    object->package = package;
    const std::string failed = fmt::format("the registration of '{}' failed", name);
    try {
        if (registration() != 1 || !s_pending.factory) throw badPackage(package, failed);
        if (s_pending.unnamed)
            throw badPackage(package, fmt::format("a parameter of '{}' is declared without an id", name));
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

// Where the loader finds a copy of a package's file, which stays for as long as the process; the same one for the same
// content. Nothing where the system has no memory for it.
static std::string copyOf(const PackageFile& file) {
    static std::mutex mutex;
    static std::map<std::uint64_t, std::string> copies;  // by the hash of the content
    const std::scoped_lock lock(mutex);
    if (const auto known = copies.find(file.hash); known != copies.end()) return known->second;
    const int copy = memfd_create(file.path.filename().c_str(), MFD_CLOEXEC);
    if (copy < 0) return {};
    std::string path = fmt::format("/proc/self/fd/{}", copy);
    std::error_code problem;
    fs::copy_file(file.path, path, fs::copy_options::overwrite_existing, problem);
    if (problem) {
        close(copy);
        return {};
    }
    if (readPackageFile(path).hash != file.hash) {
        close(copy);
        throw badPackage(file.path.string(), "this package does not load: it changes while it is read");
    }
    return copies[file.hash] = path;
}

// Never unloaded, not even at exit: objects, documents and registered functions live in it. What lies beside the file and
// is not loaded yet a copy does not find.
static void* opened(const PackageFile& file, Registry::Opening opening) {
    void* library = nullptr;
    if (opening == Registry::Opening::Copies)
        if (const std::string copy = copyOf(file); !copy.empty()) library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) library = dlopen(file.path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) throw badPackage(file.path.string(), fmt::format("this package does not load: {}", dlerror()));
    return library;
}

void Registry::open(const PackageFile& file, const std::function<void(const std::string&)>& onObject) {
    void* library = opened(file, m_opening);
    for (const std::string& name : file.objects) {
        onObject(name);
        void* function = dlsym(library, fmt::format("Register_{}_LoadableObject", name).c_str());
        registerObject(name, file.path.string(), reinterpret_cast<int (*)()>(function));
    }
}

// What went wrong in the trial of a package; nothing where all went well.
static std::string faultOf(const TrialOutcome& outcome, const std::string& package) {
    const std::string doing =
        outcome.step.empty() ? "loading this package" : fmt::format("the registration of '{}'", outcome.step);
    const std::string own = package + ": ";
    switch (outcome.state) {
    case TrialOutcome::Hung: return doing + " does not end";
    case TrialOutcome::Crashed: return fmt::format("{} crashes ({})", doing, outcome.why);
    case TrialOutcome::Exited: return fmt::format("{} ends the process with status {}", doing, outcome.why);
    case TrialOutcome::Failed:
        if (outcome.why.starts_with(own)) return outcome.why.substr(own.size());
        return fmt::format("{} throws: {}", doing, outcome.why);
    default: return {};
    }
}

void Registry::requireNewNames(const PackageFile& file) const {
    for (const std::string& name : file.objects)
        if (const ObjectClass* other = find(name))
            throw badPackage(file.path.string(),
                             fmt::format("object '{}' is already registered by {}", name, other->package));
}

void Registry::load(const PackageFile& file) {
    static std::mutex mutex;
    static std::map<std::uint64_t, std::string> tried;  // faults, by the hash of the content
    const std::string path = file.path.string();
    if (!file.fault.empty()) throw badPackage(path, file.fault);
    requireNewNames(file);
    {
        const std::scoped_lock lock(mutex);
        const auto [known, isNew] = tried.try_emplace(file.hash);
        if (isNew) known->second = faultOf(tryOut([&](const TrialSteps& step) { open(file, step); }), path);
        if (!known->second.empty()) throw badPackage(path, known->second);
    }
    try {
        open(file, [](const std::string&) {});
    } catch (...) {
        std::erase_if(m_objects, [&](const auto& object) { return object.second->package == path; });
        throw;
    }
    if (!file.saysInterface)
        m_remarks.note({path, 0, 0}, fmt::format("does not say which version of the interface it was built for; it is "
                                                 "taken for {}",
                                                 OX_INTERFACE_VERSION));
    findInheritedPackets();
    m_packages.push_back(file.path);
}

void Registry::loadPackage(const fs::path& library) { load(readPackageFile(library)); }

void Registry::findInheritedPackets() {
    for (const auto& entry : m_objects) {
        ObjectClass& object = *entry.second;
        object.packetsInherited =
            object.packetForm && std::any_of(m_objects.begin(), m_objects.end(), [&](const auto& other) {
                return other.second->packetForm == object.packetForm && derives(*object.type, *other.second->type);
            });
    }
}

void Registry::loadPackages(const std::vector<fs::path>& folders) {
    std::map<std::string, fs::path> seen;
    for (const fs::path& folder : folders) {
        std::error_code none;
        std::set<fs::path> libraries;
        for (const auto& entry : fs::directory_iterator(folder, none)) {
            const std::string file = entry.path().filename().string();
            if (file.starts_with("lib") && file.ends_with(".so")) libraries.insert(entry.path());
        }
        for (const fs::path& library : libraries) {
            const auto [first, isNew] = seen.try_emplace(library.filename().string(), library);
            if (!isNew && !fs::equivalent(first->second, library, none))
                m_remarks.note({library.string(), 0, 0},
                               fmt::format("is skipped: of packages with the same name the first is taken, {}",
                                           first->second.string()));
            if (!isNew) continue;
            const PackageFile file = readPackageFile(library);
            try {
                load(file);
            } catch (const Error& e) {
                const std::string path = file.path.string() + ": ", message = e.what();
                m_broken.push_back({file.path, message.substr(message.starts_with(path) ? path.size() : 0),
                                    file.objects, file.namesKnown});
                m_remarks.warning({file.path.string(), 0, 0}, m_broken.back().why);
            }
        }
    }
}

const BrokenPackage* Registry::brokenFor(std::string_view name) const {
    if (find(name)) return nullptr;
    const std::string wanted(name);
    const BrokenPackage* maybe = nullptr;
    for (const BrokenPackage& package : m_broken) {
        if (package.objects.contains(wanted)) return &package;
        if (package.mayOffer(wanted)) maybe = &package;
    }
    return maybe;
}

std::string Registry::whyMissing(const std::string& name, const std::vector<ObjectKind>& kinds) const {
    const BrokenPackage* broken = brokenFor(name);
    if (broken && broken->objects.contains(name))
        return fmt::format("'{}' is an object of {}, which is broken", name, broken->path.string());
    if (broken)
        return fmt::format("no package offers an object '{}'; {}, which is broken, may", name, broken->path.string());
    std::vector<std::string> known = names(kinds);
    for (const BrokenPackage& package : m_broken)
        known.insert(known.end(), package.objects.begin(), package.objects.end());
    return fmt::format("no package offers an object '{}'{}", name, didYouMean(name, known));
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

// ---- What packages refer to

extern "C" {
const int OX_INTERFACE_SYMBOL = OX_INTERFACE_VERSION;
}

Oxvoid oxsDeclareParameter(const char* id, int, std::ptrdiff_t offset, int size) {
    if (!id || !*id) {  // no exception goes into the package
        oxbeam::s_pending.unnamed = true;
        return;
    }
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
