// What of a world changes over time: parameters, cameras, placements, and the parts of models that have clips.
#pragma once

#include "Engine/Packages/ParameterValue.h"
#include "Engine/Scene/NodeClip.h"
#include "Engine/World/Curve.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace oxbeam {

class World;

// Values that something takes at times. Numbers go from one to the next, integers rounded; what is true or false, the item
// of an enumeration, a texture or a text stays as it is until the next time.
struct Track {
    // A parameter ("light.0.intensity"), a member of a camera ("camera.position", "camera.close.fov": position, lookAt,
    // lookUp or fov), or how a mesh or model is placed ("mesh.0.rotate": translate, rotate or scale).
    std::string target;
    Interpolation interpolation = Interpolation::Linear;
    std::vector<double> times;           // seconds, ascending
    std::vector<ParameterValue> values;  // as many
    bool spread = false;                 // times are shares of all the time that there is: see Animation::spread
};

// The nodes of a model's file that move the parts of what is placed.
struct PlacedClip {
    std::string place;  // "mesh.0"
    std::vector<ModelNode> nodes;
    std::vector<int> partNodes;  // by part of the placement
    NodeClip clip;
};

class OXBEAM_API Animation {
public:
    // The world has what is animated already; a mesh must be movable from the start, by the geometry or by itself. What is
    // wrong is an error at `where` or at the value, and leaves everything as it is. `label` names the track for messages. One
    // that is spread takes the place of another of the same target.
    void add(World& world, Track track, const std::string& label, const SourceLocation& where,
             Diagnostics& diagnostics);
    void add(PlacedClip clip) { m_clips.push_back(std::move(clip)); }

    // Whether a camera or a placement has a member of that name that can be animated.
    static bool isMember(std::string_view name);

    bool empty() const { return m_tracks.empty() && m_clips.empty(); }
    // Whether something animates a member of that camera's view: position, lookAt or lookUp.
    bool movesCamera(const std::string& place) const;
    // Whether a track is spread, and so has no times yet.
    bool wantsSpan() const;
    // From the first time to the last, in seconds, but for what is spread; nothing where there is nothing else.
    std::optional<std::pair<double, double>> span() const;
    // Gives tracks that are spread the times from one second to another, which is not before it.
    void spread(double from, double to);

    // Sets everything as it is at a time, which takes effect when the next frame begins. It is the same whatever was shown
    // before.
    void show(World& world, double seconds) const;

private:
    enum class Member { Position, LookAt, LookUp, Fov, Translate, Rotate, Scale };
    struct Shown {
        std::string place;
        std::variant<std::string, Member> what;  // the parameter's id, or a member
        std::string target;
        Interpolation interpolation = Interpolation::Linear;
        std::vector<double> times;
        std::vector<ParameterValue> values;
        bool spread = false;
        bool held = false, whole = false;  // stays until the next time; integers
        ValueSpace space = ValueSpace::Numbers;
        std::optional<Curve> curve;  // unless it is held

        void takeForm(const ParameterDeclaration& p);
        void takeForm(Member member);
        void makeCurve();
        ParameterValue at(double seconds) const;
    };

    static std::optional<Member> memberNamed(const World& world, const std::string& place, const std::string& name);
    static void showMember(World& world, const std::string& place, Member member, const std::vector<double>& value);
    static std::vector<std::string> targetsOf(const World& world);
    std::string wrongWith(const World& world, const Shown& shown) const;
    static bool takes(World& world, const Shown& shown, const std::string& label, Diagnostics& diagnostics);

    std::vector<Shown> m_tracks;
    std::vector<PlacedClip> m_clips;
};

}  // namespace oxbeam
