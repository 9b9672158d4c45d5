// The z-buffer picker when its rasters cannot be allocated: this program's allocator refuses
// every request above kAllocationLimit, standing in for a machine without that memory.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <vector>

#include <velpick/host/stl_base.h>
#include <velpick/mark_polygon.h>
#include "support/scene_builders.h"

namespace {
constexpr std::size_t kAllocationLimit = std::size_t{1} << 30;
}  // namespace

// The replacement deletes free what the replacement new took from malloc; GCC cannot see
// that they pair once it inlines them.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

// Every form is replaced: under AddressSanitizer the forms left out would come from its own
// allocator and be freed here, which it reports as a mismatch.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return size <= kAllocationLimit ? std::malloc(size ? size : 1) : nullptr;
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}
void* operator new(std::size_t size) {
    void* memory = operator new(size, std::nothrow);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

namespace {

TEST(MarkPolygonMemory, RasterBeyondMemoryThrowsBadAllocMarkingNothingAndCanRunAgain) {
    auto sphere = scene::uvSphere({0, 0, 0}, 3000, 8, 16);
    MMTransformMatrix view;
    view.MakeScale1D(0.001);
    const MMTransformMatrix placement;
    const auto marked = [&] {
        std::size_t count = 0;
        for (MStlTriangle& triangle : sphere->Triangles())
            count += triangle.IsMarked();
        return count;
    };
    for (const bool markThrough : {false, true}) {
        MStlBaseOperatorMarkPolygon picker;
        picker.AddStl(sphere.get(), &view, &placement, true, nullptr);
        picker.SetMarkThrough(markThrough);
        // At 5 pixels per unit: 46 000 × 46 000 pixels, under the cell limit, over the memory.
        picker.SetPolygon({{-4600, -4600}, {4599.9, -4600}, {0, 4599.9}});
        EXPECT_THROW(picker.operate(), std::bad_alloc) << markThrough;
        EXPECT_EQ(marked(), 0u);
        picker.SetPolygon({{-1, -1}, {1, -1}, {1, 1}, {-1, 1}});
        EXPECT_TRUE(picker.operate());
        EXPECT_GT(marked(), 0u);
        for (MStlTriangle& triangle : sphere->Triangles())
            triangle.Unmark();
    }
}

}  // namespace
