#include "Engine/Scene/SceneGeometry.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Scene/EmbreeIntersector.h"
#include "Engine/Scene/Flattening.h"
#include "Engine/Scene/PlacedObject.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
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
    m_distinct.push_back(distinctIds);
    object->name = mesh.name;
    m_scene.objects.push_back(object.get());
    m_meshes.push_back(std::move(object));
    m_data.push_back(std::make_unique<MeshData>(std::move(mesh)));
    m_own.emplace_back();
    m_dropped.emplace_back();
    m_origins.push_back(number);
    m_baked.push_back(false);
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
    m_toWorld.push_back(meshToWorld);
    m_movable.push_back(movable);
    return static_cast<unsigned>(m_instances.size()) - 1;
}

// ---- Changes

void SceneGeometry::moveInstance(unsigned number, const Matrix& meshToWorld) {
    Instance& instance = *m_instances[number];
    m_toWorld[number] = meshToWorld;
    if (instance.hasXfm) setTransform(instance, meshToWorld);
    if (number >= m_prepared) return;
    m_moved.insert(number);
    m_changed.insert(number);
}

void SceneGeometry::setVisibility(unsigned instance, Oxuint mask) {
    m_instances[instance]->visibilityMask = mask;
    if (m_intersector) m_intersector->setVisibility(instance, mask);
}

void SceneGeometry::setShader(unsigned instance, unsigned shader) { m_instances[instance]->shaderBias = shader; }

void SceneGeometry::removeInstance(unsigned number) {
    const unsigned mesh = m_instances[number]->object, origin = m_origins[mesh];
    if (m_intersector) m_intersector->remove(number);
    m_scene.instances[number] = nullptr;
    m_instances[number].reset();
    m_changed.erase(number);
    m_moved.erase(number);
    m_endless.erase(number);
    m_gone = true;
    bool copyStays = false, stays = false;
    for (const auto& instance : m_instances) {
        copyStays = copyStays || (instance && instance->object == mesh);
        stays = stays || (instance && m_origins[instance->object] == origin);
    }
    if (mesh != origin && !copyStays) removeMesh(mesh);
    if (!stays) removeMesh(origin);
}

void SceneGeometry::removeMesh(unsigned mesh) {
    letGo(mesh);
    *m_meshes[mesh] = {};
    m_data[mesh].reset();
    m_own[mesh] = {};
    m_memory[mesh] = {};
    m_removed.insert(mesh);
}

// Nothing is traced in a mesh's arrays any more. Moved, they stay where they are in memory.
void SceneGeometry::letGo(unsigned number) {
    if (!m_intersector || m_intersector->release(number)) return;
    ABSP& mesh = *m_meshes[number];
    Built built{std::move(mesh.positions), std::move(mesh.indices), std::move(m_memory[number])};
    built.memory.shrinkTo(built.positions.size() * sizeof(R3) + built.indices.size() * sizeof(Oxuint));
    m_built.push_back(std::move(built));
}

// As if the scene had been loaded as it is now: flat copies are made after all meshes were read.
void SceneGeometry::numberMeshes() {
    unsigned next = 0;
    std::vector<bool> numbered(m_meshes.size());
    const auto number = [&](unsigned mesh) {
        if (numbered[mesh] || m_removed.contains(mesh)) return;
        numbered[mesh] = true;
        m_meshes[mesh]->id = m_distinct[mesh] ? distinctId(next) : next;
        ++next;
    };
    for (const unsigned mesh : m_order) number(mesh);
    for (unsigned mesh = 0; mesh < m_meshes.size(); ++mesh)
        if (m_origins[mesh] == mesh) number(mesh);
    for (const auto& instance : m_instances)
        if (instance) number(instance->object);
}

