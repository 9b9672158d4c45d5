#pragma once

#include <string>
#include <thread>

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
    /// The thread that created the named mask.
    std::thread::id _GetCreator() const { return m_creator; }
    void _SetName(const std::wstring& name, std::thread::id creator) {
        m_name = name;
        m_creator = creator;
    }

  private:
    MStlBase* m_stl;
    std::wstring m_name;
    std::thread::id m_creator;
};

/// Named temporary masks: at most one mask of a name per mesh and thread, released only
/// through MStlNamedMask_Deleter, which also frees the name.
///
/// Names are scoped by the creating thread so that operators picking on the same mesh from
/// several threads (each with its temporary "filtered_by_planes" mask) do not refuse each
/// other; within one thread a taken name is refused as before. The name registry and the
/// mesh's mask registry are locked, so creating and releasing masks from several threads is
/// safe; each mask's values belong to the thread that uses it.
template <class E, class T, class M>
class MNamedStlMaskBase {
  public:
    /// A new mask named `name` on `stl`; null when `stl` is null or the calling thread has a
    /// mask of that name on it already.
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
