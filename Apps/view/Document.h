// What has been changed of a scene, so that it can be undone and written into its file.
#pragma once

#include "Apps/view/Navigation.h"
#include "Apps/view/State.h"

#include <optional>
#include <variant>

namespace oxbeam {

// Of one parameter; nothing stands for the default that nobody has set.
struct ValueEdit {
    std::string path;
    ParameterState before, after;
};
struct PlacementEdit {
    std::string place;
    Matrix before, after;
};
struct ToneEdit {
    Tone before, after;
};
// Of anything else, by what it changes.
struct StateEdit {
    std::shared_ptr<const State> before, after;
};

// A picture that was chosen in the window, as the texture it is to be in the scene.
struct AddedTexture {
    std::string name;
    std::filesystem::path file;
    bool surroundings = false;  // of all directions
    std::shared_ptr<const Texture> picture;
    bool inFile = false;  // the scene's file has it

    RenderThread::Posted change() const;
};

class Document {
public:
    explicit Document(RenderThread& thread) : m_thread(thread) {}

    // A scene as it was loaded.
    void open(const SceneInfo& scene);
    // The same scene as it was loaded anew, since its files have changed: what was changed here stays so, and can be
    // undone. Answers what is to be done to that world; what there is no place for any more is named in `lost`.
    std::vector<RenderThread::Posted> reopen(const SceneInfo& scene, std::set<std::string>& lost);

    const State& now() const { return m_now; }
    const std::vector<ObjectInfo>& objects() const { return m_now.objects; }
    const ObjectInfo* object(const std::string& place) const { return m_now.object(place); }
    const ParameterState* state(const std::string& path) const { return m_now.value(path); }
    const Tone& tone() const { return m_now.tone; }
    const Eye& eye() const { return m_eye; }

    // ---- Changes, which the rendering thread hears of at once. Those to one parameter in a row are one step to undo
    // until `settle`. Throw BadValue or NoSuchName and change nothing where the parameter is none or takes no such value.

    void set(const std::string& path, const ParameterValue& value);
    void reset(const std::string& path);
    void setClass(const std::string& place, const ObjectClass& object);
    void addLight(const ObjectClass& object, const std::map<std::string, ParameterValue>& values);
    void removeLight(const std::string& place);
    void setTone(const Tone& tone);
    void move(const std::string& place, const Matrix& toWorld);
    // Values, lights and placements of another state; one step to undo.
    void become(const State& state);
    // A texture by a name like the file's, which is answered; no step to undo.
    std::string addTexture(AddedTexture texture);
    const std::vector<AddedTexture>& addedTextures() const { return m_added; }
    // Some parameter has it.
    bool uses(const AddedTexture& texture) const;
    const std::vector<std::string>& textures() const { return m_textures; }
    void settle() { m_merging = false; }
    // Another number after every change.
    std::uint64_t revision() const { return m_revision; }

    // States to come back to, in the order in which they were kept.
    void keep() { m_kept.push_back(m_now); }
    void forget(std::size_t number) { m_kept.erase(m_kept.begin() + static_cast<std::ptrdiff_t>(number)); }
    const std::vector<State>& kept() const { return m_kept; }

    // No step to undo.
    void setEye(const Eye& eye);

    bool canUndo() const { return m_done > 0; }
    bool canRedo() const { return m_done < m_edits.size(); }
    void undo();
    void redo();

    // ---- Saving

    // Something but the view has been changed since the file was read or written.
    bool isDirty() const { return m_done != m_savedAt; }
    bool isMoved() const { return m_moved; }
    void saved();
    // Lights are others in number or kind than those of the file, something stands elsewhere, or a texture was added: no
    // command line says it.
    bool needsFile() const;
    const State& fileState() const { return m_saved; }

private:
    using Edit = std::variant<ValueEdit, PlacementEdit, ToneEdit, StateEdit>;

    void check(const std::string& path, const ParameterValue& value) const;
    void perform(Edit edit);
    void apply(const Edit& edit, bool forwards);
    bool rebase(Edit& edit, Rebase& rebase, const State& now) const;

    RenderThread& m_thread;
    State m_now, m_saved;
    std::vector<std::string> m_textures;
    std::vector<AddedTexture> m_added;
    Eye m_eye;
    View m_fileView;
    std::vector<State> m_kept;
    std::uint64_t m_revision = 0;
    std::vector<Edit> m_edits;
    std::size_t m_done = 0;
    std::optional<std::size_t> m_savedAt = 0;  // edits that were done then
    bool m_merging = false, m_moved = false;
};

}  // namespace oxbeam
