// The camera of a scene file, and the others to choose from.
#pragma once

#include "Engine/SceneFile/ObjectReader.h"

#include <variant>

namespace oxbeam {

class CameraSection {
public:
    CameraSection(std::string file, const ObjectReader& objects, World& world, Diagnostics& diagnostics)
        : m_file(std::move(file)), m_objects(objects), m_world(world), m_diagnostics(diagnostics) {}

    // [camera] is the camera, and the tables within it are others; `chosen` names one of them, or none.
    void read(TableReader& reader, const std::string& chosen);
    // The instances of meshes that have a name.
    using Instances = std::map<std::string, std::vector<unsigned>>;
    // When the geometry is prepared: tells cameras what they are focused on, a point or the middle of the instances of a
    // name. Mistakes of the cameras that were not chosen are not told.
    void focus(const Instances& instances);

private:
    struct Focus {
        std::variant<R3, std::string> on;  // a point, or a mesh's name
        SourceLocation where;
        std::string camera, label;  // its place, and what messages call it
        bool chosen;
    };

    void readCamera(TableReader& reader, const std::string& place, bool chosen);
    std::optional<View> viewOf(TableReader& reader);
    const std::vector<unsigned>* instancesOf(const Focus& focus, const Instances& instances);
    void focusError(const Focus& focus, const std::string& message);
    void setDistance(const Focus& focus, CameraView& own, float distance);

    std::string m_file;
    const ObjectReader& m_objects;
    World& m_world;
    Diagnostics& m_diagnostics;
    std::vector<Focus> m_focuses;
};

}  // namespace oxbeam
