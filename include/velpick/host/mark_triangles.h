#pragma once

#include <cstddef>

#include <velpick/host/data_mask.h>

class MStlBase;
class MStlTriangle;

/// A marking sink: receives the marks an operator applies, instead of the triangles' own flag.
/// Mark is the third virtual operation and Unmark the fourth.
class IStlMarkTriangles {
  public:
    virtual ~IStlMarkTriangles() = default;
    virtual bool IsMarked(const MStlTriangle& triangle) const = 0;
    virtual void Mark(MStlTriangle& triangle) = 0;
    virtual void Unmark(MStlTriangle& triangle) = 0;
};

/// A sink that records marks in a per-triangle mask of one mesh; the triangles' own mark flags
/// are left alone. Must be destroyed before its mesh, or it stops following the mesh's growth.
class MStlMarkTrianglesByMasks : public IStlMarkTriangles {
  public:
    explicit MStlMarkTrianglesByMasks(MStlBase& stl);

    bool IsMarked(const MStlTriangle& triangle) const override;
    void Mark(MStlTriangle& triangle) override;
    void Unmark(MStlTriangle& triangle) override;
    std::size_t GetNumberOfMarked() const;

  private:
    MDataMask<MStlTriangle, unsigned char> m_marks;
};
