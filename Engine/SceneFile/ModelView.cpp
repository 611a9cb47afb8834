#include "Engine/SceneFile/ModelView.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace oxbeam {

VisiblePoints::VisiblePoints(const Model& model, const Matrix& toScene) : m_model(&model), m_toScene(toScene) {
    for (const MeshData& mesh : model.meshes) {
        std::vector<bool>& used = m_used.emplace_back(mesh.positions.size());
        for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3) {
            const unsigned a = mesh.indices[i], b = mesh.indices[i + 1], c = mesh.indices[i + 2];
            if (std::max({a, b, c}) < used.size() && hasArea(mesh.positions[a], mesh.positions[b], mesh.positions[c]))
                used[a] = used[b] = used[c] = true;
        }
    }
    bool found = false;
    each([&](const R3& p) {
        if (!std::exchange(found, true)) m_any = p;
    });
}

namespace {

// The directions of a picture, and how steeply its borders run.
struct Frustum {
    R3 forward, right, up;
    float tanX, tanY;

    Frustum(const R3& towards, const R3& lookUp, float fov, const ImageSize& image)
        : forward(Normalize(towards)), right(Normalize(Cross(forward, lookUp))), up(Cross(right, forward)) {
        tanY = std::tan(0.5f * fov * 3.14159265f / 180.0f);
        tanX = tanY * static_cast<float>(image.width) / static_cast<float>(image.height);
    }
};

struct Direction {
    R3 towards, up;
};

Direction directionOf(const std::string& viewName) {
    if (viewName == "front") return {R3(0.0f, 0.0f, -1.0f), R3(0.0f, 1.0f, 0.0f)};
    if (viewName == "left") return {R3(1.0f, 0.0f, 0.0f), R3(0.0f, 1.0f, 0.0f)};
    if (viewName == "top") return {R3(0.0f, -1.0f, 0.0f), R3(0.0f, 0.0f, -1.0f)};
    return {R3(-0.62f, -0.48f, -1.0f), R3(0.0f, 1.0f, 0.0f)};
}

}  // namespace

// Along one axis of the picture, a border at slope t is met by the point that is farthest out along it; the two borders
// together give the camera's offset and its distance.
View frame(const VisiblePoints& points, const std::string& viewName, float fov, const ImageSize& image) {
    constexpr float margin = 0.86f;
    const Direction direction = directionOf(viewName);
    const Frustum f(direction.towards, direction.up, fov, image);
    const R3 middle = points.any();
    struct Axis {
        R3 along;
        float tan, least, most;
    } axes[2] = {{f.right, margin * f.tanX, 0.0f, 0.0f}, {f.up, margin * f.tanY, 0.0f, 0.0f}};
    float nearest = 0.0f, farthest = 0.0f;
    for (Axis& a : axes) a.least = a.most = -std::numeric_limits<float>::infinity();
    points.each([&](const R3& p) {
        const R3 d = p - middle;
        const float depth = Dot(d, f.forward);
        nearest = std::min(nearest, depth);
        farthest = std::max(farthest, depth);
        for (Axis& a : axes) {
            a.most = std::max(a.most, Dot(d, a.along) / a.tan - depth);
            a.least = std::max(a.least, -Dot(d, a.along) / a.tan - depth);
        }
    });
    View view;
    float distance = 1e-3f * (farthest - nearest) - nearest;  // never within the model
    R3 offset;
    for (const Axis& a : axes) {
        distance = std::max(distance, 0.5f * (a.most + a.least));
        offset += (0.5f * (a.most - a.least) * a.tan) * a.along;
    }
    distance = std::max(distance, 1e-6f);
    view.position = middle + offset - distance * f.forward;
    view.lookAt = view.position + (distance + 0.5f * (nearest + farthest)) * f.forward;
    if (!(Length(view.lookAt - view.position) > 0.0f)) view.lookAt = view.position + f.forward;
    view.lookUp = direction.up;
    return view;
}

bool edgeOn(const VisiblePoints& points, const std::string& viewName) {
    const Direction direction = directionOf(viewName);
    const R3 right = Normalize(Cross(direction.towards, direction.up));
    const R3 up = Normalize(Cross(right, direction.towards));
    Bounds seen;
    points.each([&](const R3& p) {
        const R3 d = p - points.any();
        seen.add(R3(Dot(d, right), Dot(d, up), 0.0f));
    });
    const R3 extent = seen.upper - seen.lower;
    return std::min(extent.x, extent.y) < 1e-3f * std::max(extent.x, extent.y);
}

// From within the model there is something wherever one looks. From outside, the points in the picture must take up more
// than a speck of it.
bool sees(const View& view, float fov, const ImageSize& image, const VisiblePoints& points) {
    const Frustum f(view.lookAt - view.position, view.lookUp, fov, image);
    Bounds model, seen;
    points.each([&](const R3& p) {
        model.add(p);
        const R3 d = p - view.position;
        const float depth = Dot(d, f.forward);
        const R3 q(Dot(d, f.right) / (f.tanX * depth), Dot(d, f.up) / (f.tanY * depth), 0.0f);
        if (depth > 0.0f && std::fabs(q.x) < 1.0f && std::fabs(q.y) < 1.0f) seen.add(q);
    });
    const R3 &p = view.position, low = model.lower, high = model.upper;
    const bool inside = p.x > low.x && p.y > low.y && p.z > low.z && p.x < high.x && p.y < high.y && p.z < high.z;
    const R3 extent = seen.upper - seen.lower;
    return inside || std::min(extent.x, extent.y) > 0.08f;
}

}  // namespace oxbeam
