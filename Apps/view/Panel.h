// The panel of all objects and their parameters, made from what they say of themselves alone.
#pragma once

#include "Apps/view/Document.h"

#include <imgui.h>

#include <functional>
#include <map>
#include <string>

namespace oxbeam {

class Panel {
public:
    // What goes wrong with a change is handed to `say`.
    Panel(Document& document, std::function<void(const std::string&)> say)
        : m_document(document), m_say(std::move(say)) {}

    // A file is to be chosen for a texture parameter.
    std::function<void(const std::string& path)> chooseTexture;

    // Draws it as a window at a place. A drag of a value ends when the pointer lets go.
    void draw(const SceneInfo& scene, const ImVec2& at, const ImVec2& size);
    // The object's section is opened and scrolled to.
    void show(const std::string& place) { m_wanted = place; }
    void search(const std::string& text);

    // Where a parameter's field was drawn last, from its left top to its right bottom; null where it was not.
    const ImVec4* fieldOf(const std::string& path) const;
    // Some value is being dragged.
    bool isActive() const { return m_active; }

private:
    void drawLights(const SceneInfo& scene);
    void drawObject(const ObjectInfo& object, const SceneInfo& scene);
    void drawClass(const ObjectInfo& object, const SceneInfo& scene);
    void drawParameter(const ObjectInfo& object, const ParameterDeclaration& p);
    bool matches(const ObjectInfo& object, const ParameterDeclaration& p) const;
    void attempt();

    Document& m_document;
    std::function<void(const std::string&)> m_say;
    std::string m_wanted;
    std::function<void()> m_change;  // what somebody wants of it
    char m_search[128] = "";
    std::map<std::string, ImVec4> m_fields;
    bool m_active = false;
};

}  // namespace oxbeam
