#include "Apps/oxbeam/MemoryLimit.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/MemoryBudget.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <string_view>

namespace oxbeam {

// "4G", "512m", "1.5T", "1000000": bytes. Nothing where it is no such size.
static std::optional<std::uint64_t> sizeOf(std::string_view text) {
    constexpr std::string_view units = "KMGT", lowerUnits = "kmgt";
    double number = 0.0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
    const std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
    if (problem != std::errc() || unit.size() > 1) return std::nullopt;
    if (!unit.empty()) {
        const std::size_t at = std::min(units.find(unit), lowerUnits.find(unit));
        if (at == std::string_view::npos) return std::nullopt;
        number = std::ldexp(number, 10 * (static_cast<int>(at) + 1));
    }
    if (!(number >= 1.0 && number < 9e18)) return std::nullopt;
    return static_cast<std::uint64_t>(number);
}

static void apply(const std::string& text) {
    if (text == "none") return setMemoryLimit(std::nullopt);
    const auto bytes = sizeOf(text);
    if (!bytes)
        throw Error(ExitStatus::Usage,
                    fmt::format("--memory-limit {}: expected a size such as 512M or 4G, or none", text));
    setMemoryLimit(bytes);
}

void addMemoryLimit(CLI::App& subcommand, std::string* given) {
    const auto take = [given](const std::string& text) {
        apply(text);
        if (given) *given = text;
    };
    subcommand
        .add_option_function<std::string>("--memory-limit", take,
                                          "Take no more memory than this, as 512M or 4G, or none for no limit; 80% of "
                                          "what there is by default")
        ->type_name("SIZE");
}

}  // namespace oxbeam
