#include "Engine/Import/Helper/Vertices.h"

#include "Engine/Import/Helper/Parallel.h"

#include <bit>
#include <cstdint>

namespace oxbeam {

static constexpr unsigned None = 0xffffffffu;

// NaNs equal themselves here, and both zeros each other: whatever is equal must come to the same place of the table.
static std::uint32_t bitsOf(float value) { return value == 0.0f ? 0u : std::bit_cast<std::uint32_t>(value); }

static bool same(float a, float b) { return bitsOf(a) == bitsOf(b); }
static bool same(const R2& a, const R2& b) { return same(a.x, b.x) && same(a.y, b.y); }
static bool same(const R3& a, const R3& b) { return same(a.x, b.x) && same(a.y, b.y) && same(a.z, b.z); }

static std::uint64_t mixed(std::uint64_t hash, float value) {
    hash = (hash ^ bitsOf(value)) * 0x9e3779b97f4a7c15u;
    return hash ^ (hash >> 29);
}
static std::uint64_t mixed(std::uint64_t hash, const R2& v) { return mixed(mixed(hash, v.x), v.y); }
static std::uint64_t mixed(std::uint64_t hash, const R3& v) { return mixed(mixed(mixed(hash, v.x), v.y), v.z); }

// The first of all that are equal, for each of `count` things, by a table with open addressing that all threads fill.
// An entry, once taken, only ever changes to a lesser number of an equal thing, so that the outcome is always the same.
template <class Hash, class Equal>
static std::vector<unsigned> firstOfEqual(std::size_t count, Hash hash, Equal equal) {
    std::vector<unsigned> table(std::bit_ceil(2 * count + 1), None);
    const std::size_t mask = table.size() - 1;
    inChunks(count, [&](std::size_t, std::size_t begin, std::size_t end) {
        for (auto i = static_cast<unsigned>(begin); i < end; ++i) {
            for (std::size_t place = hash(i) & mask;; place = (place + 1) & mask) {
                const std::atomic_ref<unsigned> entry(table[place]);
                unsigned other = None;
                if (entry.compare_exchange_strong(other, i)) break;
                if (!equal(other, i)) continue;
                while (i < other && !entry.compare_exchange_weak(other, i)) {
                }
                break;
            }
        }
    });
    std::vector<unsigned> first(count);
    inChunks(count, [&](std::size_t, std::size_t begin, std::size_t end) {
        for (auto i = static_cast<unsigned>(begin); i < end; ++i) {
            std::size_t place = hash(i) & mask;
            while (!equal(table[place], i)) place = (place + 1) & mask;
            first[i] = table[place];
        }
    });
    return first;
}

std::vector<unsigned> firstAtSamePlace(const std::vector<R3>& positions) {
    return firstOfEqual(
        positions.size(), [&](unsigned i) { return mixed(0, positions[i]); },
        [&](unsigned i, unsigned j) { return same(positions[i], positions[j]); });
}

static std::vector<unsigned> firstAlike(const MeshData& mesh) {
    const auto hash = [&](unsigned i) {
        std::uint64_t h = mixed(0, mesh.positions[i]);
        if (!mesh.normals.empty()) h = mixed(h, mesh.normals[i]);
        if (!mesh.texCoords.empty()) h = mixed(h, mesh.texCoords[i]);
        return mesh.colors.empty() ? h : mixed(h, mesh.colors[i]);
    };
    const auto alike = [&](unsigned i, unsigned j) {
        return same(mesh.positions[i], mesh.positions[j]) &&
               (mesh.normals.empty() || same(mesh.normals[i], mesh.normals[j])) &&
               (mesh.texCoords.empty() || same(mesh.texCoords[i], mesh.texCoords[j])) &&
               (mesh.colors.empty() || same(mesh.colors[i], mesh.colors[j]));
    };
    return firstOfEqual(mesh.positions.size(), hash, alike);
}

// Those at numbers that are taken over move to their new numbers, which are never greater.
template <class T>
static void keep(std::vector<T>& values, const std::vector<unsigned>& newNumbers, std::size_t kept) {
    if (values.empty()) return;
    for (std::size_t i = 0; i < values.size(); ++i)
        if (newNumbers[i] != None) values[newNumbers[i]] = values[i];
    values.resize(kept);
    values.shrink_to_fit();
}

static std::size_t countUnused(const MeshData& mesh) {
    std::vector<bool> used(mesh.positions.size());
    for (const unsigned index : mesh.indices)
        if (index < used.size()) used[index] = true;
    return static_cast<std::size_t>(std::count(used.begin(), used.end(), false));
}

std::size_t joinVertices(MeshData& mesh) {
    const std::size_t unused = countUnused(mesh);
    std::vector<unsigned> numbers(mesh.positions.size(), None);
    {
        const std::vector<unsigned> first = firstAlike(mesh);
        for (unsigned& index : mesh.indices)
            if (index < first.size()) numbers[index = first[index]] = 0;
    }
    unsigned kept = 0;
    for (unsigned& number : numbers)
        if (number != None) number = kept++;
    if (kept == numbers.size()) return unused;
    for (unsigned& index : mesh.indices) index = index < numbers.size() ? numbers[index] : None;
    keep(mesh.positions, numbers, kept);
    keep(mesh.normals, numbers, kept);
    keep(mesh.texCoords, numbers, kept);
    keep(mesh.colors, numbers, kept);
    return unused;
}

}  // namespace oxbeam
