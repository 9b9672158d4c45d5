#include <velpick/host/feature_graphs.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <velpick/host/stl_base.h>

namespace {

using VelSDK::Math::point3d;

constexpr double kDegreesPerRadian = 180.0 / 3.14159265358979323846;
constexpr std::uint32_t kNone = UINT32_MAX;

// Half-edge h = 3t + c runs from corner c of triangle t to corner (c + 1) mod 3, so the walk
// of the triangles in creation order through their edges 0–1, 1–2, 2–0 meets half-edges in
// increasing order.
std::uint32_t TriangleOf(std::uint32_t h) {
    return h / 3;
}

std::uint32_t FromVertex(const MStlBase& stl, std::uint32_t h) {
    return stl.GetTriangle(h / 3).GetPointIndex(h % 3);
}

std::uint32_t ToVertex(const MStlBase& stl, std::uint32_t h) {
    return stl.GetTriangle(h / 3).GetPointIndex((h % 3 + 1) % 3);
}

// One mesh edge: its first and second half-edges in walk order (kNone when only one
// triangle uses it) and how many half-edges it has.
struct EdgeGroup {
    std::uint32_t first, second, count;
};

// The half-edges of a mesh grouped by vertex pair without hashing: a counting sort buckets
// them by the pair's lower vertex, and each bucket (a handful of half-edges) is sorted by the
// higher vertex and then the half-edge, so a pair's half-edges end up side by side in walk
// order. Linear in the mesh size but for the small sorts.
class HalfEdgeBuckets {
  public:
    explicit HalfEdgeBuckets(const MStlBase& stl) {
        const std::size_t halfEdges = 3 * stl.GetNumberOfTriangles();
        if (halfEdges >= kNone)
            throw std::length_error("feature graph: more than 2^32 - 1 half-edges");
        CountByLowerVertex(stl);
        Fill(stl, halfEdges);
    }

    /// Calls visit(EdgeGroup) once for every mesh edge, in no particular order.
    template <class Visit>
    void ForEachEdge(Visit&& visit) {
        for (std::size_t b = 0; b + 1 < m_offsets.size(); ++b) {
            std::uint64_t* begin = m_entries.data() + m_offsets[b];
            std::uint64_t* const end = m_entries.data() + m_offsets[b + 1];
            std::sort(begin, end);
            while (begin != end) {
                const std::uint64_t higher = *begin >> 32;
                std::uint64_t* group = begin;
                while (begin != end && *begin >> 32 == higher)
                    ++begin;
                const auto count = static_cast<std::uint32_t>(begin - group);
                visit(EdgeGroup{HalfEdge(group[0]), count > 1 ? HalfEdge(group[1]) : kNone, count});
            }
        }
    }

  private:
    static std::uint32_t HalfEdge(std::uint64_t entry) { return static_cast<std::uint32_t>(entry); }

    // Calls visit(h, from, to) for every half-edge, in order.
    template <class Visit>
    static void ForEachHalfEdge(const MStlBase& stl, Visit&& visit) {
        std::uint32_t h = 0;
        for (const MStlTriangle& triangle : stl.Triangles()) {
            const std::uint32_t v[3] = {triangle.GetPointIndex(0), triangle.GetPointIndex(1),
                                        triangle.GetPointIndex(2)};
            visit(h++, v[0], v[1]);
            visit(h++, v[1], v[2]);
            visit(h++, v[2], v[0]);
        }
    }

    void CountByLowerVertex(const MStlBase& stl) {
        m_offsets.assign(stl.GetNumberOfPoints() + 1, 0);
        ForEachHalfEdge(stl, [this](std::uint32_t, std::uint32_t a, std::uint32_t b) {
            ++m_offsets[std::min(a, b) + 1];
        });
        for (std::size_t v = 1; v < m_offsets.size(); ++v)
            m_offsets[v] += m_offsets[v - 1];
    }

