// Going through the sections of a scene file.
#pragma once

#include "Engine/SceneFile/TableReader.h"

#include <functional>
#include <string>

namespace oxbeam {

class SectionReader {
public:
    SectionReader(std::string file, const toml::table& document, Diagnostics& diagnostics)
        : m_file(std::move(file)), m_document(document), m_diagnostics(diagnostics) {}

    // A table that need not be there.
    TableReader table(const std::string& name);
    // The tables of a section by their names, or of a list of tables by their numbers.
    void eachNamed(const std::string& section, const std::function<void(const std::string&, TableReader&)>& use);
    void eachEntry(const std::string& section, const std::function<void(TableReader&)>& use);
    void reportUnknown();

private:
    const toml::table* find(const std::string& name);
    std::string placeMeant(std::string_view unknown, const std::vector<std::string>& sections) const;
    void wrongForm(const toml::node& node, const std::string& what, const std::string& expected);

    std::string m_file;
    const toml::table& m_document;
    Diagnostics& m_diagnostics;
};

}  // namespace oxbeam
