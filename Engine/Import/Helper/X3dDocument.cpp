#include "Engine/Import/Helper/X3dDocument.h"

#include <pugixml.hpp>

#include <map>
#include <sstream>
#include <string_view>

namespace oxbeam {

// The next in the order of the document, without the node's own children where these are left out.
static pugi::xml_node after(pugi::xml_node node, bool children = true) {
    if (children && node.first_child()) return node.first_child();
    while (node && !node.next_sibling()) node = node.parent();
    return node.next_sibling();
}

static bool isWithin(pugi::xml_node node, const pugi::xml_node& ancestor) {
    while (node && node != ancestor) node = node.parent();
    return static_cast<bool>(node);
}

// Names stay with the original.
static std::size_t forgetNames(const pugi::xml_node& copy) {
    std::size_t nodes = 0;
    const pugi::xml_node end = after(copy, false);
    for (pugi::xml_node node = copy; node != end; node = after(node), ++nodes) node.remove_attribute("DEF");
    return nodes;
}

// A node is named before it is used: by the time that it is copied, all that is used in it has been put in its place.
static bool resolveUses(pugi::xml_document& document) {
    constexpr std::size_t most = 1'000'000;  // nodes; a few lines can ask for any number
    std::map<std::string, pugi::xml_node> named;
    std::size_t copied = 0;
    for (pugi::xml_node node = document.first_child(); node;) {
        if (const char* name = node.attribute("DEF").value(); *name) named[name] = node;
        const auto found = named.find(node.attribute("USE").value());
        const pugi::xml_node used = node;
        if (found == named.end()) {
            node = after(node);
        } else if (isWithin(node, found->second)) {
            node = after(node, false);  // it would have no end; the importer crashes at it
            used.parent().remove_child(used);
        } else {
            const pugi::xml_node copy = node.parent().insert_copy_after(found->second, node);
            copied += forgetNames(copy);
            node = after(copy, false);
            used.parent().remove_child(used);
        }
        if (copied > most) return false;
    }
    return true;
}

static std::size_t countShapes(const pugi::xml_document& document) {
    std::size_t shapes = 0;
    for (pugi::xml_node node = document.first_child(); node; node = after(node)) {
        if (std::string_view(node.name()) != "Shape") continue;
        bool surface = false;
        for (const pugi::xml_node& child : node.children()) {
            const std::string_view name = child.name();
            surface |= child.type() == pugi::node_element && name != "Appearance" &&
                       name.find("LineSet") == name.npos && name.find("PointSet") == name.npos &&
                       name.find("2D") == name.npos && name.find("Metadata") == name.npos;
        }
        shapes += surface;
    }
    return shapes;
}

std::optional<X3dDocument> readX3d(const std::filesystem::path& file) {
    pugi::xml_document document;
    if (!document.load_file(file.c_str(), pugi::parse_default | pugi::parse_declaration | pugi::parse_doctype))
        return std::nullopt;
    X3dDocument result;
    result.tooLarge = !resolveUses(document);
    result.shapes = countShapes(document);
    std::ostringstream text;
    document.save(text, "", pugi::format_raw);
    result.text = text.str();
    return result;
}

}  // namespace oxbeam
