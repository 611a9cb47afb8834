#include "Engine/Scene/SceneGeometry.h"

#include "Engine/Scene/EmbreeIntersector.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <utility>

namespace oxbeam {

// Divides the linear part by its largest element.
static Matrix leveled(Matrix m) {
    float largest = 0.0f;
    for (const auto& row : m.m)
        for (int j = 0; j < 3; ++j) largest = std::max(largest, std::fabs(row[j]));
    if (largest > 0.0f)
        for (auto& row : m.m)
            for (int j = 0; j < 3; ++j) row[j] /= largest;
    return m;
}

// Normals turn with the cofactors, keeping their side where the transformation mirrors. Cofactors go with the square
// of the scale, and their lengths would leave what a float holds.
static Matrix normalTransform(const Matrix& matrix) {
    const Matrix m = leveled(matrix);
    Matrix n = leveled(CofactorMatrix(m));
    const float sign = Determinant(m) < 0.0f ? -1.0f : 1.0f;
    for (auto& row : n.m)
        for (float& element : row) element *= sign;
    return n;
}

// Normals are not brought to unit length one by one: they would be interpolated otherwise than those of an instance.
void transform(MeshData& mesh, const Matrix& matrix) {
    const Matrix normal = normalTransform(matrix);
    for (R3& p : mesh.positions) p = TransformPoint(matrix, p);
    for (R3& n : mesh.normals) n = TransformVector(normal, n);
}

static void setTransform(Instance& instance, const Matrix& matrix) {
    instance.hasXfm = 1;
    instance.meshToWorldXfm = matrix;
    instance.normalXfm = normalTransform(matrix);
}

void Bounds::add(const R3& p) {
    if (empty) lower = upper = p;
    lower = R3(std::min(lower.x, p.x), std::min(lower.y, p.y), std::min(lower.z, p.z));
    upper = R3(std::max(upper.x, p.x), std::max(upper.y, p.y), std::max(upper.z, p.z));
    empty = false;
}

void Bounds::add(const Bounds& other) {
    if (other.empty) return;
    add(other.lower);
    add(other.upper);
}

SceneGeometry::SceneGeometry() = default;

SceneGeometry::~SceneGeometry() = default;

// An id for a mesh's number. Who paints objects by the lowest five bits of their ids tells those of the first meshes
// apart best: none is so near to the ones before it, nor to 0, which is often black.
static Oxuint distinctId(unsigned number) {
    static constexpr std::array<std::uint8_t, 32> order = {13, 16, 27, 2,  4,  20, 7,  19, 1,  10, 29,
                                                           3,  5,  23, 6,  9,  18, 14, 17, 8,  24, 12,
                                                           11, 21, 15, 22, 31, 25, 26, 28, 30, 0};
    return number / 32 * 32 + order[number % 32];
}

unsigned SceneGeometry::addMesh(MeshData mesh) {
    const auto number = static_cast<unsigned>(m_meshes.size());
    auto object = std::make_unique<ABSP>();
    object->id = distinctId(number);
    object->name = mesh.name;
    m_scene.objects.push_back(object.get());
    m_meshes.push_back(std::move(object));
    m_data.push_back(std::make_unique<MeshData>(std::move(mesh)));
    m_dropped.emplace_back();
    m_origins.push_back(number);
    return number;
}

unsigned SceneGeometry::addInstance(unsigned mesh, const Matrix& meshToWorld, unsigned shader, Oxuint visibilityMask,
                                    bool movable) {
    auto instance = std::make_unique<Instance>();
    instance->object = mesh;
    instance->shaderBias = shader;
    instance->visibilityMask = visibilityMask;
    setTransform(*instance, meshToWorld);
    m_scene.instances.push_back(instance.get());
    m_instances.push_back(std::move(instance));
    m_movable.push_back(movable);
    return static_cast<unsigned>(m_instances.size()) - 1;
}

void SceneGeometry::moveInstance(unsigned instance, const Matrix& meshToWorld) {
    setTransform(*m_instances[instance], meshToWorld);
}

// The traversal kernel cannot square larger coordinates.
static bool reachable(const R3& p) {
    constexpr float limit = 1e18f;
    return std::fabs(p.x) <= limit && std::fabs(p.y) <= limit && std::fabs(p.z) <= limit;
}

// Removes the triangles that cannot be traced, and turns the order of the others' corners as ABSP wants it.
static DroppedTriangles takeIndices(MeshData& mesh, std::vector<Oxuint>& indices) {
    std::vector<bool> good(mesh.positions.size());
    std::transform(mesh.positions.begin(), mesh.positions.end(), good.begin(), reachable);
    DroppedTriangles dropped;
    std::size_t kept = 0;
    for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3) {
        const unsigned a = mesh.indices[i], b = mesh.indices[i + 1], c = mesh.indices[i + 2];
        if (std::max({a, b, c}) >= good.size()) {
            ++dropped.badIndices;
        } else if (!good[a] || !good[b] || !good[c]) {
            ++dropped.badVertices;
        } else if (!hasArea(mesh.positions[a], mesh.positions[b], mesh.positions[c])) {
            ++dropped.withoutArea;
        } else {
            mesh.indices[kept] = c, mesh.indices[kept + 1] = a, mesh.indices[kept + 2] = b;
            kept += 3;
        }
    }
    mesh.indices.resize(kept);
    indices = std::move(mesh.indices);
    return dropped;
}