    // Entry: the higher vertex in the upper 32 bits, the half-edge in the lower.
    void Fill(const MStlBase& stl, std::size_t halfEdges) {
        m_entries.resize(halfEdges);
        std::vector<std::uint32_t> next(m_offsets.begin(), m_offsets.end() - 1);
        ForEachHalfEdge(stl, [&](std::uint32_t h, std::uint32_t a, std::uint32_t b) {
            m_entries[next[std::min(a, b)]++] = std::uint64_t{std::max(a, b)} << 32 | h;
        });
    }

    std::vector<std::uint32_t> m_offsets;  // bucket of lower vertex v: [m_offsets[v], [v + 1])
    std::vector<std::uint64_t> m_entries;
};

// The angle in degrees between two unit normals, as atan2 of the cross and dot products
// (accurate for nearly coplanar triangles); NaN when either normal is zero.
double DihedralDegrees(double sine, double dot) {
    if (dot == 0.0 && sine == 0.0)
        return NAN;
    return std::atan2(sine, dot) * kDegreesPerRadian;
}

// A manifold edge's sharpness test, deciding most edges by a cosine comparison and leaving
// to the exact angle only those whose cosine lies within kCosineSlack of the threshold's.
// |cos a − cos b| ≤ |a − b|, so outside that band the angle is more than 1e-9 radians from
// the threshold, far beyond the few ulps by which atan2 and the degree conversion can move
// it: both tests give the same answer.
class SharpnessTest {
  public:
    explicit SharpnessTest(double degrees)
        : m_degrees(degrees),
          m_cosine(std::cos(degrees / kDegreesPerRadian)),
          m_useCosine(degrees >= 0.0 && degrees <= 180.0) {}

    /// Whether the triangles of unit normals n and m meet at more than the threshold. A NaN
    /// angle (a degenerate triangle) compares false: not sharp.
    bool operator()(const point3d& n, const point3d& m) const {
        const point3d cross{n.y * m.z - n.z * m.y, n.z * m.x - n.x * m.z, n.x * m.y - n.y * m.x};
        const double dot = n.x * m.x + n.y * m.y + n.z * m.z;
        const double sineSq = cross.x * cross.x + cross.y * cross.y + cross.z * cross.z;
        // sine² + dot² = |n|²·|m|²: within kUnitSlack of 1 the dot product is the cosine to
        // far better than kCosineSlack (a zero normal never gets here).
        if (m_useCosine && std::fabs(sineSq + dot * dot - 1.0) < kUnitSlack) {
            if (dot < m_cosine - kCosineSlack)
                return true;
            if (dot > m_cosine + kCosineSlack)
                return false;
        }
        // Both are unit vectors, so the plain length cannot overflow; the scaled Length would
        // turn a zero cross product into the smallest positive double.
        return DihedralDegrees(std::sqrt(sineSq), dot) > m_degrees;
    }

  private:
    static constexpr double kCosineSlack = 1e-9;
    static constexpr double kUnitSlack = 1e-12;

