// Normals for meshes whose files have none.
#pragma once

#include "Engine/Scene/MeshData.h"

#include <vector>

namespace oxbeam {

inline constexpr float Crease = 40.0f;  // degrees

// A vertex gets the mean of the normals of the triangles around it, weighed by their angles there [G. Thürmer, C.
// Wüthrich: Computing Vertex Normals from Polygonal Facets. Journal of Graphics Tools 3(1), 1998]. Vertices at the same
// place count as one, whatever else tells them apart. Triangles whose normals differ by more than `crease` degrees at a
// common edge do not share theirs, unless they are joined by others all around; where they shared a vertex it becomes
// several, the further ones behind all there were. Triangles without area, or with indices that no vertex has, are left
// as they are; vertices that only they use get no normal (zero). A mesh of more than 2^32 - 1 corners gets none at all.
// In linear time, by several threads where the mesh is large, and always the same to the bit.
void makeNormals(MeshData& mesh, float crease = Crease);
// The same for the meshes of one thing, which its materials have cut apart, in one space.
void makeNormals(const std::vector<MeshData*>& meshes, float crease = Crease);

}  // namespace oxbeam
