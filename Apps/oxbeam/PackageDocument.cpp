#include "Apps/oxbeam/CheckPackage.h"
#include "Engine/Packages/ParameterValue.h"
#include "Oxbeam/OxLoadableObject.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>

namespace oxbeam {

namespace {

class DocumentCheck {
public:
    DocumentCheck(const ObjectClass& object, PackageFindings& findings) : m_object(object), m_findings(findings) {}

    void run() {
        if (m_object.document.empty() || m_object.document == OxLoadableObject().GetShaderInfo()) return;
        if (!m_object.info.fault.empty()) return fault("its document " + m_object.info.fault);
        checkHead();
        for (const ParameterDeclaration& p : m_object.parameters)
            if (p.info)
                checkParameter(p);
            else
                difference(fmt::format("'{}' is declared, but not documented", p.id));
        for (const ParameterInfo& info : m_object.info.parameters)
            for (const std::string& id : info.ids)
                if (!m_object.find(id)) difference(fmt::format("'{}' is documented, but not declared", id));
    }

private:
    void fault(const std::string& text) { m_findings.push_back({m_object.name, "document", text}); }
    void difference(const std::string& text) { m_findings.push_back({m_object.name, "difference", text, false}); }

    void checkHead() {
        std::string kind = kindName(m_object.kind);
        std::erase(kind, ' ');
        if (m_object.info.type != kind && m_object.kind != ObjectKind::Unknown)
            fault(fmt::format("its document says that it is '{}', it is {}", m_object.info.type, oneOf(m_object.kind)));
        if (m_object.info.id != m_object.name) difference(fmt::format("its document calls it '{}'", m_object.info.id));
    }

    // What the document says under its first name; others may be of more or fewer members, as "atten" beside "atten0".
    void checkParameter(const ParameterDeclaration& p) {
        const unsigned documented = components(*p.info);
        if (p.components() != documented) {
            const std::string text = fmt::format("'{}' is declared with {} components, and documented with {}", p.id,
                                                 p.components(), documented);
            return p.info->ids.front() == p.id ? fault(text) : difference(text);
        }
        if (p.size == 1 && p.info->type != "bool")
            return fault(fmt::format("'{}' is declared as a bool, and documented as {}", p.id, p.info->type));
        checkDefault(p);
    }

    unsigned components(const ParameterInfo& info) const {
        pugi::xml_document xml;
        xml.load_buffer(m_object.document.data(), m_object.document.size());
        const auto node = xml.find_node([&](const pugi::xml_node& n) {
            return std::strcmp(n.name(), "parameter") == 0 && info.ids.front() == n.child("id").text().get();
        });
        return std::max(1u, node.child("size").text().as_uint(1));
    }

    void checkDefault(const ParameterDeclaration& p) {
        if (p.info->defaultText.empty()) return;
        const std::string held = describeValue(p, p.defaultBytes.data());
        if (!alike(p.info->defaultText, held))
            difference(
                fmt::format("the document's default of '{}' is {}, that in force {}", p.id, p.info->defaultText, held));
    }

    // Both as numbers, however they are written.
    static bool alike(const std::string& one, const std::string& other) {
        std::istringstream a(one), b(other);
        std::string x, y;
        while (a >> x) {
            if (!(b >> y)) return false;
            const auto value = [](const std::string& word) {
                return word == "true" ? 1.0f : word == "false" ? 0.0f : std::strtof(word.c_str(), nullptr);
            };
            if (std::fabs(value(x) - value(y)) > 1e-6f * std::fabs(value(x))) return false;
        }
        return !(b >> y);
    }

    const ObjectClass& m_object;
    PackageFindings& m_findings;
};

}  // namespace

void checkDocument(const ObjectClass& object, PackageFindings& findings) { DocumentCheck(object, findings).run(); }

}  // namespace oxbeam
