#include "Engine/Import/Helper/Normals.h"

#include "Engine/Import/Helper/Parallel.h"
#include "Engine/Import/Helper/Vertices.h"

#include <cmath>
#include <numeric>
#include <tuple>
#include <utility>

namespace oxbeam {

namespace {

constexpr std::size_t MostCorners = 0xffffffffu;  // that have numbers

// Double precision has room for the square of every float.
struct Vector {
    double x, y, z;

    Vector(const R3& from, const R3& to)
        : x(double{to.x} - from.x), y(double{to.y} - from.y), z(double{to.z} - from.z) {}
    Vector(double vx, double vy, double vz) : x(vx), y(vy), z(vz) {}
    double dot(const Vector& v) const { return x * v.x + y * v.y + z * v.z; }
    Vector cross(const Vector& v) const { return {y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x}; }
};

R3 unit(const Vector& v) {
    const double length = std::sqrt(v.dot(v));
    if (!(length > 0.0) || !std::isfinite(length)) return {};
    return {static_cast<float>(v.x / length), static_cast<float>(v.y / length), static_cast<float>(v.z / length)};
}

unsigned after(unsigned corner) { return corner % 3 == 2 ? corner - 2 : corner + 1; }
unsigned before(unsigned corner) { return corner % 3 == 0 ? corner + 2 : corner - 1; }

// What has become of the vertices of one chunk: those that came to be, and which corners they got.
struct Splits {
    std::vector<unsigned> vertices;  // that they were split from
    std::vector<R3> normals;
    std::vector<std::pair<unsigned, unsigned>> corners;  // and the number of the new vertex within the chunk
};

class NormalMaker {
public:
    NormalMaker(MeshData& mesh, float crease) : m_mesh(mesh), m_leastCosine(std::cos(crease * 3.14159265f / 180.0f)) {}

    void make();
    // What the vertices that came to be were split from, in their order.
    const std::vector<unsigned>& origins() const { return m_origins; }

private:
    class Around;

    void makeFaceNormals();
    void listCorners();
    void apply(const std::vector<Splits>& splits);
    bool hasFace(std::size_t triangle) const {
        return m_faces[triangle].x != 0.0f || m_faces[triangle].y != 0.0f || m_faces[triangle].z != 0.0f;
    }
    const R3& positionOf(unsigned corner) const { return m_mesh.positions[m_mesh.indices[corner]]; }
    unsigned placeOf(unsigned corner) const { return m_places[m_mesh.indices[corner]]; }

    MeshData& m_mesh;
    float m_leastCosine;
    std::vector<R3> m_faces;          // normals by triangle; zero: leave it out
    std::vector<unsigned> m_places;   // by vertex: the first vertex there
    std::vector<unsigned> m_corners;  // corners of triangles, by place
    std::vector<unsigned> m_origins;
    std::vector<unsigned> m_starts;  // by place: where its corners begin; those of the next place follow
};

void NormalMaker::makeFaceNormals() {
    const std::size_t triangles = m_mesh.indices.size() / 3, vertices = m_mesh.positions.size();
    m_faces.resize(triangles);
    inChunks(triangles, [&](std::size_t, std::size_t begin, std::size_t end) {
        for (std::size_t t = begin; t < end; ++t) {
            const unsigned* corner = &m_mesh.indices[3 * t];
            if (std::max({corner[0], corner[1], corner[2]}) >= vertices) continue;
            const R3& a = m_mesh.positions[corner[0]];
            m_faces[t] = unit(Vector(a, m_mesh.positions[corner[1]]).cross(Vector(a, m_mesh.positions[corner[2]])));
        }
    });
}

// Sorts the corners by place, by counting. Within a place they stand in no order.
void NormalMaker::listCorners() {
    m_starts.assign(m_mesh.positions.size() + 1, 0);
    const auto eachCorner = [&](auto use) {
        inChunks(m_faces.size(), [&](std::size_t, std::size_t begin, std::size_t end) {
            for (std::size_t t = begin; t < end; ++t)
                for (std::size_t c = 3 * t; hasFace(t) && c < 3 * t + 3; ++c) use(static_cast<unsigned>(c));
        });
    };
    eachCorner([&](unsigned c) { std::atomic_ref(m_starts[placeOf(c)]).fetch_add(1, std::memory_order_relaxed); });
    std::partial_sum(m_starts.begin(), m_starts.end(), m_starts.begin());
    m_corners.resize(m_starts.back());
    eachCorner([&](unsigned c) {
        m_corners[std::atomic_ref(m_starts[placeOf(c)]).fetch_sub(1, std::memory_order_relaxed) - 1] = c;
    });
}

// The triangles around one place after the other.
class NormalMaker::Around {
public:
    Around(const NormalMaker& maker, Splits& splits) : m(maker), m_splits(splits) {}

