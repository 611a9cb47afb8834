#include "Engine/Packages/PackageFile.h"

#include "Engine/System/Hash.h"
#include "Engine/System/LibraryFile.h"
#include "Oxbeam/OxInterface.h"

#include <fmt/format.h>

#include <map>
#include <optional>
#include <string_view>
#include <vector>

namespace oxbeam {

namespace fs = std::filesystem;

namespace {

// What stands between two parts of a name.
std::optional<std::string> between(std::string_view name, std::string_view prefix, std::string_view suffix) {
    if (name.size() <= prefix.size() + suffix.size() || !name.starts_with(prefix) || !name.ends_with(suffix))
        return std::nullopt;
    return std::string(name.substr(prefix.size(), name.size() - prefix.size() - suffix.size()));
}

// Other versions of the interface than this host's that the package asks for.
void readInterface(const std::vector<LibrarySymbol>& symbols, PackageFile& file) {
    for (const LibrarySymbol& symbol : symbols) {
        const auto version = between(symbol.name, "oxInterface_", "");
        if (!version || symbol.defined) continue;
        if (*version != std::to_string(OX_INTERFACE_VERSION))
            throw LibraryFault{fmt::format("it was built for version {} of the interface, this host has version {}",
                                           *version, OX_INTERFACE_VERSION)};
        file.saysInterface = true;
    }
}

// Empty where the objects are exported as they have to be.
std::string faultOfExports(const std::map<std::string, const LibrarySymbol*>& exported,
                           const std::set<std::string>& objects) {
    if (objects.empty()) return "this library exports no Register_<Name>_LoadableObject; it is no package";
    for (const std::string& name : objects) {
        const std::string registration = fmt::format("Register_{}_LoadableObject", name);
        const std::string factory = fmt::format("New{}LoadableObject", name);
        if (!exported.contains(factory))
            return fmt::format("object '{}' has no factory: {} is exported, {} is not", name, registration, factory);
        for (const std::string& function : {registration, factory})
            if (exported.at(function)->data) return fmt::format("{} is data; expected a function", function);
    }
    return {};
}

void read(PackageFile& file) {
    const LibraryFile library(file.path);
    const std::vector<LibrarySymbol> symbols = library.symbols();
    std::map<std::string, const LibrarySymbol*> exported;
    for (const LibrarySymbol& symbol : symbols)
        if (symbol.defined) exported[symbol.name] = &symbol;
    for (const auto& [name, symbol] : exported)
        if (auto object = between(name, "Register_", "_LoadableObject")) file.objects.insert(std::move(*object));
    file.namesKnown = true;
    library.checkComplete();
    readInterface(symbols, file);
    file.fault = faultOfExports(exported, file.objects);
    file.hash = hashOf(library.bytes());
}

}  // namespace

PackageFile readPackageFile(const fs::path& path) {
    PackageFile file;
    std::error_code none;
    file.path = fs::absolute(path, none);
    try {
        read(file);
    } catch (const LibraryFault& fault) {
        file.fault = "this package does not load: " + fault.why;
    }
    return file;
}

}  // namespace oxbeam
