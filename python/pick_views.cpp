#include "pick_views.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <pybind11/numpy.h>
#include <tbb/enumerable_thread_specific.h>

#include "camera_view.h"
#include "keyword_settings.h"
#include "pick_settings_validator.h"
#include "view_batch.h"

namespace velpick::python {

namespace py = pybind11;

namespace {

// How often the calling thread wakes to report progress and look for Ctrl-C.
constexpr std::chrono::milliseconds kPollInterval{100};

enum class Reduce { kNone, kAny, kCount };

Reduce ReduceMode(const py::object& reduce) {
    if (reduce.is_none())
        return Reduce::kNone;
    const std::string name = py::str(reduce);
    if (name == "any")
        return Reduce::kAny;
    if (name == "count")
        return Reduce::kCount;
    throw py::value_error("reduce: expected None, \"any\" or \"count\", got " +
                          py::repr(reduce).cast<std::string>());
}

// The polygon that covers the camera's whole screen, as the region argument gives polygons.
py::object ScreenRectangle(const Camera& camera) {
    py::list corners;
    for (const VelSDK::Math::point2d& p : WholeScreenRegion(camera).points)
        corners.append(py::make_tuple(p.x, p.y));
    return py::tuple(corners);
}

// A message about the keyword "camera" names the camera of the list instead.
std::string Relabelled(const std::string& message, const std::string& label) {
    const std::string camera = "camera";
    if (message.compare(0, camera.size(), camera) == 0)
        return label + message.substr(camera.size());
    return label + ": " + message;
}

// One view's settings and view, validated exactly as pick() validates them; messages name the
// camera's index.
void AddView(const py::handle& camera, std::size_t index, const py::object& region,
             py::dict keywords, ViewBatch& batch) {
    const std::string label = "cameras[" + std::to_string(index) + "]";
    keywords["camera"] = camera;
    try {
        // The view first: with no region, the camera's screen is the region.
        const double units = keywords["units_per_model_unit"].cast<double>();
        const View view =
            ValidateView(KeywordSettings(py::none(), keywords, PickFunction::kPick), units);
        const bool wholeScreen = region.is_none();
        const py::object viewRegion = wholeScreen ? ScreenRectangle(*view.camera) : region;
        const KeywordSettings source(viewRegion, keywords, PickFunction::kPick);
        const PickSettings settings = ValidatePickSettings(source);
        batch.views.push_back(view);
        if (index == 0)
            batch.settings = settings;
        if (index == 0 || wholeScreen)
            batch.regions.push_back(settings.region);
    } catch (const py::value_error& error) {
        throw py::value_error(Relabelled(error.what(), label));
    }
}

ViewBatch MakeBatch(HeldMesh& mesh, const py::sequence& cameras, const py::object& region,
                    const py::kwargs& keywords) {
    for (const char* name : {"camera", "view", "markable", "units_per_model_unit"}) {
        if (keywords.contains(name))
            throw py::type_error(std::string("pick_views() got an unexpected keyword argument '") +
                                 name + "' (cameras give the views; the Mesh its scale)");
    }
    py::dict settings(keywords);
    settings["units_per_model_unit"] = py::float_(mesh.unitsPerModelUnit);
    ViewBatch batch;
    batch.mesh = mesh.ToPickMesh();
    const std::size_t count = py::len(cameras);
    for (std::size_t i = 0; i < count; ++i)
        AddView(cameras[i], i, region, settings, batch);
    if (batch.settings.picker == "graph")
        throw py::value_error("picker: pick_views takes the triangle pickers, not \"graph\"");
    return batch;
}

// Calls progress(done, total), or drives a tqdm bar when progress is True.
class Progress {
  public:
    Progress(const py::object& progress, std::size_t total) : m_total(total) {
        if (progress.is_none() || (py::isinstance<py::bool_>(progress) && !progress.cast<bool>()))
            return;
        if (!py::isinstance<py::bool_>(progress)) {
            m_callback = progress;
            return;
        }
        try {
            m_bar = py::module_::import("tqdm").attr("tqdm")(py::arg("total") = total,
                                                             py::arg("unit") = "view");
        } catch (const py::error_already_set&) {
            // No tqdm here: the call runs without a bar.
        }
    }
    ~Progress() {
        if (m_bar)
            m_bar.attr("close")();
    }
    void Report(std::size_t done) {
        if (m_callback)
            m_callback(done, m_total);
        if (m_bar)
            m_bar.attr("update")(done - m_reported);
        m_reported = done;
    }