StructureStatistics SceneGeometry::structure() const {
    StructureStatistics s;
    std::vector<unsigned> uses(m_meshes.size());
    for (const auto& instance : m_instances)
        if (instance) ++uses[instance->object];
    s.twoLevels = m_intersector && m_intersector->hasTwoLevels();
    for (unsigned i = 0; i < m_instances.size(); ++i) {
        if (!m_instances[i]) continue;
        ++s.placements;
        const bool apart = m_intersector && m_intersector->isApart(i);
        const bool instanced = m_instances[i]->hasXfm && (uses[m_instances[i]->object] > 1 || m_movable[i]);
        s.instanced += instanced;
        s.apart += apart && !instanced;
        s.inWhole += !apart && !instanced;
    }
    if (m_intersector) s.hiddenTriangles = m_builtTriangles;
    for (unsigned i = 0; i < m_instances.size() && s.hiddenTriangles > 0; ++i)
        if (m_instances[i] && i < m_firstBuilt && !m_instances[i]->hasXfm && !m_intersector->isApart(i))
            s.hiddenTriangles -= m_meshes[m_instances[i]->object]->triangleCount();
    return s;
}

// ---- Preparing

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

// Leaves of a mesh as it came what it has become another of: all of it where nothing is left. Zeros of either sign are
// one, as they are in what is traced.
static void keepDifference(MeshData& own, const ABSP& mesh, const DroppedTriangles& dropped) {
    if (mesh.indices.empty()) return;
    MeshData different;
    if (own.positions != mesh.positions) different.positions = std::move(own.positions);
    if (own.normals != mesh.normals) different.normals = std::move(own.normals);
    if (dropped.total() + dropped.withoutArea > 0) different.indices = std::move(own.indices);
    own = std::move(different);
}

// `owner` is the only instance of a mesh whose transformation is to be baked in, else null.
void SceneGeometry::takeOver(unsigned number, Instance* owner) {
    MeshData& data = *m_data[number];
    ABSP& mesh = *m_meshes[number];
    const bool keep = changeable && m_origins[number] == number && !data.positions.empty();
    if (keep) {
        m_memory[number].add({MemoryUse::Meshes, bytesOfMesh(data), fmt::format("mesh '{}'", oneLine(data.name))});
        m_own[number] = data;
    }
    m_baked[number] = owner != nullptr;
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
    if (keep) keepDifference(m_own[number], mesh, m_dropped[number]);
    mesh.positions.resize(vertices + 2);                // the padding that Embree reads
    if (mesh.indices.empty()) mesh.indices.reserve(3);  // Embree wants an address even for nothing
    m_data[number].reset();
    m_memory[number].shrinkTo(bytesOfMesh(mesh) + bytesOfMesh(m_own[number]));
}

// A mesh that was taken over is again as it came, yet to be prepared.
void SceneGeometry::giveBack(unsigned number) {
    ABSP& mesh = *m_meshes[number];
    auto data = std::make_unique<MeshData>(std::exchange(m_own[number], {}));
    if (data->indices.empty()) {
        data->indices = mesh.indices;
        for (std::size_t i = 0; i < data->indices.size(); i += 3)
            std::rotate(&data->indices[i], &data->indices[i + 1], &data->indices[i] + 3);
    }
    if (data->positions.empty()) data->positions.assign(&mesh.positions[0], &mesh.positions[0] + mesh.vertexCount);
    if (data->normals.empty()) data->normals = std::move(mesh.normals);
    if (data->texCoords.empty()) data->texCoords = std::move(mesh.texCoords);
    if (data->colors.empty()) data->colors = std::move(mesh.colors);
    data->name = mesh.name;
    letGo(number);
    mesh = {};
    mesh.name = data->name;
    m_memory[number] = {};
    m_memory[number] = {MemoryUse::Meshes, bytesOfMesh(*data), fmt::format("mesh '{}'", oneLine(data->name))};
    m_data[number] = std::move(data);
}

