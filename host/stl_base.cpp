#include <velpick/host/stl_base.h>

#include <velpick/host/element_info.h>

static_assert(sizeof(MStlPoint) == 16, "a vertex takes 16 bytes");
static_assert(sizeof(MStlTriangle) == 32, "a triangle takes 32 bytes");

namespace {

// Mixes the three coordinates with large odd multipliers; the index compares exact values.
std::size_t coordinateHash(std::int32_t x, std::int32_t y, std::int32_t z) {
    const std::uint64_t h = static_cast<std::uint32_t>(x) * 0x9E3779B97F4A7C15ull ^
                            static_cast<std::uint32_t>(y) * 0xC2B2AE3D27D4EB4Full ^
                            static_cast<std::uint32_t>(z) * 0x165667B19E3779F9ull;
    return static_cast<std::size_t>(h ^ (h >> 29));
}

bool at(const MStlPoint& p, std::int32_t x, std::int32_t y, std::int32_t z) {
    return p[0] == x && p[1] == y && p[2] == z;
}

}  // namespace

MStlBase::MStlBase() = default;

MStlBase::~MStlBase() = default;

MStlSurface* MStlBase::AddSurface(const MStlSurface* parent) {
    auto& siblings = parent ? const_cast<MStlSurface*>(parent)->m_subSurfaces : m_surfaces;
    const auto number = static_cast<std::uint32_t>(m_surfacesByNumber.size());
    m_surfacesByNumber.reserve(m_surfacesByNumber.size() + 1);
    siblings.push_back(std::make_unique<MStlSurface>(MStlElementKey(), this,
                                                     const_cast<MStlSurface*>(parent), number));
    m_surfacesByNumber.push_back(siblings.back().get());
    siblings.back()->m_siblingIndex = siblings.size() - 1;
    return siblings.back().get();
}

MStlGraph* MStlBase::AddGraph() {
    m_graphs.push_back(std::make_unique<MStlGraph>(MStlElementKey(), this));
    return m_graphs.back().get();
}

std::unique_ptr<MStlGraph> MStlBase::_NewUnlistedGraph() {
    return std::make_unique<MStlGraph>(MStlElementKey(), this);
}

void MStlBase::PointIndex::Rebuild(const MStlElementStore<MStlPoint>& points,
                                   std::size_t capacity) {
    m_slots.assign(capacity, kEmpty);
    const std::size_t indexed = m_indexed;
    m_indexed = 0;
    for (std::size_t i = 0; i < indexed; ++i) {
        const MStlPoint& p = points[i];
        Slot(points, p[0], p[1], p[2]) = static_cast<std::uint32_t>(i);
    }
    m_indexed = indexed;
}

std::uint32_t& MStlBase::PointIndex::Slot(const MStlElementStore<MStlPoint>& points, std::int32_t x,
                                          std::int32_t y, std::int32_t z) {
    const std::size_t mask = m_slots.size() - 1;
    for (std::size_t s = coordinateHash(x, y, z) & mask;; s = (s + 1) & mask) {
        std::uint32_t& slot = m_slots[s];
        if (slot == kEmpty || at(points[slot], x, y, z))
            return slot;
    }
}

// Keeps the table at most half full, so probes stay short.
void MStlBase::PointIndex::Added(const MStlElementStore<MStlPoint>& points, std::size_t count) {
    if (2 * count > m_slots.size()) {
        std::size_t capacity = m_slots.empty() ? 64 : m_slots.size();
        while (2 * count > capacity)
            capacity *= 2;
        Rebuild(points, capacity);
    }
}

void MStlBase::PointIndex::CatchUp(const MStlElementStore<MStlPoint>& points) {
    if (m_indexed == points.Size())
        return;
    Added(points, points.Size());
    for (; m_indexed < points.Size(); ++m_indexed) {
        const MStlPoint& p = points[m_indexed];
        std::uint32_t& slot = Slot(points, p[0], p[1], p[2]);
        if (slot == kEmpty)  // an equal earlier vertex keeps its place in the index
            slot = static_cast<std::uint32_t>(m_indexed);
    }
}

