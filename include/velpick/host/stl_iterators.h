#pragma once

// Host-style iterators: `for (auto it = X::Begin(owner); it; ++it) use(*it);`. They also work
// in range-for loops through the ranges that meshes, surfaces and graphs return.

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

class MStlPoint;
class MStlTriangle;
class MStlSurface;
class MStlGraph;
class MStlGraphEdge;
class MStlBase;

/// The end of every host range.
struct MStlIteratorEnd {};

/// Walks a container from the first element to the last. `Element` is what operator* gives;
/// containers of pointers are dereferenced once more.
template <class Container, class Element>
class MStlSequenceIterator {
  public:
    using Iterator = decltype(std::declval<Container&>().begin());

    MStlSequenceIterator(Iterator current, Iterator end) : m_current(current), m_end(end) {}
    explicit operator bool() const { return m_current != m_end; }
    Element& operator*() const { return deref(*m_current); }
    Element* operator->() const { return &**this; }
    MStlSequenceIterator& operator++() {
        ++m_current;
        return *this;
    }
    bool operator!=(MStlIteratorEnd) const { return m_current != m_end; }

  private:
    template <class T>
    static Element& deref(T& value) {
        return value;
    }
    template <class T>
    static Element& deref(T* value) {
        return *value;
    }

    Iterator m_current, m_end;
};

/// A begin iterator and the end marker, for range-for.
template <class Iterator>
struct MStlRange {
    Iterator first;
    Iterator begin() const { return first; }
    MStlIteratorEnd end() const { return {}; }
};

/// Consecutive mesh triangles [first, end) of a surface.
struct MStlTriangleRun {
    std::uint32_t first, end;
};

/// Walks a surface's triangles in list order, run by run.
template <class Element>
class MStlSurfaceTriangleWalk {
  public:
    MStlSurfaceTriangleWalk(const MStlBase* stl, const std::vector<MStlTriangleRun>& runs)
        : m_stl(stl), m_run(runs.data()), m_runsEnd(runs.data() + runs.size()) {
        SkipEmptyRuns();
    }
    explicit operator bool() const { return m_run != m_runsEnd; }
    inline Element& operator*() const;
    Element* operator->() const { return &**this; }
    MStlSurfaceTriangleWalk& operator++() {
        ++m_current;
        SkipEmptyRuns();
        return *this;
    }
    bool operator!=(MStlIteratorEnd) const { return m_run != m_runsEnd; }

  private:
    void SkipEmptyRuns() {
        while (m_run != m_runsEnd && m_current >= m_run->end)
            if (++m_run != m_runsEnd)
                m_current = m_run->first;
    }

    const MStlBase* m_stl;
    const MStlTriangleRun* m_run;
    const MStlTriangleRun* m_runsEnd;
    std::uint32_t m_current = m_run != m_runsEnd ? m_run->first : 0;
};

class MStlIteratorSurfaceTriangle : public MStlSurfaceTriangleWalk<MStlTriangle> {
  public:
    using MStlSurfaceTriangleWalk::MStlSurfaceTriangleWalk;
    static MStlIteratorSurfaceTriangle Begin(const MStlSurface* surface);
};

class MStlIteratorSurfaceTriangleConst : public MStlSurfaceTriangleWalk<const MStlTriangle> {
  public:
    using MStlSurfaceTriangleWalk::MStlSurfaceTriangleWalk;
    static MStlIteratorSurfaceTriangleConst Begin(const MStlSurface* surface);
};

/// Every surface of a mesh, depth first: a surface, then its sub-surfaces, then its next
/// sibling. `_GoToNextSubFeature` (or ++) advances.
class MStlIteratorFeatureSurface {
  public:
    static MStlIteratorFeatureSurface Begin(const MStlBase* stl);
    static MStlIteratorFeatureSurface End(const MStlBase* stl);

    MStlSurface& operator*() const { return *m_current; }
    MStlSurface* operator->() const { return m_current; }
    explicit operator bool() const { return m_current != nullptr; }
    bool operator!=(const MStlIteratorFeatureSurface& other) const {
        return m_current != other.m_current;
    }
    bool operator!=(MStlIteratorEnd) const { return m_current != nullptr; }
    void _GoToNextSubFeature();
    MStlIteratorFeatureSurface& operator++() {
        _GoToNextSubFeature();
        return *this;
    }

  private:
    explicit MStlIteratorFeatureSurface(MStlSurface* first) : m_current(first) {}

    MStlSurface* m_current;
};
