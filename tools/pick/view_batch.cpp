#include "view_batch.h"

#include <algorithm>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

namespace velpick {

int ThreadsPerView(int threads, std::size_t views) {
    const std::size_t running =
        std::clamp<std::size_t>(views, 1, static_cast<std::size_t>(threads));
    return std::max(1, threads / static_cast<int>(running));
}

void PickViews(const ViewBatch& batch, std::size_t first, std::size_t last, const ViewMarks& onView,
               const std::atomic<bool>* stop) {
    tbb::task_arena arena(batch.settings.threads ? *batch.settings.threads
                                                 : tbb::task_arena::automatic);
    const int threads = arena.max_concurrency();
    PickSettings settings = batch.settings;
    settings.threads = ThreadsPerView(threads, last - first);
    arena.execute([&] {
        // One view per task: views cost about the same, and a stop is seen between views.
        tbb::parallel_for(
            tbb::blocked_range<std::size_t>(first, last, 1),
            [&](const tbb::blocked_range<std::size_t>& views) {
                for (std::size_t v = views.begin(); v != views.end(); ++v) {
                    if (stop && stop->load())
                        return;
                    PickRequest request{{batch.mesh}, batch.views[v], settings};
                    request.settings.region = batch.regions[batch.regions.size() == 1 ? 0 : v];
                    const PickResult result = MakePicker(settings.picker)->Pick(request);
                    onView(v, result.meshes[0].triangles);
                }
            });
    });
}

}  // namespace velpick
