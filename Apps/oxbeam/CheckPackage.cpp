#include "Apps/oxbeam/CheckPackage.h"

#include "Apps/oxbeam/RenderSteps.h"
#include "Engine/Diagnostics/Diagnostics.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>

namespace oxbeam {

namespace fs = std::filesystem;

void addCheckPackage(CLI::App& app, CheckPackageCommand& command) {
    CLI::App* c = app.add_subcommand("check-package", "Find what is wrong with a package, without harm to anything");
    c->add_option("PACKAGE", command.file, "Package file (lib*.so)")->required()->type_name("FILE");
    c->add_flag("--json", command.json, "Print the findings for programs");
    c->add_flag("--strict", command.strict, "Differences between documents and objects are faults, too");
    c->add_option("--seed", command.seed, "Of the random values that parameters are driven to")->type_name("N");
    c->add_option("--pictures", command.pictures, "With such values that each object is rendered in, instead of 16")
        ->type_name("N")
        ->check(CLI::Range(0, 10000));
}

// The objects of the package, in the registry; none where it is broken as a whole.
static std::vector<const ObjectClass*> loadChecked(const fs::path& file, const std::vector<fs::path>& folders,
                                                   Registry& registry, PackageFindings& findings) {
    std::vector<const ObjectClass*> objects;
    try {
        registry.loadPackage(file);
    } catch (const Error& e) {
        const std::string own = registry.packages().empty() ? fs::absolute(file).string() + ": " : "";
        const std::string message = e.what();
        findings.push_back({"", "registration", message.substr(message.starts_with(own) ? own.size() : 0)});
        return objects;
    }
    for (const ObjectClass* object : registry.all())
        if (object->package == registry.packages().front()) objects.push_back(object);
    registry.loadPackages(folders);  // of which the names that are taken now are no concern here
    return objects;
}

static void print(const fs::path& file, std::size_t objects, const PackageFindings& findings) {
    Diagnostics said;
    for (const PackageFinding& finding : findings) {
        const std::string about = finding.object.empty() ? "" : fmt::format("'{}': ", finding.object);
        const std::string text = fmt::format("{}{} [{}]", about, finding.text, finding.kind);
        finding.fault ? said.error({file.string(), 0, 0}, text) : said.note({file.string(), 0, 0}, text);
    }
    said.print(std::cout);
    std::cout << fmt::format("{}: {} objects, {} faults\n", file.string(), objects, said.errors());
}

static void printJson(const fs::path& file, std::size_t objects, const PackageFindings& findings) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const PackageFinding& finding : findings)
        list.push_back(
            {{"object", finding.object}, {"kind", finding.kind}, {"fault", finding.fault}, {"text", finding.text}});
    const nlohmann::ordered_json json = {{"package", file.string()}, {"objects", objects}, {"findings", list}};
    std::cout << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

ExitStatus runCheckPackage(const CheckPackageCommand& command, const std::vector<fs::path>& folders) {
    Registry registry;
    PackageFindings findings;
    const std::vector<const ObjectClass*> objects = loadChecked(command.file, folders, registry, findings);
    for (const ObjectClass* object : objects) {
        checkDocument(*object, findings);
        checkConduct(*object, registry, command, findings);
    }
    for (PackageFinding& finding : findings)
        finding.fault = finding.fault || (command.strict && finding.kind == "difference");
    command.json ? printJson(command.file, objects.size(), findings) : print(command.file, objects.size(), findings);
    const bool good = std::none_of(findings.begin(), findings.end(), [](const auto& f) { return f.fault; });
    return good ? ExitStatus::Done : ExitStatus::BadPackage;
}

}  // namespace oxbeam