MStlPoint* MStlBase::FindOrAddPoint(std::int32_t x, std::int32_t y, std::int32_t z) {
    m_pointIndex.CatchUp(m_points);
    m_pointIndex.Added(m_points, m_points.Size() + 1);
    std::uint32_t& slot = m_pointIndex.Slot(m_points, x, y, z);
    if (slot != PointIndex::kEmpty)
        return &m_points[slot];
    MStlPoint* point = AddDistinctPoint(x, y, z);
    slot = static_cast<std::uint32_t>(point->GetMaskIndex());
    m_pointIndex.CatchUp(m_points);  // nothing left to add: the new vertex is in its slot
    return point;
}

MStlPoint* MStlBase::FindPoint(std::int32_t x, std::int32_t y, std::int32_t z) const {
    const std::lock_guard<std::mutex> lock(m_cacheMutex);
    m_pointIndex.CatchUp(m_points);
    if (m_points.Size() == 0)
        return nullptr;
    const std::uint32_t slot = m_pointIndex.Slot(m_points, x, y, z);
    return slot == PointIndex::kEmpty ? nullptr : &m_points[slot];
}

MStlPoint* MStlBase::AddDistinctPoint(std::int32_t x, std::int32_t y, std::int32_t z) {
    MStlPoint& point = m_points.Emplace(MStlElementKey(), m_points.Size(), x, y, z);
    m_masks._ElementsAdded(&point, m_points.Size());
    return &point;
}

void MStlBase::AddDistinctPoints(const std::int32_t* xyz, std::size_t count) {
    const auto growMasks = [this] {
        m_masks._ElementsAdded(static_cast<const MStlPoint*>(nullptr), m_points.Size());
    };
    try {
        for (const std::int32_t* end = xyz + 3 * count; xyz != end; xyz += 3)
            m_points.Emplace(MStlElementKey(), m_points.Size(), xyz[0], xyz[1], xyz[2]);
    } catch (...) {
        growMasks();  // for the vertices made before the failure
        throw;
    }
    // Once for the batch: nothing reads the masks in between.
    growMasks();
}

void MStlBase::Reserve(std::size_t points, std::size_t triangles) {
    m_points.Reserve(points);
    m_triangles.Reserve(triangles);
}

MStlTriangle* MStlBase::_AddTriangle(std::uint32_t surface, const MStlPoint& a, const MStlPoint& b,
                                     const MStlPoint& c) {
    const auto index = [](const MStlPoint& p) {
        return static_cast<std::uint32_t>(p.GetMaskIndex());
    };
    MStlTriangle& triangle = m_triangles.Emplace(MStlElementKey(), m_triangles.Size(), this,
                                                 index(a), index(b), index(c), surface);
    m_masks._ElementsAdded(&triangle, m_triangles.Size());
    return &triangle;
}

void MStlBase::_AddTriangles(std::uint32_t surface, const std::uint32_t* corners,
                             std::size_t count) {
    const auto growMasks = [this] {
        m_masks._ElementsAdded(static_cast<const MStlTriangle*>(nullptr), m_triangles.Size());
    };
    try {
        for (const std::uint32_t* end = corners + 3 * count; corners != end; corners += 3)
            m_triangles.Emplace(MStlElementKey(), m_triangles.Size(), this, corners[0], corners[1],
                                corners[2], surface);
    } catch (...) {
        growMasks();  // for the triangles made before the failure
        throw;
    }
    // Once for the batch: nothing reads the masks in between.
    growMasks();
}

std::shared_ptr<const std::vector<VelSDK::Math::point3d>> MStlBase::GetTriangleNormals() const {
    const std::lock_guard<std::mutex> lock(m_cacheMutex);
    const std::size_t cached = m_normals ? m_normals->size() : 0;
    if (cached == m_triangles.Size())
        return m_normals;
    // Triangles never change once made, so only the ones added since are computed.
    auto normals = std::make_shared<std::vector<VelSDK::Math::point3d>>();
    normals->reserve(m_triangles.Size());
    if (m_normals)
        normals->assign(m_normals->begin(), m_normals->end());
    for (std::size_t i = cached; i < m_triangles.Size(); ++i)
        normals->push_back(m_triangles[i].GetNormal());
    m_normals = std::move(normals);
    return m_normals;
}

void MStlBase::_GraphEdgesAdded(std::size_t count) {
    m_graphEdgeCount += count;
    m_masks._ElementsAdded(static_cast<const MStlGraphEdge*>(nullptr), m_graphEdgeCount);
}
