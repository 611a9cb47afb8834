// The lights of a scene around a model.
#pragma once

#include "Engine/Import/ModelFile.h"
#include "Engine/SceneFile/SceneText.h"
#include "Engine/Textures/Texture.h"
#include "Engine/World/World.h"

namespace oxbeam {

class ModelLights {
public:
    // `toScene` scales the model by `scale`; `middle` is where the scene has its middle then.
    ModelLights(SceneText& text, const Model& model, const Matrix& toScene, float scale, const R3& middle,
                const View& view, float ambient)
        : m_text(text), m_model(model), m_toScene(toScene), m_scale(scale), m_middle(middle), m_view(view),
          m_onGround(ambient) {}

    // From behind the viewer's left shoulder, from the ceiling, and weakly from the viewer; less of it where the file
    // has lights.
    void writeStudio();
    void writeOwn();
    // From an equirectangular picture that the scene calls "surroundings".
    void writeSurroundings(const Texture& picture);
    // The same from many weak lights, for surfaces that each pass samples a few of them on.
    void writeManyLights(const Texture& picture);
    // What arrives on level ground from all of them.
    float onGround() const { return m_onGround; }

private:
    void write(const std::string& about, const std::string& object, const SceneText::Values& values);
    float loss(const ModelLight& light) const;

    SceneText& m_text;
    const Model& m_model;
    Matrix m_toScene;
    float m_scale;
    R3 m_middle;
    View m_view;
    float m_onGround;
};

}  // namespace oxbeam