// What is not as a scene that was loaded so has it: baked though it is not placed once any more, not baked though it is,
// or flattened otherwise.
void SceneGeometry::giveBackChanged() {
    if (!changeable || (m_changed.empty() && !m_gone)) return;
    const std::vector<Instance*> owners = onlyPlacements();
    std::vector<bool> wrong(m_meshes.size());
    for (unsigned i = 0; i < m_instances.size(); ++i) {
        if (!m_instances[i] || m_movable[i]) continue;
        const Instance& instance = *m_instances[i];
        const unsigned mesh = instance.object, origin = m_origins[mesh];
        const bool only = owners[mesh] == &instance, inPlace = !instance.hasXfm && !m_baked[mesh];
        if ((instance.hasXfm ? only || m_baked[mesh] : !only && !inPlace) ||
            (m_changed.contains(i) && (mesh != origin || !EmbreeIntersector::canInstance(m_toWorld[i]))))
            wrong[origin] = !m_data[origin];
    }
    std::set<unsigned> copies;
    for (unsigned i = 0; i < m_instances.size(); ++i) {
        if (!m_instances[i] || !wrong[meshOf(i)]) continue;
        Instance& instance = *m_instances[i];
        if (m_intersector) m_intersector->remove(i);
        m_changed.insert(i);
        const unsigned origin = meshOf(i);
        if (instance.object != origin) copies.insert(instance.object);
        instance.object = origin;
        setTransform(instance, m_toWorld[i]);
        instance.placed = nullptr;
        if (i < m_placed.size()) m_placed[i].reset();
    }
    for (const unsigned copy : copies) removeMesh(copy);
    for (unsigned mesh = 0; mesh < m_meshes.size(); ++mesh)
        if (wrong[mesh]) giveBack(mesh);
}

unsigned SceneGeometry::copyMesh(unsigned mesh, const Matrix& matrix) {
    const MeshData& original = *m_data[mesh];
    // Before the copy is made, and after it was counted as any mesh is.
    requireMemory(MemoryUse::Meshes, bytesOfMesh(original), fmt::format("a copy of mesh '{}'", oneLine(original.name)));
    MeshData copy = original;
    transform(copy, matrix);
    const unsigned number = addMesh(std::move(copy));
    m_origins[number] = mesh;
    m_distinct[number] = m_distinct[mesh];
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
        if (!m_instances[i]) continue;
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
        if (instance && instance->object < copied.size()) copied[instance->object] = false;
    for (unsigned mesh = 0; mesh < copied.size(); ++mesh) {
        if (!copied[mesh]) continue;  // else only its copies are placed
        if (changeable) m_own[mesh] = std::move(*m_data[mesh]);
        m_data[mesh]->clear();
    }
}

// By mesh: its only placement where that is to be baked in, else null.
std::vector<Instance*> SceneGeometry::onlyPlacements() const {
    std::vector<unsigned> uses(m_meshes.size());
    std::vector<Instance*> owners(m_meshes.size());
    for (unsigned i = 0; i < m_instances.size(); ++i) {
        if (!m_instances[i]) continue;
        const unsigned mesh = m_instances[i]->object;
        const bool stays = !m_movable[i] && !m_moved.contains(i);
        owners[mesh] = ++uses[mesh] == 1 && stays ? m_instances[i].get() : nullptr;
    }
    return owners;
}

void SceneGeometry::prepare() {
    for (std::size_t i = std::exchange(m_prepared, m_instances.size()); i < m_prepared; ++i)
        if (m_instances[i]) m_changed.insert(static_cast<unsigned>(i));
    giveBackChanged();
    copyFlattened();
    const std::vector<Instance*> owners = onlyPlacements();
    for (unsigned mesh = 0; mesh < m_meshes.size(); ++mesh)
        if (m_data[mesh]) takeOver(mesh, owners[mesh]);
    if (!m_changed.empty() || m_gone) numberMeshes();
}

// What the structure takes while it is built, which is half as much again as what it keeps of it: measured, and rounded
// up.
static constexpr std::size_t BytesATriangle = 112, BytesAPlacement = 512, BytesAMesh = 1024;

