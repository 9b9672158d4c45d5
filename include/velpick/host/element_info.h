#pragma once

#include <cstdint>

#include <velpick/host/data_mask.h>

class MStlBase;

/// Thickness of a graph edge at its two vertices: `first` at vertex 0, `second` at vertex 1,
/// in internal units (a radius is half the value).
struct MStlGraphEdgeThickness {
    std::int32_t first = 0;
    std::int32_t second = 0;
};

/// Optional per-mesh element information: the thickness of every graph edge, (0, 0) unless set.
class MStlBaseElementInfo {
  public:
    explicit MStlBaseElementInfo(MStlBase& stl);
    virtual ~MStlBaseElementInfo() = default;

    const MStlGraphEdgeThickness& GetEdgeThickness(const MStlGraphEdge& edge) const;
    void SetEdgeThickness(const MStlGraphEdge& edge, const MStlGraphEdgeThickness& thickness);

  private:
    MDataMask<MStlGraphEdge, MStlGraphEdgeThickness> m_edgeThickness;
};

/// The element information that hangs off a mesh, one per mesh at most.
class MStlBaseElementInfoStlDependency : public MStlBaseElementInfo {
  public:
    using MStlBaseElementInfo::MStlBaseElementInfo;

    /// The element information of `stl`. When it has none: null, or, with `create` true, a
    /// new one owned by the mesh. A null mesh gives null.
    static MStlBaseElementInfoStlDependency* GetDependency(const MStlBase* stl, bool create);
};
