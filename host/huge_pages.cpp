#include <velpick/host/huge_pages.h>

#include <sys/mman.h>

#include <cstdint>

void MStlAdviseHugePages(void* data, std::size_t bytes) {
#ifdef MADV_HUGEPAGE
    constexpr std::uintptr_t kHugePage = std::uintptr_t{1} << 21;
    const auto start = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t first = (start + kHugePage - 1) & ~(kHugePage - 1);
    const std::uintptr_t end = (start + bytes) & ~(kHugePage - 1);
    // The partial huge pages at either end may be shared with other allocations: left alone.
    if (first < end)
        ::madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
#else
    (void)data;
    (void)bytes;
#endif
}
