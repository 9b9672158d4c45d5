#pragma once

#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace AU_MarkOperations::PolygonMarking {

/// An allocator whose containers leave new elements unwritten when they grow without a value
/// (`resize(n)`, construction with a count): a run that fills only the entries it reads then
/// pays nothing for the rest of a mesh-sized buffer. Growth with a value (`assign(n, v)`,
/// `resize(n, v)`) writes it as usual. Only for trivially copyable, trivially destructible
/// element types, whose storage may be written before it is read.
template <class T>
class UninitializedAllocator : public std::allocator<T> {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

  public:
    template <class U>
    struct rebind {
        using other = UninitializedAllocator<U>;
    };

    UninitializedAllocator() = default;
    template <class U>
    UninitializedAllocator(const UninitializedAllocator<U>&) noexcept {}

    template <class U>
    void construct(U*) noexcept {}
    template <class U, class... Args>
    void construct(U* p, Args&&... args) {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
};

template <class T>
using UninitializedVector = std::vector<T, UninitializedAllocator<T>>;

}  // namespace AU_MarkOperations::PolygonMarking
