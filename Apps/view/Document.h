// What has been changed of a scene, so that it can be undone and written into its file.
#pragma once

#include "Apps/view/Navigation.h"
#include "Apps/view/RenderThread.h"

#include <optional>
#include <variant>

namespace oxbeam {

// Of one parameter; nothing stands for the default that nobody has set.
struct ValueEdit {
    std::string path;
    ParameterState before, after;
};
// Another object at a place, with what was set there.
struct ClassEdit {
    ObjectInfo before, after;
};
// All lights, where one has come or gone.
struct LightsEdit {
    std::vector<ObjectInfo> before, after;
};
struct ToneEdit {
    Tone before, after;
};

class Document {
public:
    explicit Document(RenderThread& thread) : m_thread(thread) {}

    // A scene as it was loaded.
    void open(const SceneInfo& scene);

    const std::vector<ObjectInfo>& objects() const { return m_objects; }
    const ObjectInfo* object(const std::string& place) const;
    const ParameterState* state(const std::string& path) const;
    const Tone& tone() const { return m_tone; }
    const Eye& eye() const { return m_eye; }

    // ---- Changes, which the rendering thread hears of at once. Those to one parameter in a row are one step to undo
    // until `settle`. Throw BadValue or NoSuchName and change nothing where the parameter is none or takes no such value.

    void set(const std::string& path, const ParameterValue& value);
    void reset(const std::string& path);
    void setClass(const std::string& place, const ObjectClass& object);
    void addLight(const ObjectClass& object, const std::map<std::string, ParameterValue>& values);
    void removeLight(const std::string& place);
    void setTone(const Tone& tone);
    void settle() { m_merging = false; }
    // No step to undo.
    void setEye(const Eye& eye);

    bool canUndo() const { return m_done > 0; }
    bool canRedo() const { return m_done < m_edits.size(); }
    void undo();
    void redo();

    // ---- Saving

    // Something but the view has been changed since the file was read or written.
    bool isDirty() const { return m_done != m_saved; }
    bool isMoved() const { return m_moved; }
    void saved();
    // Lights are others in number or kind than those of the file.
    bool lightsDiffer() const;
    const std::vector<ObjectInfo>& objectsSaved() const { return m_savedObjects; }
    const Tone& toneSaved() const { return m_savedTone; }

private:
    using Edit = std::variant<ValueEdit, ClassEdit, LightsEdit, ToneEdit>;

    ParameterState& at(const std::string& path);
    void check(const std::string& path, const ParameterValue& value) const;
    void perform(Edit edit);
    void apply(const Edit& edit, bool forwards);
    void applyValue(const std::string& path, const ParameterState& state);
    void applyObject(const ObjectInfo& object);
    void applyLights(const std::vector<ObjectInfo>& lights);

    RenderThread& m_thread;
    std::vector<ObjectInfo> m_objects, m_savedObjects;
    std::vector<std::string> m_textures;
    Tone m_tone, m_savedTone;
    Eye m_eye;
    std::vector<Edit> m_edits;
    std::size_t m_done = 0;
    std::optional<std::size_t> m_saved = 0;  // edits that were done then
    bool m_merging = false, m_moved = false;
};

std::vector<ObjectInfo> lightsAmong(const std::vector<ObjectInfo>& objects);
// "shader.table" and "shininess".
std::pair<std::string, std::string> splitPath(const std::string& path);

}  // namespace oxbeam
