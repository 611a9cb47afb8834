#include "Engine/Scene/SceneGeometry.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Scene/EmbreeIntersector.h"
#include "Engine/Scene/Flattening.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <map>
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

// Of a mesh whose vertices are in the world's space already.
static Instance inWorldSpace(const Instance& instance, unsigned mesh) {
    return {mesh, instance.shaderBias, instance.visibilityMask, 0, {}, {}};
}

namespace {

// Any order that tells placements apart, those that are not numbers too.
struct LessByBits {
    using Placed = std::pair<unsigned, Matrix>;
    bool operator()(const Placed& a, const Placed& b) const {
        using Bits = std::array<std::uint32_t, sizeof(Matrix) / sizeof(float)>;
        return a.first != b.first ? a.first < b.first : std::bit_cast<Bits>(a.second) < std::bit_cast<Bits>(b.second);
    }
};

}  // namespace

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
    m_memory.emplace_back(MemoryUse::Meshes, bytesOfMesh(mesh), fmt::format("mesh '{}'", oneLine(mesh.name)));
    const auto number = static_cast<unsigned>(m_meshes.size());
    auto object = std::make_unique<ABSP>();
    object->id = distinctIds ? distinctId(number) : number;
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

// `owner` is the only instance of a mesh whose transformation is to be baked in, else null.
void SceneGeometry::takeOver(unsigned number, Instance* owner) {
    MeshData& data = *m_data[number];
    ABSP& mesh = *m_meshes[number];
    if (owner) {
        transform(data, owner->meshToWorldXfm);
        *owner = inWorldSpace(*owner, number);
    }
    m_dropped[number] = takeIndices(data, mesh.indices);
    if (mesh.indices.empty()) data.clear();
    const std::size_t vertices = data.positions.size();
    mesh.vertexCount = static_cast<Oxuint>(vertices);
    takeAttribute(data.normals, mesh.normals, vertices);
    takeAttribute(data.texCoords, mesh.texCoords, vertices);
    takeAttribute(data.colors, mesh.colors, vertices);
    for (R3& normal : mesh.normals)
        if (!IsFinite(normal)) normal = zeroVector;  // the geometric one is taken instead
    mesh.positions = std::move(data.positions);
    mesh.positions.resize(vertices + 2);                // the padding that Embree reads
    if (mesh.indices.empty()) mesh.indices.reserve(3);  // Embree wants an address even for nothing
    m_data[number].reset();
    m_memory[number].shrinkTo(bytesOfMesh(mesh));
}

unsigned SceneGeometry::copyMesh(unsigned mesh, const Matrix& matrix) {
    const MeshData& original = *m_data[mesh];
    // Before the copy is made, and after it was counted as any mesh is.
    requireMemory(MemoryUse::Meshes, bytesOfMesh(original), fmt::format("a copy of mesh '{}'", oneLine(original.name)));
    MeshData copy = original;
    transform(copy, matrix);
    const unsigned number = addMesh(std::move(copy));
    m_origins[number] = mesh;
    return number;
}

// A placement that flattens its mesh cannot be undone, so that no ray can be turned back into the mesh's own space. All
// that flatten along the same direction share a flat copy, which can be placed like any mesh. What is left, placed too
// far out or nearly as a line, is transformed itself.
void SceneGeometry::copyFlattened() {
    using Key = std::pair<unsigned, std::array<int, 3>>;
    std::map<Key, unsigned> flat;
    std::map<std::pair<unsigned, Matrix>, unsigned, LessByBits> others;
    std::vector<bool> copied(m_meshes.size());
    for (std::size_t i = 0; i < m_instances.size(); ++i) {
        Instance& instance = *m_instances[i];
        const unsigned mesh = instance.object;
        const Matrix& matrix = instance.meshToWorldXfm;
        if (m_movable[i] || !m_data[mesh] || EmbreeIntersector::canInstance(matrix)) continue;
        copied[mesh] = true;
        if (const auto f = flatteningOf(matrix); f && EmbreeIntersector::canInstance(f->place)) {
            const auto [known, isNew] = flat.try_emplace({mesh, f->direction}, 0u);
            if (isNew) known->second = copyMesh(mesh, f->flatten);
            instance.object = known->second;
            setTransform(instance, f->place);
        } else {
            const auto [known, isNew] = others.try_emplace({mesh, matrix}, 0u);
            if (isNew) takeOver(known->second = copyMesh(mesh, matrix), nullptr);
            instance = inWorldSpace(instance, known->second);
        }
    }
    for (const auto& instance : m_instances)
        if (instance->object < copied.size()) copied[instance->object] = false;
    for (unsigned mesh = 0; mesh < copied.size(); ++mesh)
        if (copied[mesh]) m_data[mesh]->clear();  // only its copies are placed
}

void SceneGeometry::prepare() {
    copyFlattened();
    std::vector<unsigned> uses(m_meshes.size());
    std::vector<Instance*> owners(m_meshes.size());
    for (std::size_t i = 0; i < m_instances.size(); ++i) {
        const unsigned mesh = m_instances[i]->object;
        owners[mesh] = ++uses[mesh] == 1 && !m_movable[i] ? m_instances[i].get() : nullptr;
    }
    for (unsigned mesh = 0; mesh < m_meshes.size(); ++mesh)
        if (m_data[mesh]) takeOver(mesh, owners[mesh]);
}

// What the structure takes while it is built, which is half as much again as what it keeps of it: measured, and rounded
// up.
static constexpr std::size_t BytesATriangle = 112, BytesAPlacement = 512, BytesAMesh = 1024;

// A mesh that is placed as it stands counts each time, one that is instanced once.
std::size_t SceneGeometry::structureTriangles() const {
    std::vector<bool> instanced(m_meshes.size());
    std::size_t triangles = 0;
    for (const auto& instance : m_instances) {
        if (instance->hasXfm && instanced[instance->object]) continue;
        instanced[instance->object] = instance->hasXfm;
        triangles += m_meshes[instance->object]->triangleCount();
    }
    return triangles;
}

void SceneGeometry::reserveStructure() {
    const std::size_t triangles = structureTriangles();
    m_structureMemory = {};
    const std::size_t bytes =
        triangles * BytesATriangle + m_instances.size() * BytesAPlacement + m_meshes.size() * BytesAMesh;
    m_structureMemory = {MemoryUse::Structure, bytes,
                         fmt::format("the structure that rays are traced through, of {} triangles in {} placements,",
                                     triangles, m_instances.size())};
}

void SceneGeometry::build(const std::string& isa) {
    prepare();
    if (!m_intersector) {
        reserveStructure();
        m_intersector = std::make_unique<EmbreeIntersector>(isa);
    }
    m_bounds = m_intersector->build(m_scene);
    m_structureMemory.shrinkTo(m_intersector->bytes());
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

std::size_t SceneGeometry::meshBytes() const {
    return std::accumulate(m_meshes.begin(), m_meshes.end(), std::size_t{0},
                           [](std::size_t n, const auto& mesh) { return n + bytesOfMesh(*mesh); });
}

std::size_t SceneGeometry::triangles() const {
    return std::accumulate(m_instances.begin(), m_instances.end(), std::size_t{0},
                           [&](std::size_t n, const auto& i) { return n + m_meshes[i->object]->triangleCount(); });
}

}  // namespace oxbeam
