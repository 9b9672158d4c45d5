#pragma once

// Per-element masks: a value of type T for every element of one kind (vertex, triangle or
// graph edge) of a mesh, kept in step with the mesh by the mesh's mask registry.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

class MStlPoint;
class MStlTriangle;
class MStlGraphEdge;
template <class E>
class MDataMaskBase;

/// Every mesh element carries its position in its kind's masks. A mesh holds fewer than 2^32
/// elements of each kind, so the index is kept in 32 bits.
class MDataMaskIndex {
  public:
    std::size_t GetMaskIndex() const { return m_maskIndex; }

  protected:
    explicit MDataMaskIndex(std::size_t maskIndex) : m_maskIndex(Checked(maskIndex)) {}

  private:
    static std::uint32_t Checked(std::size_t maskIndex) {
        if (maskIndex > UINT32_MAX)
            throw std::length_error("more than 2^32 mesh elements of one kind");
        return static_cast<std::uint32_t>(maskIndex);
    }

    std::uint32_t m_maskIndex;
};

/// The registry a mask registers with. Register returns the current number of elements of
/// the mask's kind; from then on the registry resizes the mask as elements are added.
class IDataMaskOwner {
  public:
    virtual std::size_t Register(MDataMaskBase<MStlPoint>* mask) = 0;
    virtual std::size_t Register(MDataMaskBase<MStlTriangle>* mask) = 0;
    virtual std::size_t Register(MDataMaskBase<MStlGraphEdge>* mask) = 0;
    virtual void Unregister(MDataMaskBase<MStlPoint>* mask) = 0;
    virtual void Unregister(MDataMaskBase<MStlTriangle>* mask) = 0;
    virtual void Unregister(MDataMaskBase<MStlGraphEdge>* mask) = 0;

  protected:
    ~IDataMaskOwner() = default;
};

/// A mask over elements of kind E, registered with its owner for its whole life. A mask may
/// outlive its mesh: the mesh detaches it, and it then keeps its values but no longer grows.
template <class E>
class MDataMaskBase {
  public:
    explicit MDataMaskBase(IDataMaskOwner* owner)
        : m_owner(owner), m_sizeAtRegistration(owner ? owner->Register(this) : 0) {}
    virtual ~MDataMaskBase() {
        if (m_owner)
            m_owner->Unregister(this);
    }
    MDataMaskBase(const MDataMaskBase&) = delete;
    MDataMaskBase& operator=(const MDataMaskBase&) = delete;

    /// The value of `from` copied to `to`.
    virtual void CopyInfo(const E& from, const E& to) = 0;
    virtual void CopyInfo(std::size_t from, std::size_t to) = 0;
    virtual void SwapInfo(const E& a, const E& b) = 0;
    virtual void SwapInfo(std::size_t a, std::size_t b) = 0;
    /// Resizes to `size` entries; new entries get the default value.
    virtual void _SetSize(std::size_t size) = 0;
    /// Resets one entry to the default value.
    virtual void _SetDefault(std::size_t index) = 0;

    IDataMaskOwner* GetOwner() const { return m_owner; }
    void _Detach() { m_owner = nullptr; }

  protected:
    std::size_t SizeAtRegistration() const { return m_sizeAtRegistration; }

  private:
    IDataMaskOwner* m_owner;
    std::size_t m_sizeAtRegistration;
};

/// A value of type T per element, stored in blocks of kBlockSize entries: the value of the
/// element with mask index i is slot i % kBlockSize of block i / kBlockSize. Blocks never move,
/// so references to values stay valid while the mesh grows.
template <class E, class T>
class MDataMask : public MDataMaskBase<E> {
  public:
    static constexpr std::size_t kBlockSize = 1024;

    MDataMask(IDataMaskOwner& owner, const T& defaultValue)
        : MDataMaskBase<E>(&owner), m_default(defaultValue) {
        _SetSize(this->SizeAtRegistration());
    }

    const T& GetInfo(const E& element) const { return (*this)[element.GetMaskIndex()]; }
    T& GetInfo(const E& element) { return (*this)[element.GetMaskIndex()]; }
    void SetInfo(const E& element, const T& value) { (*this)[element.GetMaskIndex()] = value; }

    const T& operator[](std::size_t i) const { return m_blocks[i / kBlockSize][i % kBlockSize]; }
    T& operator[](std::size_t i) { return m_blocks[i / kBlockSize][i % kBlockSize]; }
    std::size_t Size() const { return m_size; }
    const T& GetDefault() const { return m_default; }

    /// Copies every value of `other` (which must have the same size).
    void CopyFrom(const MDataMask& other) {
        for (std::size_t i = 0; i < m_size && i < other.m_size; ++i)
            (*this)[i] = other[i];
    }

    void CopyInfo(const E& from, const E& to) override {
        CopyInfo(from.GetMaskIndex(), to.GetMaskIndex());
    }
    void CopyInfo(std::size_t from, std::size_t to) override { (*this)[to] = (*this)[from]; }
    void SwapInfo(const E& a, const E& b) override { SwapInfo(a.GetMaskIndex(), b.GetMaskIndex()); }
    void SwapInfo(std::size_t a, std::size_t b) override {
        using std::swap;
        swap((*this)[a], (*this)[b]);
    }
    void _SetSize(std::size_t size) override {
        const std::size_t blocks = (size + kBlockSize - 1) / kBlockSize;
        if (blocks < m_blocks.size())
            m_blocks.resize(blocks);
        while (m_blocks.size() < blocks)
            m_blocks.push_back(std::make_unique<T[]>(kBlockSize));
        for (std::size_t i = m_size; i < size; ++i)
            (*this)[i] = m_default;
        m_size = size;
    }
    void _SetDefault(std::size_t index) override { (*this)[index] = m_default; }

  private:
    T m_default;
    std::vector<std::unique_ptr<T[]>> m_blocks;
    std::size_t m_size = 0;
};
