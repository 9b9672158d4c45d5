#pragma once

#include <cstddef>

/// Asks the system to back the whole 2 MiB pages inside [data, data + bytes) with huge pages:
/// for large arrays that are written once and read often, such as mesh element storage. Writing
/// such memory first then costs one page fault per 2 MiB instead of one per 4 KiB, and the
/// array takes fewer address translations when it is read. Advice only: memory and contents are
/// unchanged, and where the system has no huge pages, or `bytes` spans no whole huge page,
/// nothing happens. The memory stays owned by whoever allocated it.
void MStlAdviseHugePages(void* data, std::size_t bytes);
