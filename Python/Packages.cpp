#include "Python/Packages.h"

#include "Engine/System/System.h"
#include "Engine/World/Places.h"
#include "Python/Aside.h"
#include "Python/Errors.h"
#include "Python/Values.h"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <sstream>

namespace oxbeam::python {

namespace fs = std::filesystem;

// As installed, and in the build tree. What stands beside the program is Python's.
static std::vector<fs::path> packageFolders() {
    const fs::path library = engineLibrary().parent_path();
    return {library / "oxbeam" / "packages", library.parent_path() / "bin" / "packages"};
}

// Lives as long as the process, as packages do. Nothing else of Python's runs before it is there.
Registry& registry() {
    static Registry* known = nullptr;
    if (known) return *known;
    auto made = std::make_unique<Registry>();
    made->loadPackages(packageFolders());
    known = made.release();
    warn(known->remarks());
    return *known;
}

const ObjectClass& objectClass(const std::string& name) {
    if (const ObjectClass* object = registry().find(name)) return *object;
    throw NoSuchName(registry().whyMissing(name));
}

static std::vector<std::string> objects(const std::string& kind) {
    std::vector<std::string> names, kinds;
    for (const ObjectClass* object : registry().all()) {
        kinds.emplace_back(kindName(object->kind));
        if (kind.empty() || kind == kinds.back()) names.push_back(object->name);
    }
    if (names.empty() && !kind.empty())
        throw NoSuchName("no package offers objects of the kind '" + kind + "'" + didYouMean(kind, kinds));
    return names;
}

// "0", or "0 0 1" with one for each component.
static py::object boundFrom(const std::string& text) {
    std::istringstream stream(text);
    py::list numbers;
    for (double number; stream >> number;) numbers.append(number);
    if (numbers.empty()) return py::none();
    return numbers.size() == 1 ? py::object(numbers[0]) : py::tuple(numbers);
}

static py::dict describe(const ParameterDeclaration& p) {
    static const ParameterInfo nothing;
    const ParameterInfo& info = p.info ? *p.info : nothing;
    const auto text = [](const std::string& s) { return py::str(printable(s)); };
    py::dict items;
    for (const auto& [value, name] : info.items) items[py::int_(value)] = text(name);
    py::object standard = py::none(), follows = py::none();
    if (p.followed)
        follows = py::str(p.followed);
    else
        standard = toPython(p, valueOf(p, p.defaultBytes.data()));
    using namespace py::literals;
    return py::dict("name"_a = text(p.id), "aliases"_a = p.aliases, "type"_a = describeType(p), "default"_a = standard,
                    "follows"_a = follows, "lower"_a = boundFrom(info.lowerbound),
                    "upper"_a = boundFrom(info.upperbound), "items"_a = items, "group"_a = text(info.group),
                    "longname"_a = text(info.longname), "help"_a = text(info.help));
}

static py::dict describe(const std::string& name) {
    const ObjectClass& object = objectClass(name);
    py::list parameters;
    for (const ParameterDeclaration& p : object.parameters) parameters.append(describe(p));
    using namespace py::literals;
    return py::dict("name"_a = object.name, "kind"_a = kindName(object.kind),
                    "longname"_a = printable(object.info.longname), "package"_a = printable(object.package),
                    "parameters"_a = parameters);
}

static void loadPackages(const fs::path& folder) {
    if (!fs::is_directory(folder)) {
        PyErr_SetObject(PyExc_NotADirectoryError,
                        py::make_tuple(ENOTDIR, "not a folder with packages", folder.string()).ptr());
        throw py::error_already_set();
    }
    const Turn turn;
    Registry& known = registry();
    const std::size_t broken = known.broken().size();
    known.loadPackages({folder});
    for (std::size_t i = broken; i < known.broken().size(); ++i)
        warn(known.broken()[i].path.string() + ": warning: " + known.broken()[i].why);
}

void bindPackages(py::module_& module) {
    module.def("objects", &objects);
    module.def("describe", py::overload_cast<const std::string&>(&describe));
    module.def("load_packages", &loadPackages);
    module.def("did_you_mean", [](const std::string& wanted, const std::vector<std::string>& known) {
        return didYouMean(wanted, known);
    });
}

}  // namespace oxbeam::python
