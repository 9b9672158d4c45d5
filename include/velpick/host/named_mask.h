#pragma once

#include <string>

#include <velpick/host/data_mask.h>

class MStlBase;

/// A float per graph edge of one mesh.
class MStlScalarMaskGraphEdges : public MDataMask<MStlGraphEdge, float> {
  public:
    explicit MStlScalarMaskGraphEdges(MStlBase& stl, float defaultValue = 0.0f);

    void SetScalar(const MStlGraphEdge& edge, float value) { SetInfo(edge, value); }
    double GetScalar(const MStlGraphEdge& edge) const { return GetInfo(edge); }
    MStlBase* GetStl() const { return m_stl; }
    /// The name under which the mask was created, empty for an unnamed mask.
    const std::wstring& GetName() const { return m_name; }
    void _SetName(const std::wstring& name) { m_name = name; }

  private:
    MStlBase* m_stl;
    std::wstring m_name;
};

/// Named temporary masks: at most one mask of a name per mesh, released only through
/// MStlNamedMask_Deleter, which also frees the name.
template <class E, class T, class M>
class MNamedStlMaskBase {
  public:
    /// A new mask named `name` on `stl`; null when `stl` is null or the name is taken.
    static M* Create(MStlBase* stl, const std::wstring& name);
};

namespace VelSDK::Triangles::Data::TemporaryObjects {

/// Releases a named mask created by MNamedStlMaskBase::Create and frees its name. A mask whose
/// mesh was destroyed first is only released.
template <class M>
struct MStlNamedMask_Deleter {
    void operator()(M* mask) const;
};

}  // namespace VelSDK::Triangles::Data::TemporaryObjects
