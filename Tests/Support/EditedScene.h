// A scene file that is kept in step with a world, and changes that are made to both at random.
#pragma once

#include "Tests/Support/SceneText.h"

#include <map>
#include <random>

namespace oxbeam::test {

using Values = std::map<std::string, std::string>;  // keys, and values as the file has them

// A scene file that is kept in step with a world.
struct Document {
    std::map<std::string, Values> textures, shaders;
    Values render, camera, environment;
    std::vector<Values> lights, meshes;
    ImageSize image{48, 32};

    static std::string table(const std::string& head, const Values& values) {
        std::string text = head + '\n';
        for (const auto& [key, value] : values) text += key + " = " + value + '\n';
        return text;
    }
    std::string text() const {
        std::string all =
            table("[image]", {{"width", std::to_string(image.width)}, {"height", std::to_string(image.height)}});
        all += table("[render]", render) + table("[camera]", camera) + table("[environment]", environment);
        for (const auto& [name, values] : textures) all += table("[texture." + name + ']', values);
        for (const auto& [name, values] : shaders) all += table("[shader." + name + ']', values);
        for (const Values& values : lights) all += table("[[light]]", values);
        for (const Values& values : meshes) all += table("[[mesh]]", values);
        return all;
    }
    Values& at(const std::string& place) {
        if (place == "render") return render;
        if (place == "camera") return camera;
        if (place == "environment") return environment;
        const std::string entry = place.substr(place.find('.') + 1);
        return place.starts_with("light.") ? lights[std::stoul(entry)] : shaders.at(entry);
    }
};

// No faces lie in each other: which of them a ray finds goes by the way through the structure.
Document smallScene();

// The same on a ground that has no end, with a lens that is focused on a ball.
Document focusedScene();

std::unique_ptr<World> loaded(const Document& document);
std::vector<R3> freshPicture(const Document& document, unsigned passes);

// How many pixels have other bits; all of them where the pictures have other sizes.
std::size_t differing(const std::vector<R3>& a, const std::vector<R3>& b);

// Changes a world and its document alike, at random.
class Editor {
public:
    Editor(World& world, Document& document, unsigned seed) : m_world(world), m_document(document), m_random(seed) {}

    // Makes one change, and says which.
    std::string edit();

private:
    unsigned below(std::size_t n) { return static_cast<unsigned>(m_random() % n); }
    float between(float a, float b) { return a + (b - a) * static_cast<float>(below(1u << 16)) / 65536.0f; }
    template <class T>
    const T& any(const std::vector<T>& of) {
        return of[below(of.size())];
    }

    ParameterValue valueFor(const ParameterDeclaration& p);
    std::string setParameter();
    std::string setClass();
    std::string setEnvironment();
    std::string become(const std::string& place, const std::string& name);
    std::string lightComesOrGoes();
    Matrix placement();
    std::string meshComesOrGoes();
    std::string setPicture();
    std::string changePlacement();
    std::string changeView();

    World& m_world;
    Document& m_document;
    std::mt19937 m_random;
    unsigned m_segments = 30;
};

}  // namespace oxbeam::test
