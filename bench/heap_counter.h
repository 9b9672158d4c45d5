#pragma once

// Bytes held through operator new by the whole benchmark program (library included): the
// program replaces the global allocation functions to count them.

#include <cstddef>

namespace bench {

/// Bytes allocated and not yet freed.
std::size_t HeapBytesInUse();
/// The most bytes in use at once since the last ResetHeapPeak().
std::size_t HeapPeak();
void ResetHeapPeak();

}  // namespace bench
