#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <vector>

#include "picker.h"

namespace velpick {

/// Many views of one mesh, each picked exactly as a pick of that view alone would be.
struct ViewBatch {
    PickMesh mesh;  // shared by every view; only read
    std::vector<View> views;
    /// The region of each view, or one region for every view.
    std::vector<SelectionRegion> regions;
    /// The settings of every view but the region; `threads` is the most threads the whole
    /// batch uses: views are spread over them, and a view gets the threads left over when
    /// there are fewer views than threads. The graph picker is not taken.
    PickSettings settings;
};

/// Receives the sorted marked triangles of one view, on the thread that picked it; calls for
/// different views may run at the same time.
using ViewMarks = std::function<void(std::size_t view, const std::vector<std::size_t>& marked)>;

/// Picks views [first, last) of `batch` in parallel on a oneTBB arena of `settings.threads`
/// threads, handing each view's marks to `onView`. A view starts only while `stop` (if given)
/// is false, so setting it ends the call after the views already running. Exceptions of a
/// pick (PickError, std::bad_alloc) propagate after the running views end.
void PickViews(const ViewBatch& batch, std::size_t first, std::size_t last, const ViewMarks& onView,
               const std::atomic<bool>* stop = nullptr);

/// The threads each view's pick gets when `views` views share `threads` threads.
int ThreadsPerView(int threads, std::size_t views);

}  // namespace velpick
