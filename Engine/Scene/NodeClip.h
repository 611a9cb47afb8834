// How the nodes of a model's file move: what a clip of it plays.
#pragma once

#include "Engine/Scene/Quaternion.h"
#include "Primitives/Vec.h"

#include <string>
#include <vector>

namespace oxbeam {

struct ModelNode {
    int parent = -1;  // stands before it; -1: none
    Matrix toParent;  // at rest
};

// Values at ascending times, in seconds; linear in between, rotations the shorter way along their arc, and held outside.
template <class Value>
struct NodeKeys {
    std::vector<float> times;
    std::vector<Value> values;  // as many
};

// What a clip puts in the place of a node's own transformation: scaled, then rotated, then moved. Each has a key at least.
struct NodeChannel {
    unsigned node = 0;
    NodeKeys<R3> translation, scale;
    NodeKeys<Quaternion> rotation;  // of unit length
};

struct NodeClip {
    std::string name;
    float seconds = 0.0f;
    bool straightened = false;  // in its file, some keys are gone between by steps or splines
    std::vector<NodeChannel> channels;
};

// By node: from its own space to the model's, at a time of a clip.
std::vector<Matrix> nodesAt(const std::vector<ModelNode>& nodes, const NodeClip& clip, double seconds);

}  // namespace oxbeam
