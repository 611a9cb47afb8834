#include "Engine/Diagnostics/Diagnostics.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <ostream>
#include <tuple>

namespace oxbeam {

std::string Diagnostic::text() const {
    static constexpr const char* words[] = {"error", "warning", "note"};
    const std::string place = where.line ? fmt::format("{}:{}:{}", where.file, where.line, where.column) : where.file;
    return oneLine(
        fmt::format("{}{}{}: {}", place, place.empty() ? "" : ": ", words[static_cast<int>(severity)], message));
}

std::string oneLine(std::string text) {
    constexpr std::size_t most = 1000;
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 32 || c == 127; }, ' ');
    if (text.size() > most) text = text.substr(0, most) + "...";
    return text;
}

void Diagnostics::error(const SourceLocation& where, std::string message) {
    m_all.push_back({where, Severity::Error, std::move(message)});
    ++m_errors;
}

void Diagnostics::warning(const SourceLocation& where, std::string message) {
    m_all.push_back({where, Severity::Warning, std::move(message)});
}

void Diagnostics::note(const SourceLocation& where, std::string message) {
    m_all.push_back({where, Severity::Note, std::move(message)});
}

std::vector<Diagnostic> Diagnostics::sorted() const {
    std::vector<Diagnostic> all = m_all;
    std::stable_sort(all.begin(), all.end(), [](const Diagnostic& a, const Diagnostic& b) {
        return std::tie(a.where.file, a.where.line, a.where.column) <
               std::tie(b.where.file, b.where.line, b.where.column);
    });
    return all;
}

void Diagnostics::print(std::ostream& out) const {
    for (const Diagnostic& diagnostic : sorted()) out << diagnostic.text() << '\n';
}

// Edits (insertion, deletion, exchange, swap of neighbours) that turn a into b, letter case aside.
// F. Damerau, "A technique for computer detection and correction of spelling errors" (1964).
static std::size_t editDistance(std::string_view a, std::string_view b) {
    const auto same = [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    };
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i)
        for (std::size_t j = 1; j <= b.size(); ++j) {
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + !same(a[i - 1], b[j - 1])});
            if (i > 1 && j > 1 && same(a[i - 1], b[j - 2]) && same(a[i - 2], b[j - 1]))
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d[a.size()][b.size()];
}

std::string didYouMean(std::string_view unknown, const std::vector<std::string>& known) {
    if (unknown.size() > 100) return {};  // no slip of the pen
    const std::string* nearest = nullptr;
    std::size_t least = std::max<std::size_t>(2, unknown.size() / 3) + 1;
    for (const std::string& name : known) {
        const std::size_t distance = editDistance(unknown, name);
        if (distance < least && distance < name.size()) {
            least = distance;
            nearest = &name;
        }
    }
    return nearest ? fmt::format("; did you mean '{}'?", *nearest) : std::string();
}

}  // namespace oxbeam
