// Affine transformation of points (column vectors): p' = M p.
#pragma once

#include "Primitives/Vec.h"

struct Matrix {
    float m[3][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};  // row by row; the translation is the last column

    constexpr bool operator==(const Matrix&) const = default;
};

constexpr R3 TransformVector(const Matrix& a, const R3& v) {
    return {a.m[0][0] * v.x + a.m[0][1] * v.y + a.m[0][2] * v.z, a.m[1][0] * v.x + a.m[1][1] * v.y + a.m[1][2] * v.z,
            a.m[2][0] * v.x + a.m[2][1] * v.y + a.m[2][2] * v.z};
}

constexpr R3 TransformPoint(const Matrix& a, const R3& p) {
    return TransformVector(a, p) + R3(a.m[0][3], a.m[1][3], a.m[2][3]);
}

// The transformation that applies b first, then a.
constexpr Matrix operator*(const Matrix& a, const Matrix& b) {
    Matrix r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j) {
            r.m[i][j] = a.m[i][0] * b.m[0][j] + a.m[i][1] * b.m[1][j] + a.m[i][2] * b.m[2][j];
            if (j == 3) r.m[i][j] += a.m[i][3];
        }
    return r;
}

// The matrix of cofactors of the linear part, that is its inverse transposed times its determinant. It turns
// normals as the inverse transposed does, keeps their side under mirroring after division by the sign of the
// determinant, and exists for singular matrices too.
constexpr Matrix CofactorMatrix(const Matrix& a) {
    const auto& m = a.m;
    Matrix r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const int i1 = (i + 1) % 3, i2 = (i + 2) % 3, j1 = (j + 1) % 3, j2 = (j + 2) % 3;
            r.m[i][j] = m[i1][j1] * m[i2][j2] - m[i1][j2] * m[i2][j1];
        }
    return r;
}

constexpr float Determinant(const Matrix& a) {
    return Dot(R3(a.m[0][0], a.m[0][1], a.m[0][2]),
               Cross(R3(a.m[1][0], a.m[1][1], a.m[1][2]), R3(a.m[2][0], a.m[2][1], a.m[2][2])));
}

constexpr Matrix TranslationMatrix(const R3& t) {
    Matrix r;
    r.m[0][3] = t.x, r.m[1][3] = t.y, r.m[2][3] = t.z;
    return r;
}

constexpr Matrix ScaleMatrix(const R3& s) {
    Matrix r;
    r.m[0][0] = s.x, r.m[1][1] = s.y, r.m[2][2] = s.z;
    return r;
}

// Rotation by `radians` about coordinate axis 0, 1 or 2, counter-clockwise as seen from the axis' tip.
inline Matrix RotationMatrix(unsigned axis, float radians) {
    const float c = std::cos(radians), s = std::sin(radians);
    const unsigned j = (axis + 1) % 3, k = (axis + 2) % 3;
    Matrix r;
    r.m[j][j] = c, r.m[j][k] = -s;
    r.m[k][j] = s, r.m[k][k] = c;
    return r;
}
