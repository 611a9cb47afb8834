#include "Engine/World/Places.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <set>

namespace oxbeam {

// ---- Names

const std::vector<ObjectKind>& kindsAt(std::string_view place) {
    using enum ObjectKind;
    static const std::map<std::string, std::vector<ObjectKind>, std::less<>> kinds = {
        {"shader", {Surface, Shader}},
        {"render", {RenderingObject}},
        {"camera", {Camera}},
        {"environment", {Environment, Shader}},
        {"light", {Light}}};
    static const std::vector<ObjectKind> none;
    const auto model = place.starts_with("model.") ? place.find('.', std::string_view("model.").size()) : place.npos;
    const std::string_view own = model == place.npos ? place : place.substr(model + 1);
    const auto found = kinds.find(own.substr(0, own.find('.')));
    return found == kinds.end() ? none : found->second;
}

// Entries of lists have numbers, all others names.
static std::string entryOf(std::string_view section, std::string_view entry) {
    const bool list = section == "light" || section == "mesh" || section == "model" || section == "animation";
    return list ? fmt::format("{} {}", section, entry) : fmt::format("{} '{}'", section, entry);
}

std::string labelOf(std::string_view place) {
    const auto dot = place.find('.');
    if (dot == std::string_view::npos) return std::string(place);
    const std::string_view section = place.substr(0, dot), rest = place.substr(dot + 1);
    const auto inner = rest.find('.');
    if (section != "model" || inner == std::string_view::npos) return entryOf(section, rest);
    return fmt::format("model {}, {}", rest.substr(0, inner), labelOf(rest.substr(inner + 1)));
}

// "model.0" of "model.0.shader.Material", where names of the model's own are looked up first.
static std::string scopeOf(std::string_view place) {
    if (!place.starts_with("model.")) return {};
    return std::string(place.substr(0, place.find('.', std::string_view("model.").size())));
}

static std::pair<std::string_view, std::string_view> split(std::string_view path) {
    const auto dot = path.rfind('.');
    if (dot == std::string_view::npos) return {{}, path};
    return {path.substr(0, dot), path.substr(dot + 1)};
}

std::string placeMeant(std::string_view wanted, const std::vector<std::string>& places) {
    const auto ownName = [](const std::string& place) { return place.substr(place.rfind('.') + 1); };
    const auto meant = [](const std::string& place) { return fmt::format("; did you mean '{}'?", place); };
    for (const std::string& place : places)
        if (ownName(place) == wanted) return meant(place);
    if (std::string nearest = didYouMean(wanted, places); !nearest.empty()) return nearest;
    for (const std::string& place : places)
        if (!didYouMean(wanted, {ownName(place)}).empty()) return meant(place);
    return {};
}

const ParameterDeclaration* parameterAt(const std::vector<Place>& places, std::string_view path) {
    const auto [place, parameter] = split(path);
    const auto matches = [&, wanted = place](const std::string& known) {
        if (!wanted.ends_with(".*")) return known == wanted;
        const std::string section(wanted.substr(0, wanted.size() - 1));
        return known.starts_with(section) || (known.starts_with("model.") && known.find('.' + section) != known.npos);
    };
    for (const Place& candidate : places) {
        const bool here = candidate.object && matches(candidate.path);
        if (const ParameterDeclaration* found = here ? candidate.object->find(parameter) : nullptr) return found;
    }
    return nullptr;
}

std::vector<std::string> parameterPaths(const std::vector<Place>& places) {
    std::vector<std::string> paths;
    for (const Place& place : places)
        for (const std::string& name : place.object ? place.object->parameterNames() : std::vector<std::string>())
            paths.push_back(fmt::format("{}.{}", place.path, name));
    return paths;
}

// ---- Objects

std::vector<std::byte> Places::Object::values() const {
    std::vector<std::byte> all;
    std::size_t bytes = 0;
    for (const ParameterDeclaration& p : place.object->parameters) bytes += static_cast<std::size_t>(p.size);
    all.reserve(bytes);
    for (const ParameterDeclaration& p : place.object->parameters)
        all.insert(all.end(), memberOf(*made, p), memberOf(*made, p) + p.size);
    return all;
}

// What a frame made of a value that nobody has touched since is no setting.
std::vector<std::byte> Places::Object::valuesSet() const {
    std::vector<std::byte> now = values();
    if (!framed) return now;
    auto at = now.begin();
    std::size_t offset = 0;
    for (const ParameterDeclaration& p : place.object->parameters) {
        const auto before = left.begin() + static_cast<std::ptrdiff_t>(offset);
        if (std::equal(at, at + p.size, before))
            std::copy_n(set.begin() + static_cast<std::ptrdiff_t>(offset), p.size, at);
        at += p.size;
        offset += static_cast<std::size_t>(p.size);
    }
    return now;
}

std::vector<std::byte> Places::Object::valueSet(const ParameterDeclaration& wanted) const {
    const std::vector<std::byte> all = valuesSet();
    auto at = all.begin();
    for (const ParameterDeclaration& p : place.object->parameters) {
        if (&p == &wanted) return {at, at + p.size};
        at += p.size;
    }
    return {};
}

std::vector<std::string> Places::Object::otherNamesOf(const ParameterDeclaration& p) const {
    std::vector<std::string> others;
    for (const ParameterDeclaration& other : place.object->parameters)
        if (&other != &p && other.offset == p.offset && other.size == p.size) others.push_back(other.id);
    return others;
}

// What somebody has written to the object itself since a frame left it, be it the default, is set.
void Places::Object::noteWritten() {
    if (!framed) return;
    const std::byte* before = left.data();
    for (const ParameterDeclaration& p : place.object->parameters) {
        if (!std::equal(before, before + p.size, memberOf(*made, p))) given[p.id].clear();
        before += p.size;
    }
}

void Places::Object::giveBack(const std::vector<std::byte>& values) {
    const std::byte* at = values.data();
    for (const ParameterDeclaration& p : place.object->parameters) {
        std::memcpy(memberOf(*made, p), at, static_cast<std::size_t>(p.size));
        at += p.size;
    }
}

Places::Object* Places::find(std::string_view place) const {
    const auto found = m_byPath.find(place);
    return found == m_byPath.end() ? nullptr : found->second;
}

Places::Object& Places::at(std::string_view place) const {
    if (Object* found = find(place)) return *found;
    std::vector<std::string> known;
    for (const auto& object : m_objects) known.push_back(object->place.path);
    throw NoSuchName(fmt::format("the scene has no '{}'{}", place, placeMeant(place, known)));
}

std::pair<Places::Object*, const ParameterDeclaration*> Places::parameter(std::string_view path) const {
    const auto [place, name] = split(path);
    Object& object = at(place);
    if (const ParameterDeclaration* p = object.place.object->find(name)) return {&object, p};
    throw NoSuchName(fmt::format("{} ({}) has no parameter '{}'{}", labelOf(place), object.place.object->name, name,
                                 didYouMean(name, object.place.object->parameterNames())));
}

std::vector<Place> Places::all() const {
    std::vector<Place> places;
    for (const auto& object : m_objects) places.push_back(object->place);
    return places;
}

const ObjectClass& Places::classAt(std::string_view place) const { return *at(place).place.object; }

OxLoadableObject& Places::objectAt(std::string_view place) const { return *at(place).made; }

const ParameterDeclaration& Places::declaration(std::string_view path) const { return *parameter(path).second; }

// While a scene is read, who is asked for has just come.
std::string Places::placeOf(const OxLoadableObject* object) const {
    const auto found =
        std::find_if(m_objects.rbegin(), m_objects.rend(), [&](const auto& o) { return o->made.get() == object; });
    return found == m_objects.rend() ? std::string() : (*found)->place.path;
}

OxLoadableObject& Places::add(std::string place, const ObjectClass& object) {
    if (find(place)) remove(place);
    auto added = std::make_unique<Object>();
    added->place = {std::move(place), &object};
    added->made = object.make();
    m_byPath[added->place.path] = added.get();
    m_objects.push_back(std::move(added));
    return *m_objects.back()->made;
}

// Others of its class must not know that it was there.
void Places::remove(std::string_view place) {
    const Object* gone = &at(place);
    const ObjectClass* object = gone->place.object;
    m_byPath.erase(gone->place.path);
    std::erase_if(m_objects, [&](const auto& o) { return o.get() == gone; });
    for (const auto& other : m_objects) other->changed = other->changed || other->place.object == object;
}

void Places::rename(std::string_view place, std::string to) {
    Object& object = at(place);
    m_byPath.erase(object.place.path);
    object.place.path = std::move(to);
    m_byPath[object.place.path] = &object;
}

// ---- Values

ParameterValue Places::get(std::string_view path) const {
    const auto [object, p] = parameter(path);
    ParameterValue value = valueOf(*p, object->valueSet(*p).data());
    const auto given = object->given.find(p->id);
    if (given != object->given.end() && !given->second.empty()) value.data = given->second;
    return value;
}

bool Places::isSet(std::string_view path) const {
    const auto [object, p] = parameter(path);
    object->noteWritten();
    return object->given.contains(p->id) || object->valueSet(*p) != p->defaultBytes;
}

bool Places::write(Object& object, const std::string& name, const SourceLocation& nameAt, const ParameterValue& value,
                   Diagnostics& diagnostics, const std::vector<std::string>& otherNames) {
    const ObjectClass& kind = *object.place.object;
    const std::string scope = scopeOf(object.place.path);
    const auto textures = [&](const std::string& texture) { return m_textures.idFor(scope, texture, kind.name); };
    const auto* text = std::get_if<std::string>(&value.data);
    const bool named = text && textures(*text);
    ParameterWriter writer(kind, labelOf(object.place.path), diagnostics, textures,
                           text && !named ? m_textures.names(scope) : std::vector<std::string>(), otherNames);
    object.noteWritten();
    if (object.framed) object.giveBack(object.set = object.valuesSet());
    const ParameterDeclaration* p = writer.write(*object.made, name, nameAt, value);
    if (object.framed) object.set = object.left = object.values();
    if (!p) return false;
    const bool texture = named && (!p->info || isTexture(*p));  // else an item of an enumeration
    object.given[p->id] = texture ? *text : std::string();
    for (const std::string& other : object.otherNamesOf(*p)) {
        if (texture)
            object.given[other] = *text;
        else if (object.given.contains(other))
            object.given[other].clear();
    }
    object.changed = true;
    return true;
}

void Places::write(std::string_view place, const std::string& name, const SourceLocation& nameAt,
                   const ParameterValue& value, Diagnostics& diagnostics, const std::vector<std::string>& otherNames) {
    write(at(place), name, nameAt, value, diagnostics, otherNames);
}

std::vector<std::string> Places::set(std::string_view path, const ParameterValue& value) {
    const auto [object, p] = parameter(path);
    Diagnostics said;
    const bool good = write(*object, p->id, {}, value, said, {});
    std::vector<std::string> warnings;
    for (const Diagnostic& diagnostic : said.sorted()) {
        if (!good && diagnostic.severity == Severity::Error) throw BadValue(diagnostic.message);
        if (diagnostic.severity == Severity::Warning) warnings.push_back(diagnostic.message);
    }
    return warnings;
}

void Places::check(std::string_view path, const ParameterValue& value, Diagnostics& diagnostics) {
    const auto [object, p] = parameter(path);
    Object scratch;
    scratch.place = object->place;
    scratch.made = object->place.object->make();
    write(scratch, p->id, value.where, value, diagnostics, {});
}

void Places::reset(std::string_view path) {
    const auto [object, p] = parameter(path);
    Diagnostics unsaid;
    write(*object, p->id, {}, valueOf(*p, p->defaultBytes.data()), unsaid, {});
    object->given.erase(p->id);
    for (const std::string& other : object->otherNamesOf(*p)) object->given.erase(other);
}

// Only what somebody set goes along: defaults are each class's own.
std::unique_ptr<OxLoadableObject> Places::setClass(std::string_view place, const ObjectClass& kind) {
    Object& object = at(place);
    const ObjectClass& before = *object.place.object;
    if (const auto& kinds = kindsAt(place); !kinds.empty() && !std::count(kinds.begin(), kinds.end(), kind.kind))
        throw BadValue(fmt::format("{}: '{}' is {}; expected {}", labelOf(place), kind.name, oneOf(kind.kind),
                                   oneOf(kinds.front())));
    std::vector<std::pair<std::string, ParameterValue>> kept;
    for (const ParameterDeclaration& p : before.parameters)
        if (const std::string path = fmt::format("{}.{}", place, p.id); isSet(path) && kind.find(p.id))
            kept.emplace_back(p.id, get(path));
    for (const auto& other : m_objects) other->changed = other->changed || other->place.object == &before;
    const std::string path = object.place.path;
    std::unique_ptr<OxLoadableObject> gone = kind.make();
    std::swap(object.made, gone);
    object.place = {path, &kind};
    object.given.clear();
    object.framed = false;
    Diagnostics unsaid;  // what means something else there
    for (const auto& [name, value] : kept) write(object, name, {}, value, unsaid, {});
    for (const auto& other : m_objects) other->changed = other->changed || other->place.object == &kind;
    return gone;
}

void Places::textureChanged(const std::string& scope, const std::string& name) {
    for (const auto& object : m_objects) {
        const std::string own = scopeOf(object->place.path);
        if (own != scope && !(scope.empty() && !m_textures.find(own, name))) continue;
        Diagnostics unsaid;
        for (const auto& [parameter, texture] : std::map(object->given))
            if (texture == name) write(*object, parameter, {}, {name, {}}, unsaid, {});
    }
}

// ---- Frames

void Places::beginFrame(const Replaced& replaced) {
    std::set<const ObjectClass*> changed;
    for (const auto& object : m_objects)
        if (object->changed) changed.insert(object->place.object);
    for (const auto& object : m_objects) {
        object->noteWritten();
        object->set = object->valuesSet();
        if (object->framed && changed.contains(object->place.object)) {
            std::unique_ptr<OxLoadableObject> before = object->place.object->make();
            std::swap(object->made, before);
            replaced(before.get(), object->made.get(), *object->place.object);
        }
        object->giveBack(object->set);
        object->left = object->set;
        object->changed = false;
    }
}

void Places::frameBegun() {
    for (const auto& object : m_objects) {
        object->left = object->values();
        object->framed = true;
    }
}

}  // namespace oxbeam
