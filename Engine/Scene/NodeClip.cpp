#include "Engine/Scene/NodeClip.h"

#include <algorithm>

namespace oxbeam {

static R3 between(const R3& a, const R3& b, double share) {
    const auto s = static_cast<float>(share);
    return (1.0f - s) * a + s * b;
}

static Quaternion between(const Quaternion& a, const Quaternion& b, double share) { return slerp(a, b, share); }

template <class Value>
static Value valueAt(const NodeKeys<Value>& keys, double seconds) {
    const auto next = std::upper_bound(keys.times.begin(), keys.times.end(), seconds,
                                       [](double t, float key) { return t < double{key}; });
    const auto i = static_cast<std::size_t>(next - keys.times.begin());
    if (i == 0) return keys.values.front();
    if (i == keys.times.size()) return keys.values.back();
    const double from = keys.times[i - 1], to = keys.times[i];
    return between(keys.values[i - 1], keys.values[i], (seconds - from) / (to - from));
}

std::vector<Matrix> nodesAt(const std::vector<ModelNode>& nodes, const NodeClip& clip, double seconds) {
    std::vector<Matrix> placed;
    placed.reserve(nodes.size());
    for (const ModelNode& node : nodes) placed.push_back(node.toParent);
    for (const NodeChannel& channel : clip.channels)
        placed[channel.node] = TranslationMatrix(valueAt(channel.translation, seconds)) *
                               rotationMatrix(valueAt(channel.rotation, seconds)) *
                               ScaleMatrix(valueAt(channel.scale, seconds));
    for (std::size_t i = 0; i < nodes.size(); ++i)
        if (nodes[i].parent >= 0) placed[i] = placed[static_cast<std::size_t>(nodes[i].parent)] * placed[i];
    return placed;
}

}  // namespace oxbeam
