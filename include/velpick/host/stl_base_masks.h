#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

#include <velpick/host/data_mask.h>

/// The mask registry of a mesh: every registered mask has one entry per element of its kind,
/// and the registry grows them as the mesh grows. Registering and unregistering are locked, so
/// masks of one mesh may be created and released on several threads at once.
class MStlBaseMasks : public IDataMaskOwner {
  public:
    MStlBaseMasks() = default;
    /// Detaches the masks still registered; they keep their values and stop growing.
    ~MStlBaseMasks();
    MStlBaseMasks(const MStlBaseMasks&) = delete;
    MStlBaseMasks& operator=(const MStlBaseMasks&) = delete;

    std::size_t Register(MDataMaskBase<MStlPoint>* mask) override;
    std::size_t Register(MDataMaskBase<MStlTriangle>* mask) override;
    std::size_t Register(MDataMaskBase<MStlGraphEdge>* mask) override;
    void Unregister(MDataMaskBase<MStlPoint>* mask) override;
    void Unregister(MDataMaskBase<MStlTriangle>* mask) override;
    void Unregister(MDataMaskBase<MStlGraphEdge>* mask) override;

    /// Called by the mesh after it appends an element: every mask of that kind grows to
    /// `count` entries, the new ones holding the mask's default.
    void _ElementsAdded(const MStlPoint*, std::size_t count);
    void _ElementsAdded(const MStlTriangle*, std::size_t count);
    void _ElementsAdded(const MStlGraphEdge*, std::size_t count);

    std::size_t GetNumberOfMasks() const {
        return m_pointMasks.size() + m_triangleMasks.size() + m_edgeMasks.size();
    }

  private:
    template <class E>
    struct Kind {
        std::vector<MDataMaskBase<E>*> masks;
        std::size_t count = 0;
        std::size_t size() const { return masks.size(); }
    };

    template <class E>
    static std::size_t add(Kind<E>& kind, MDataMaskBase<E>* mask);
    template <class E>
    static void remove(Kind<E>& kind, MDataMaskBase<E>* mask);
    template <class E>
    static void grow(Kind<E>& kind, std::size_t count);

    std::mutex m_mutex;  // guards the lists below
    Kind<MStlPoint> m_pointMasks;
    Kind<MStlTriangle> m_triangleMasks;
    Kind<MStlGraphEdge> m_edgeMasks;
};