  private:
    std::size_t m_total, m_reported = 0;
    py::object m_callback, m_bar;
};

// Runs the batch on a thread of its own while this thread, holding the GIL between waits,
// reports progress and turns Ctrl-C into a stop between views.
void RunBatch(const ViewBatch& batch, const ViewMarks& onView, Progress& progress) {
    std::atomic<bool> stop{false};
    std::atomic<std::size_t> done{0};
    std::mutex mutex;
    std::condition_variable finished;
    bool over = false;
    std::exception_ptr failure;
    const ViewMarks counted = [&](std::size_t view, const std::vector<std::size_t>& marked) {
        onView(view, marked);
        ++done;
    };
    std::thread worker([&] {
        try {
            PickViews(batch, 0, batch.views.size(), counted, &stop);
        } catch (...) {
            failure = std::current_exception();
        }
        const std::lock_guard<std::mutex> lock(mutex);
        over = true;
        finished.notify_all();
    });
    bool interrupted = false;
    for (bool running = true; running;) {
        {
            const py::gil_scoped_release release;
            std::unique_lock<std::mutex> lock(mutex);
            running = !finished.wait_for(lock, kPollInterval, [&] { return over; });
        }
        if (!interrupted && PyErr_CheckSignals() != 0) {
            interrupted = true;
            stop = true;
        }
        if (!interrupted)
            progress.Report(done);
    }
    worker.join();
    if (interrupted)
        throw py::error_already_set();
    if (failure)
        std::rethrow_exception(failure);
}

}  // namespace

py::object PickViews(HeldMesh& mesh, const py::sequence& cameras, const py::object& region,
                     const py::object& reduce, const py::object& progress,
                     const py::kwargs& keywords) {
    const Reduce mode = ReduceMode(reduce);
    const ViewBatch batch = MakeBatch(mesh, cameras, region, keywords);
    const std::size_t views = batch.views.size(), faces = mesh.mesh->GetNumberOfTriangles();
    Progress bar(progress, views);
    if (mode == Reduce::kNone) {
        py::array_t<bool> rows(std::vector<py::ssize_t>{static_cast<py::ssize_t>(views),
                                                        static_cast<py::ssize_t>(faces)});
        bool* cells = rows.mutable_data();
        std::fill(cells, cells + views * faces, false);
        RunBatch(
            batch,
            [&](std::size_t view, const std::vector<std::size_t>& marked) {
                for (std::size_t face : marked)
                    cells[view * faces + face] = true;
            },
            bar);
        return std::move(rows);
    }
    // Each thread counts into its own array; they are summed once the views are done.
    tbb::enumerable_thread_specific<std::vector<std::uint32_t>> counts(
        [&] { return std::vector<std::uint32_t>(faces, 0); });
    RunBatch(
        batch,
        [&](std::size_t, const std::vector<std::size_t>& marked) {
            std::vector<std::uint32_t>& local = counts.local();
            for (std::size_t face : marked)
                ++local[face];
        },
        bar);
    py::array_t<std::uint32_t> total(static_cast<py::ssize_t>(faces));
    std::uint32_t* sum = total.mutable_data();
    std::fill(sum, sum + faces, 0u);
    for (const std::vector<std::uint32_t>& local : counts)
        for (std::size_t face = 0; face < faces; ++face)
            sum[face] += local[face];
    if (mode == Reduce::kCount)
        return std::move(total);
    return total.attr("astype")("bool");
}

}  // namespace velpick::python