// A per-vertex array that is not as long as there are vertices is of no use.
template <class T>
static void takeAttribute(std::vector<T>& from, std::vector<T>& to, std::size_t vertices) {
    if (from.size() == vertices) to = std::move(from);
}

void SceneGeometry::takeOver(unsigned number, bool bake) {
    MeshData& data = *m_data[number];
    ABSP& mesh = *m_meshes[number];
    if (bake) {
        const auto owner = std::find_if(m_instances.begin(), m_instances.end(),
                                        [&](const auto& instance) { return instance->object == number; });
        transform(data, (*owner)->meshToWorldXfm);
        **owner = Instance{(*owner)->object, (*owner)->shaderBias, (*owner)->visibilityMask, 0, {}, {}};
    }
    const std::size_t vertices = data.positions.size();
    mesh.vertexCount = static_cast<Oxuint>(vertices);
    m_dropped[number] = takeIndices(data, mesh.indices);
    takeAttribute(data.normals, mesh.normals, vertices);
    takeAttribute(data.texCoords, mesh.texCoords, vertices);
    takeAttribute(data.colors, mesh.colors, vertices);
    for (R3& normal : mesh.normals)
        if (!IsFinite(normal)) normal = zeroVector;  // the geometric one is taken instead
    mesh.positions = std::move(data.positions);
    mesh.positions.resize(vertices + 2);                // the padding that Embree reads
    if (mesh.indices.empty()) mesh.indices.reserve(3);  // Embree wants an address even for nothing
    m_data[number].reset();
}

// A placement that flattens its mesh cannot be undone, so that no ray can be turned back into the mesh's own space: the
// mesh is copied, to be transformed itself.
void SceneGeometry::copyFlattened() {
    for (std::size_t i = 0; i < m_instances.size(); ++i) {
        Instance& instance = *m_instances[i];
        if (m_movable[i] || !m_data[instance.object] || EmbreeIntersector::canInstance(instance.meshToWorldXfm))
            continue;
        MeshData copy = *m_data[instance.object];
        const unsigned origin = std::exchange(instance.object, addMesh(std::move(copy)));
        m_origins.back() = origin;
    }
}

void SceneGeometry::prepare() {
    copyFlattened();
    std::vector<unsigned> uses(m_meshes.size()), moved(m_meshes.size());
    for (std::size_t i = 0; i < m_instances.size(); ++i) {
        ++uses[m_instances[i]->object];
        moved[m_instances[i]->object] |= m_movable[i];
    }
    for (unsigned mesh = 0; mesh < m_meshes.size(); ++mesh)
        if (m_data[mesh]) takeOver(mesh, uses[mesh] == 1 && !moved[mesh]);
}

void SceneGeometry::build(const std::string& isa) {
    prepare();
    if (!m_intersector) m_intersector = std::make_unique<EmbreeIntersector>(isa);
    m_bounds = m_intersector->build(m_scene);
    if (m_endless.empty() || m_endless.size() == m_instances.size()) return;
    m_bounds = Bounds();
    for (unsigned i = 0; i < m_instances.size(); ++i)
        if (!isEndless(i)) m_bounds.add(instanceBounds(i));
}

Bounds SceneGeometry::placedBounds() const {
    Bounds bounds;
    for (const auto& instance : m_instances)
        if (const MeshData* mesh = m_data[instance->object].get())
            for (const R3& vertex : mesh->positions)
                if (const R3 p = TransformPoint(instance->meshToWorldXfm, vertex); reachable(p)) bounds.add(p);
    return bounds;
}

std::string SceneGeometry::defaultIsa() { return EmbreeIntersector::defaultIsa(); }

Intersector& SceneGeometry::intersector() const { return *m_intersector; }

Bounds SceneGeometry::instanceBounds(unsigned number) const {
    const Instance& instance = *m_instances[number];
    const ABSP& mesh = *m_meshes[instance.object];
    Bounds bounds;
    for (const Oxuint vertex : mesh.indices) {
        const R3& p = mesh.positions[vertex];
        bounds.add(instance.hasXfm ? TransformPoint(instance.meshToWorldXfm, p) : p);
    }
    return bounds;
}

template <class T>
static std::size_t bytesOf(const std::vector<T>& array) {
    return array.size() * sizeof(T);
}

std::size_t SceneGeometry::meshBytes() const {
    return std::accumulate(m_meshes.begin(), m_meshes.end(), std::size_t{0}, [](std::size_t n, const auto& mesh) {
        return n + bytesOf(mesh->positions) + bytesOf(mesh->normals) + bytesOf(mesh->texCoords) +
               bytesOf(mesh->colors) + bytesOf(mesh->indices);
    });
}

std::size_t SceneGeometry::triangles() const {
    return std::accumulate(m_instances.begin(), m_instances.end(), std::size_t{0},
                           [&](std::size_t n, const auto& i) { return n + m_meshes[i->object]->triangleCount(); });
}

}  // namespace oxbeam