// A mesh that is placed as it stands counts each time, one that is instanced once.
std::size_t SceneGeometry::structureTriangles() const {
    std::vector<bool> instanced(m_meshes.size());
    std::size_t triangles = 0;
    for (const auto& instance : m_instances) {
        if (!instance) continue;
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

// Ids are those of the meshes as they are now.
void SceneGeometry::showPlaced() {
    m_placed.resize(m_instances.size());
    for (std::size_t i = 0; i < m_instances.size(); ++i) {
        if (!m_instances[i] || !m_instances[i]->hasXfm) continue;
        const ABSP& mesh = *m_meshes[m_instances[i]->object];
        if (!m_placed[i]) m_placed[i] = std::make_unique<PlacedObject>(mesh, *m_instances[i]);
        m_placed[i]->id = mesh.id;
        m_instances[i]->placed = m_placed[i].get();
    }
}

void SceneGeometry::build(const std::string& isa, const std::atomic<bool>* stop) {
    prepare();
    showPlaced();
    if (m_intersector) return update(stop);
    reserveStructure();
    auto intersector = std::make_unique<EmbreeIntersector>(isa);
    const bool moves = std::count(m_movable.begin(), m_movable.end(), true) > 0;
    m_bounds = intersector->build(m_scene, moves, stop);
    m_intersector = std::move(intersector);
    m_structureMemory.shrinkTo(m_intersector->bytes());
    m_changed.clear();
    m_gone = false;
    m_firstBuilt = m_instances.size();
    for (const auto& instance : m_instances)
        if (instance && !instance->hasXfm) m_builtTriangles += m_meshes[instance->object]->triangleCount();
    if (moves || !m_endless.empty()) findBounds();
}

// What moves nothing asks for nothing.
void SceneGeometry::update(const std::atomic<bool>* stop) {
    if (m_changed.empty() && !m_gone) return;
    for (const unsigned instance : m_changed) m_intersector->prepareUpdate(instance, stop);
    m_boxes.resize(m_instances.size());
    for (const unsigned instance : m_changed) {
        m_intersector->update(instance);
        m_boxes[instance].reset();
    }
    if (m_intersector->hasTwoLevels()) m_intersector->commit();  // else what is gone is hidden already
    m_changed.clear();
    m_gone = false;
    findBounds();
}

// Of a mesh that is placed by a transformation, the kernel takes the box around its placed box.
Bounds SceneGeometry::boxOf(unsigned number) const {
    const Instance& instance = *m_instances[number];
    if (!instance.hasXfm) return instanceBounds(number);
    const ABSP& mesh = *m_meshes[instance.object];
    Bounds own, placed;
    const Matrix& m = instance.meshToWorldXfm;
    if (mesh.indices.empty() || !EmbreeIntersector::canInstance(m)) return placed;
    for (const Oxuint vertex : mesh.indices) own.add(mesh.positions[vertex]);
    for (unsigned corner = 0; corner < 8; ++corner) {
        const R3 p(corner & 1 ? own.upper.x : own.lower.x, corner & 2 ? own.upper.y : own.lower.y,
                   corner & 4 ? own.upper.z : own.lower.z);
        R3 q;
        for (unsigned i = 0; i < 3; ++i) q[i] = p.x * m.m[i][0] + (p.y * m.m[i][1] + (p.z * m.m[i][2] + m.m[i][3]));
        placed.add(q);
    }
    return placed;
}

void SceneGeometry::findBounds() {
    m_boxes.resize(m_instances.size());
    m_bounds = Bounds();
    for (unsigned i = 0; i < m_instances.size(); ++i) {
        if (!m_instances[i] || isEndless(i)) continue;
        if (!m_boxes[i]) m_boxes[i] = m_endless.empty() ? boxOf(i) : instanceBounds(i);
        m_bounds.add(*m_boxes[i]);
    }
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
    return std::accumulate(m_instances.begin(), m_instances.end(), std::size_t{0}, [&](std::size_t n, const auto& i) {
        return i ? n + m_meshes[i->object]->triangleCount() : n;
    });
}

}  // namespace oxbeam
