#include "Engine/Import/Helper/Polygon.h"

#include <cmath>
#include <numeric>

namespace oxbeam {

namespace {

struct Point {
    double x, y;
};

// Twice the area of a triangle; negative where it turns clockwise.
double area(const Point& a, const Point& b, const Point& c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

bool within(const Point& p, const Point& a, const Point& b, const Point& c) {
    return area(a, b, p) >= 0.0 && area(b, c, p) >= 0.0 && area(c, a, p) >= 0.0;
}

// Seen along the axis that its normal is closest to, and so that it turns counter-clockwise. The normal is Newell's.
std::vector<Point> flattened(const std::vector<R3>& polygon) {
    double n[3] = {};
    for (std::size_t i = 0; i < polygon.size(); ++i) {
        const R3 &a = polygon[i], &b = polygon[(i + 1) % polygon.size()];
        for (unsigned k = 0; k < 3; ++k) {
            const unsigned u = (k + 1) % 3, v = (k + 2) % 3;
            n[k] += (double{a[u]} - b[u]) * (double{a[v]} + b[v]);
        }
    }
    unsigned axis = 0;
    for (unsigned k = 1; k < 3; ++k)
        if (std::fabs(n[k]) > std::fabs(n[axis])) axis = k;
    const unsigned u = (axis + 1) % 3, v = (axis + 2) % 3;
    std::vector<Point> points;
    points.reserve(polygon.size());
    for (const R3& p : polygon) points.push_back({n[axis] < 0.0 ? -double{p[u]} : double{p[u]}, p[v]});
    return points;
}

class EarCutter {
public:
    explicit EarCutter(const std::vector<R3>& polygon) : m_points(flattened(polygon)), m_left(polygon.size()) {
        std::iota(m_left.begin(), m_left.end(), 0u);
    }

    void cut(std::vector<std::array<unsigned, 3>>& triangles) {
        while (m_left.size() > 3) {
            std::size_t ear = 0;
            while (ear < m_left.size() && !isEar(ear)) ++ear;
            if (ear == m_left.size()) ear = 0;  // it crosses itself, or has no area
            triangles.push_back({before(ear), m_left[ear], after(ear)});
            m_left.erase(m_left.begin() + static_cast<std::ptrdiff_t>(ear));
        }
        triangles.push_back({m_left[0], m_left[1], m_left[2]});
    }

private:
    unsigned before(std::size_t i) const { return m_left[(i + m_left.size() - 1) % m_left.size()]; }
    unsigned after(std::size_t i) const { return m_left[(i + 1) % m_left.size()]; }

    bool isEar(std::size_t i) const {
        const Point &a = m_points[before(i)], &b = m_points[m_left[i]], &c = m_points[after(i)];
        if (!(area(a, b, c) > 0.0)) return false;
        for (const unsigned other : m_left)
            if (other != before(i) && other != m_left[i] && other != after(i) && within(m_points[other], a, b, c))
                return false;
        return true;
    }

    std::vector<Point> m_points;
    std::vector<unsigned> m_left;
};

}  // namespace

void triangulate(const std::vector<R3>& polygon, std::vector<std::array<unsigned, 3>>& triangles) {
    triangles.clear();
    const auto corners = static_cast<unsigned>(polygon.size());
    if (corners > 3 && corners <= 256) return EarCutter(polygon).cut(triangles);
    for (unsigned i = 2; i < corners; ++i) triangles.push_back({0, i - 1, i});
}

}  // namespace oxbeam