    void treat(std::size_t place) {
        m_corners.assign(m.m_corners.begin() + m.m_starts[place], m.m_corners.begin() + m.m_starts[place + 1]);
        if (m_corners.empty()) return;
        std::sort(m_corners.begin(), m_corners.end());
        findFans();
        sumNormals();
        assign();
    }

private:
    // An edge that leaves the place, and the corner of a triangle that has it.
    struct Spoke {
        unsigned to, corner;
        auto operator<=>(const Spoke&) const = default;
    };

    const R3& face(unsigned i) const { return m.m_faces[m_corners[i] / 3]; }

    unsigned fanOf(unsigned i) {
        while (m_fans[i] != i) i = m_fans[i] = m_fans[m_fans[i]];
        return i;
    }

    // Joins the triangles that share an edge which is no crease. At an edge of a great many triangles each is compared
    // with a few of them only.
    void findFans() {
        m_fans.resize(m_corners.size());
        std::iota(m_fans.begin(), m_fans.end(), 0u);
        m_spokes.clear();
        for (unsigned i = 0; i < m_corners.size(); ++i)
            for (const unsigned end : {after(m_corners[i]), before(m_corners[i])})
                m_spokes.push_back({m.placeOf(end), i});
        std::sort(m_spokes.begin(), m_spokes.end());
        constexpr std::size_t few = 8;
        for (std::size_t i = 0; i < m_spokes.size(); ++i)
            for (std::size_t j = i + 1; j < std::min(i + few, m_spokes.size()); ++j) {
                if (m_spokes[j].to != m_spokes[i].to) break;
                const unsigned a = m_spokes[i].corner, b = m_spokes[j].corner;
                if (Dot(face(a), face(b)) < m.m_leastCosine) continue;
                const unsigned first = fanOf(a), second = fanOf(b);
                m_fans[std::max(first, second)] = std::min(first, second);
            }
    }

    float angleAt(unsigned corner) const {
        const R3& tip = m.positionOf(corner);
        const Vector a(tip, m.positionOf(after(corner))), b(tip, m.positionOf(before(corner)));
        const double cosine = a.dot(b) / std::sqrt(a.dot(a) * b.dot(b));
        return std::acos(std::clamp(static_cast<float>(cosine), -1.0f, 1.0f));
    }

    void sumNormals() {
        m_sums.assign(m_corners.size(), R3());
        for (unsigned i = 0; i < m_corners.size(); ++i) m_sums[fanOf(i)] += angleAt(m_corners[i]) * face(i);
    }

    // Where they cancel each other, one is as good as another.
    R3 normalOf(unsigned fan) const {
        const R3& sum = m_sums[fan];
        const R3 normal = unit(Vector(sum.x, sum.y, sum.z));
        return Length(normal) > 0.0f ? normal : face(fan);
    }

    // Of each vertex here the first fan keeps it; the others get new ones.
    void assign() {
        m_order.clear();
        for (unsigned i = 0; i < m_corners.size(); ++i)
            m_order.emplace_back(m.m_mesh.indices[m_corners[i]], fanOf(i), m_corners[i]);
        std::sort(m_order.begin(), m_order.end());
        unsigned lastVertex = 0, lastFan = 0;
        bool first = true, isNew = false;
        for (const auto& [vertex, fan, corner] : m_order) {
            const bool sameVertex = !first && vertex == lastVertex;
            if (!sameVertex) {
                m.m_mesh.normals[vertex] = normalOf(fan);
                isNew = false;
            } else if (fan != lastFan) {
                m_splits.vertices.push_back(vertex);
                m_splits.normals.push_back(normalOf(fan));
                isNew = true;
            }
            if (isNew) m_splits.corners.emplace_back(corner, static_cast<unsigned>(m_splits.vertices.size()) - 1);
            lastVertex = vertex, lastFan = fan, first = false;
        }
    }

