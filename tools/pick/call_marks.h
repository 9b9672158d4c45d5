#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include <velpick/host/mark_triangles.h>
#include <velpick/host/stl_base.h>

namespace velpick {

/// The marks one pick makes on one mesh, kept apart from the mesh: a per-call mask that starts
/// as a copy of the triangles' own mark flags (start_marked, a host's earlier marks) and then
/// receives every mark and unmark of the operator. The mesh is only read, so several picks,
/// on several threads, may share it and each ends with exactly the marks it would have left in
/// the mesh had it run alone.
class CallMarks {
  public:
    explicit CallMarks(MStlBase& mesh);
    CallMarks(const CallMarks&) = delete;
    CallMarks& operator=(const CallMarks&) = delete;

    /// The sink to hand to the operator for this mesh.
    MStlMarkTrianglesByMasks* Sink() { return &m_sink; }
    /// Sorted indices of the triangles marked now.
    std::vector<std::size_t> Marked() const;

  private:
    const MStlBase& m_mesh;
    MStlMarkTrianglesByMasks m_sink;
};

/// One CallMarks per mesh, in the order given.
using CallMarksList = std::vector<std::unique_ptr<CallMarks>>;

}  // namespace velpick