    double m_degrees, m_cosine;
    bool m_useCosine;  // the cosine decides only angles within [0°, 180°]
};

bool IsSharp(const std::vector<point3d>& normals, const EdgeGroup& edge,
             const SharpnessTest& sharp) {
    return sharp(normals[TriangleOf(edge.first)], normals[TriangleOf(edge.second)]);
}

// One byte per half-edge, set on the first half-edge of every edge `keep` accepts.
template <class Keep>
std::vector<std::uint8_t> SelectEdges(const MStlBase& stl, Keep keep) {
    std::vector<std::uint8_t> kept(3 * stl.GetNumberOfTriangles(), 0);
    HalfEdgeBuckets(stl).ForEachEdge([&](const EdgeGroup& edge) {
        if (keep(edge))
            kept[edge.first] = 1;
    });
    return kept;
}

// Adds the selected edges in walk order; orient(from, to) gives the ends in graph order.
template <class Orient>
MStlGraph* AddSelectedEdges(MStlGraph* graph, const MStlBase& stl,
                            const std::vector<std::uint8_t>& kept, Orient orient) {
    std::vector<MStlPoint*> ends;
    for (std::uint32_t h = 0; h < kept.size(); ++h) {
        if (!kept[h])
            continue;
        const auto [from, to] = orient(FromVertex(stl, h), ToVertex(stl, h));
        ends.push_back(&stl.GetPoint(from));
        ends.push_back(&stl.GetPoint(to));
    }
    graph->AddEdges(ends.data(), ends.size() / 2);
    return graph;
}

// Vertex numbers in order of first appearance along the triangles' corners.
std::vector<std::uint32_t> FirstUseNumbers(const MStlBase& stl) {
    std::vector<std::uint32_t> number(stl.GetNumberOfPoints(), kNone);
    std::uint32_t next = 0;
    for (std::size_t t = 0; t < stl.GetNumberOfTriangles(); ++t)
        for (std::size_t c = 0; c < 3; ++c) {
            std::uint32_t& n = number[stl.GetTriangle(t).GetPointIndex(c)];
            if (n == kNone)
                n = next++;
        }
    return number;
}

void RequireAngle(double degrees, const char* function) {
    if (std::isnan(degrees))
        throw std::invalid_argument(std::string(function) + ": the sharp angle is NaN");
}

std::unique_ptr<MStlGraph> BuildFeatureEdgeGraph(MStlBase& stl, double sharpAngleDegrees) {
    const auto normals = stl.GetTriangleNormals();
    const SharpnessTest sharp(sharpAngleDegrees);
    const std::vector<std::uint8_t> kept = SelectEdges(stl, [&](const EdgeGroup& edge) {
        return edge.count != 2 || IsSharp(*normals, edge, sharp);
    });
    const std::vector<std::uint32_t> number = FirstUseNumbers(stl);
    std::unique_ptr<MStlGraph> graph = stl._NewUnlistedGraph();
    AddSelectedEdges(graph.get(), stl, kept, [&](std::uint32_t from, std::uint32_t to) {
        return number[from] < number[to] ? std::pair(from, to) : std::pair(to, from);
    });
    return graph;
}

}  // namespace

MStlGraph* AddSharpEdgeGraph(MStlBase& stl, double minDihedralDegrees, bool includeSurfaceBorders) {
    RequireAngle(minDihedralDegrees, "AddSharpEdgeGraph");
    const auto normals = stl.GetTriangleNormals();
    const SharpnessTest sharp(minDihedralDegrees);
    const auto surface = [&stl](std::uint32_t h) { return stl.GetTriangle(h / 3).GetSurface(); };
    const std::vector<std::uint8_t> kept = SelectEdges(stl, [&](const EdgeGroup& edge) {
        if (edge.count > 2)
            return true;
        if (edge.count == 1)
            return includeSurfaceBorders;
        if (includeSurfaceBorders && surface(edge.first) != surface(edge.second))
            return true;
        return IsSharp(*normals, edge, sharp);
    });
    return AddSelectedEdges(stl.AddGraph(), stl, kept, [](std::uint32_t from, std::uint32_t to) {
        return std::pair(from, to);
    });
}

MStlGraph& FeatureEdgeGraph(MStlBase& stl, double sharpAngleDegrees) {
    RequireAngle(sharpAngleDegrees, "FeatureEdgeGraph");
    MStlBase::FeatureGraphCache& cache = stl._FeatureGraphs();
    const std::lock_guard<std::mutex> lock(cache.mutex);
    if (cache.triangles != stl.GetNumberOfTriangles()) {
        cache.graphs.clear();
        cache.triangles = stl.GetNumberOfTriangles();
    }
    std::unique_ptr<MStlGraph>& graph = cache.graphs[sharpAngleDegrees];
    if (!graph)
        graph = BuildFeatureEdgeGraph(stl, sharpAngleDegrees);
    return *graph;
}

void ReleaseFeatureEdgeGraphs(MStlBase& stl) {
    MStlBase::FeatureGraphCache& cache = stl._FeatureGraphs();
    const std::lock_guard<std::mutex> lock(cache.mutex);
    cache.graphs.clear();
}
