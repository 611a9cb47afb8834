#include "Engine/World/Placements.h"

#include "Engine/World/Places.h"

#include <algorithm>
#include <set>
#include <utility>

namespace oxbeam {

const std::vector<std::string>& rayKindNames() {
    static const std::vector<std::string> names = {"primary", "shadow", "transparency", "refraction", "reflection"};
    return names;
}

Placed& Placements::find(std::string_view place) { return const_cast<Placed&>(std::as_const(*this).at(place)); }

const Placed& Placements::at(std::string_view place) const {
    const auto found =
        std::find_if(m_placements.begin(), m_placements.end(), [&](const Placed& p) { return p.place == place; });
    if (found != m_placements.end()) return *found;
    std::vector<std::string> known;
    for (const Placed& placement : m_placements) known.push_back(placement.place);
    throw NoSuchName("the scene has no '" + std::string(place) + "'" + placeMeant(place, known));
}

Matrix Placing::matrix() const {
    Matrix placement = ScaleMatrix(scale) * turnUp;
    for (unsigned axis = 0; axis < 3; ++axis)
        placement = RotationMatrix(axis, rotate[axis] * 3.14159265f / 180.0f) * placement;
    return TranslationMatrix(translate) * placement;
}

void Placements::requireMovable(const Placed& placement, const char* what) const {
    if (!m_geometry.changeable &&
        !std::all_of(placement.parts.begin(), placement.parts.end(),
                     [&](const Placed::Part& part) { return m_geometry.isMovable(part.instance); }))
        throw BadValue(labelOf(placement.place) + " cannot be " + what + ": the scene was loaded to stay as it is");
    if (!placement.movable) throw BadValue(labelOf(placement.place) + " cannot be " + what + ": it is without end");
}

void Placements::move(std::string_view place, const Matrix& toWorld) {
    Placed& placement = find(place);
    requireMovable(placement, "moved");
    placement.toWorld = toWorld;
    placement.by.reset();
    for (const Placed::Part& part : placement.parts) m_geometry.moveInstance(part.instance, toWorld * part.toPlaced);
}

void Placements::placeBy(std::string_view place, const Placing& by) {
    move(place, by.matrix());
    find(place).by = by;
}

void Placements::pose(std::string_view place, const std::vector<Matrix>& toPlaced) {
    Placed& placement = find(place);
    const auto by = placement.by;
    for (std::size_t i = 0; i < placement.parts.size(); ++i) placement.parts[i].toPlaced = toPlaced[i];
    move(place, Matrix(placement.toWorld));
    placement.by = by;
}

void Placements::setVisibility(std::string_view place, Oxuint mask) {
    for (const Placed::Part& part : at(place).parts) m_geometry.setVisibility(part.instance, mask);
}

void Placements::setShader(std::string_view place, unsigned shader) {
    for (const Placed::Part& part : at(place).parts) m_geometry.setShader(part.instance, shader);
}

static std::string meshPlace(unsigned number) { return "mesh." + std::to_string(number); }

static std::string listOf(const std::string& place) { return place.substr(0, place.find('.')); }
static unsigned numberOf(const std::string& place) {
    return static_cast<unsigned>(std::stoul(place.substr(place.find('.') + 1)));
}

void Placements::remove(std::string_view place) {
    const Placed gone = at(place);
    for (const Placed::Part& part : gone.parts) m_geometry.removeInstance(part.instance);
    std::erase_if(m_placements, [&](const Placed& p) { return p.place == gone.place; });
    for (Placed& other : m_placements)
        if (listOf(other.place) == listOf(gone.place) && numberOf(other.place) > numberOf(gone.place))
            other.place = listOf(other.place) + '.' + std::to_string(numberOf(other.place) - 1);
    orderMeshes();
}

// As a file is read: what a file or a shape holds where it first stands, and the grounds last.
void Placements::orderMeshes() {
    std::vector<unsigned> order;
    for (const bool movable : {true, false})
        for (const Placed& placement : m_placements) {
            if (placement.movable != movable) continue;
            const auto first = order.size();
            for (const Placed::Part& part : placement.parts) order.push_back(m_geometry.meshOf(part.instance));
            std::sort(order.begin() + static_cast<std::ptrdiff_t>(first), order.end());
        }
    m_geometry.orderMeshes(std::move(order));
}

std::string Placements::nextMesh() const {
    const auto meshes = std::count_if(m_placements.begin(), m_placements.end(),
                                      [](const Placed& p) { return listOf(p.place) == "mesh"; });
    return meshPlace(static_cast<unsigned>(meshes));
}

std::string Placements::addMesh(MeshData mesh, unsigned shader, const Matrix& toWorld, Oxuint visibility) {
    m_geometry.distinctIds = false;  // whatever a file ended with
    const unsigned number = m_geometry.addMesh(std::move(mesh));
    const unsigned instance = m_geometry.addInstance(number, toWorld, shader, visibility);
    m_placements.push_back({nextMesh(), toWorld, {{instance, {}}}, true});
    orderMeshes();
    return m_placements.back().place;
}

std::string Placements::addAgain(std::string_view place, const Matrix& toWorld) {
    const Placed like = at(place);
    requireMovable(like, "placed again");
    Placed added{nextMesh(), toWorld, {}, true};
    for (const Placed::Part& part : like.parts) {
        const Instance& one = *m_geometry.scene().instances[part.instance];
        const unsigned instance = m_geometry.addInstance(m_geometry.meshOf(part.instance), toWorld * part.toPlaced,
                                                         one.shaderBias, one.visibilityMask);
        added.parts.push_back({instance, part.toPlaced});
    }
    m_placements.push_back(std::move(added));
    orderMeshes();
    return m_placements.back().place;
}

}  // namespace oxbeam
