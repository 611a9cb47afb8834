// What is said about files: errors, warnings and notes with the place they are about.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace oxbeam {

struct SourceLocation {
    std::string file;
    unsigned line = 0;  // 0: the file as a whole
    unsigned column = 0;
};

enum class Severity { Error, Warning, Note };

struct Diagnostic {
    SourceLocation where;
    Severity severity;
    std::string message;

    // "file:line:column: error: message"
    OXBEAM_API std::string text() const;
};

// Without what a terminal would obey, whatever a file or a library put into it: control characters but the end of a line
// become blanks, and bytes that are no UTF-8 question marks.
OXBEAM_API std::string printable(std::string_view text);
// The same on one line, and not longer than anyone reads.
OXBEAM_API std::string oneLine(std::string text);

// Collects everything that is wrong, so that all of it can be reported in one go.
class OXBEAM_API Diagnostics {
public:
    void error(const SourceLocation& where, std::string message);
    void warning(const SourceLocation& where, std::string message);
    void note(const SourceLocation& where, std::string message);
    // One of the errors is not the file's: it needs a package that is broken.
    void blamePackage() { m_packageToBlame = true; }

    bool hasErrors() const { return m_errors > 0; }
    bool packageToBlame() const { return m_packageToBlame; }
    std::size_t errors() const { return m_errors; }
    // In the order of the places they are about, file by file.
    std::vector<Diagnostic> sorted() const;
    void print(std::ostream& out) const;

private:
    std::vector<Diagnostic> m_all;
    std::size_t m_errors = 0;
    bool m_packageToBlame = false;
};

// "; did you mean 'known'?" with the name nearest to `unknown`, or nothing where none is near.
OXBEAM_API std::string didYouMean(std::string_view unknown, const std::vector<std::string>& known);

}  // namespace oxbeam
