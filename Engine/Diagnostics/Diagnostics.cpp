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

// Length of the UTF-8 sequence that a text begins with, or 0 where it begins with none (RFC 3629; overlong forms, which
// some terminals take for what they spell, aside).
static std::size_t sequenceLength(std::string_view text) {
    const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
    const unsigned first = byte(0);
    const std::size_t length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 0 || first > 0xF4 || length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0u) != 0x80u) return 0;
    const bool overlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
    return overlong ? 0 : length;
}

// C0, DEL and C1, which in UTF-8 takes two bytes.
static bool isControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return (first < 32 && first != '\n') || first == 127;
    return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = sequenceLength(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
        if (length == 0)
            result += '?';
        else if (isControl(character))
            result += ' ';
        else
            result += character;
        text.remove_prefix(character.size());
    }
    return result;
}

std::string oneLine(std::string text) {
    constexpr std::size_t most = 1000;
    if (text.size() > most) {
        std::size_t end = most;
        while (end > most - 3 && (static_cast<unsigned char>(text[end]) & 0xC0u) == 0x80u) --end;
        text = text.substr(0, end) + "...";
    }
    text = printable(text);
    std::replace(text.begin(), text.end(), '\n', ' ');
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