    const NormalMaker& m;
    Splits& m_splits;
    std::vector<unsigned> m_corners, m_fans;  // the fan of each: the first of its corners, when found
    std::vector<Spoke> m_spokes;
    std::vector<R3> m_sums;
    std::vector<std::tuple<unsigned, unsigned, unsigned>> m_order;  // vertex, fan, corner
};

template <class T>
void appendCopies(std::vector<T>& values, const std::vector<unsigned>& origins) {
    if (values.empty()) return;
    values.reserve(values.size() + origins.size());
    for (const unsigned vertex : origins) values.push_back(values[vertex]);
}

void NormalMaker::apply(const std::vector<Splits>& splits) {
    std::size_t total = m_mesh.positions.size();
    for (const Splits& s : splits) {
        for (const auto& [corner, number] : s.corners) m_mesh.indices[corner] = static_cast<unsigned>(total + number);
        total += s.vertices.size();
        m_origins.insert(m_origins.end(), s.vertices.begin(), s.vertices.end());
    }
    appendCopies(m_mesh.positions, m_origins);
    appendCopies(m_mesh.texCoords, m_origins);
    appendCopies(m_mesh.colors, m_origins);
    m_mesh.normals.reserve(total);
    for (const Splits& s : splits) m_mesh.normals.insert(m_mesh.normals.end(), s.normals.begin(), s.normals.end());
}

void NormalMaker::make() {
    makeFaceNormals();
    m_places = firstAtSamePlace(m_mesh.positions);
    listCorners();
    m_mesh.normals.assign(m_mesh.positions.size(), R3());
    std::vector<Splits> splits(chunkCount(m_mesh.positions.size()));
    inChunks(m_mesh.positions.size(), [&](std::size_t chunk, std::size_t begin, std::size_t end) {
        Around around(*this, splits[chunk]);
        for (std::size_t place = begin; place < end; ++place) around.treat(place);
    });
    apply(splits);
}

// Positions and indices of all, one mesh after the other. Indices beyond a mesh's vertices are beyond all.
MeshData together(const std::vector<MeshData*>& meshes) {
    MeshData all;
    for (const MeshData* mesh : meshes) {
        const std::size_t first = all.positions.size(), vertices = mesh->positions.size();
        all.positions.insert(all.positions.end(), mesh->positions.begin(), mesh->positions.end());
        for (const unsigned i : mesh->indices)
            all.indices.push_back(i < vertices ? static_cast<unsigned>(first + i) : 0xffffffffu);
    }
    return all;
}

}  // namespace

void makeNormals(MeshData& mesh, float crease) {
    if (mesh.indices.size() <= MostCorners) NormalMaker(mesh, crease).make();
}

void makeNormals(const std::vector<MeshData*>& meshes, float crease) {
    if (meshes.size() == 1) return makeNormals(*meshes[0], crease);
    MeshData all = together(meshes);
    const std::size_t before = all.positions.size();
    if (all.indices.size() > MostCorners) return;
    NormalMaker maker(all, crease);
    maker.make();
    std::vector<unsigned> numbers(maker.origins().size());  // of split vertices in their meshes; 0: not there yet
    std::size_t first = 0, corner = 0;
    for (MeshData* mesh : meshes) {
        const std::size_t vertices = mesh->positions.size();
        mesh->normals.assign(all.normals.begin() + static_cast<std::ptrdiff_t>(first),
                             all.normals.begin() + static_cast<std::ptrdiff_t>(first + vertices));
        std::vector<unsigned> origins;
        for (unsigned& index : mesh->indices) {
            const unsigned now = all.indices[corner++];
            if (index >= vertices || now < before) continue;
            unsigned& number = numbers[now - before];
            if (number == 0) {
                number = static_cast<unsigned>(vertices + origins.size());
                origins.push_back(index);
                mesh->normals.push_back(all.normals[now]);
            }
            index = number;
        }
        appendCopies(mesh->positions, origins);
        appendCopies(mesh->texCoords, origins);
        appendCopies(mesh->colors, origins);
        first += vertices;
    }
}

}  // namespace oxbeam
