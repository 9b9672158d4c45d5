#include "heap_counter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> inUse{0};
std::atomic<std::size_t> peak{0};

void* Allocate(std::size_t size) {
    void* p = std::malloc(size ? size : 1);
    if (!p)
        throw std::bad_alloc();
    const std::size_t now = inUse += malloc_usable_size(p);
    for (std::size_t high = peak; now > high && !peak.compare_exchange_weak(high, now);) {
    }
    return p;
}

void Release(void* p) noexcept {
    if (!p)
        return;
    inUse -= malloc_usable_size(p);
    std::free(p);
}

}  // namespace

namespace bench {

std::size_t HeapBytesInUse() {
    return inUse;
}
std::size_t HeapPeak() {
    return peak;
}
void ResetHeapPeak() {
    peak = inUse.load();
}

}  // namespace bench

void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void operator delete(void* p) noexcept {
    Release(p);
}
void operator delete[](void* p) noexcept {
    Release(p);
}
void operator delete(void* p, std::size_t) noexcept {
    Release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    Release(p);
}
