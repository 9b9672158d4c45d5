#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "camera_view.h"
#include "message_text.h"
#include "pick_settings.h"
#include "picker.h"
#include "setting.h"

namespace velpick {

// The one validator of pick settings, for every source. A `Source` gives Find(setting), the
// setting's value as a field (see FieldRules) or nothing when the caller left it out, and
// Fail(setting, reason), which throws naming the setting in the caller's terms. Each check
// below is the only one of its kind.
namespace settings_detail {

// A field of view of 180 degrees or more sees nothing in front of a plane.
constexpr double kMaxFovDegrees = 180.0;
// How far RᵀR of a pinhole camera's R may stray from the identity, entry by entry.
constexpr double kRotationTolerance = 1e-6;

template <class Field>
MMTransformMatrix Matrix(const Field& field) {
    const std::vector<double> values = field.Numbers(16);
    if (values[12] != 0.0 || values[13] != 0.0 || values[14] != 0.0 || values[15] != 1.0)
        field.Fail("the last row must be 0 0 0 1 (affine transforms only)");
    std::array<double, 16> rowMajor;
    std::copy(values.begin(), values.end(), rowMajor.begin());
    const MMTransformMatrix matrix(rowMajor);
    MMTransformMatrix inverse(matrix);
    if (!inverse.Invert())
        field.Fail("the matrix is not invertible");
    return matrix;
}

template <class Field>
VelSDK::Math::point3d Point3(const Field& field) {
    const std::vector<double> v = field.Numbers(3);
    return {v[0], v[1], v[2]};
}

template <class Field>
std::vector<VelSDK::Math::point2d> Points(const Field& field, std::size_t minCount) {
    std::vector<VelSDK::Math::point2d> points;
    const std::size_t count = field.ArraySize(minCount, minCount == 1 ? "point" : "points");
    for (std::size_t i = 0; i < count; ++i) {
        const std::vector<double> v = field.Item(i).Numbers(2);
        points.push_back({v[0], v[1]});
    }
    return points;
}

// The width and height of a "screen" or "image" field.
template <class Field>
std::pair<double, double> ScreenField(const Field& field) {
    field.Numbers(2);
    return {field.Item(0).PositiveNumber(), field.Item(1).PositiveNumber()};
}

template <class Field>
OrthoCamera OrthographicCamera(const Field& field) {
    field.ExpectObject({"eye", "target", "up", "height", "screen"});
    OrthoCamera camera;
    camera.eye = Point3(field.Member("eye"));
    camera.target = Point3(field.Member("target"));
    camera.up = Point3(field.Member("up"));
    camera.height = field.Member("height").PositiveNumber();
    std::tie(camera.screenWidth, camera.screenHeight) = ScreenField(field.Member("screen"));
    return camera;
}

// Reports a camera fault on the field that caused it; returns when there is none.
template <class Field>
void CheckCameraFault(const Field& field, CameraFault fault) {
    switch (fault) {
        case CameraFault::kNone:
            return;
        case CameraFault::kEyeOnTarget:
            field.Fail("eye and target coincide");
        case CameraFault::kDistanceOverflows:
            field.Member("eye").Fail("too far from the target: their distance overflows");
        case CameraFault::kUpAlongView:
            field.Member("up").Fail("zero or parallel to the viewing direction");
        case CameraFault::kViewOutOfRange:
            field.Fail(
                "the view matrix leaves the double range (target too far out, or the "
                "ratio of screen to height too large or too small)");
        case CameraFault::kNearOutOfRange:
            field.Member("near").Fail("too large: beyond the double range in internal units");
    }
}

template <class Field>
MMTransformMatrix CameraMatrix(const Field& field, const OrthoCamera& camera,
                               double unitsPerModelUnit) {
    CameraFault fault = CameraFault::kNone;
    const std::optional<MMTransformMatrix> view = CameraView(camera, unitsPerModelUnit, &fault);
    CheckCameraFault(field, fault);
    return *view;
}

template <class Field>
std::optional<double> NearDistance(const Field& camera) {
    if (!camera.Has("near"))
        return std::nullopt;
    return camera.Member("near").PositiveNumber();
}

template <class Field>
PerspectiveCamera PerspectiveCameraField(const Field& field) {
    field.ExpectObject({"eye", "target", "up", "fov_deg", "screen", "near"});
    PerspectiveCamera camera;
    camera.eye = Point3(field.Member("eye"));
    camera.target = Point3(field.Member("target"));
    camera.up = Point3(field.Member("up"));
    const Field fov = field.Member("fov_deg");
    camera.fovDegrees = fov.Number();
    if (!(camera.fovDegrees > 0.0 && camera.fovDegrees < kMaxFovDegrees))
        fov.FailType("a number > 0 and < 180 (degrees)");
    std::tie(camera.screenWidth, camera.screenHeight) = ScreenField(field.Member("screen"));
    camera.nearDistance = NearDistance(field);
    return camera;
}

// A 3×3 matrix given as three rows of three numbers, row by row.
template <class Field>
std::array<double, 9> Matrix3(const Field& field) {
    if (!field.IsArray())
        field.FailType("3 rows of 3 numbers");
    if (field.Size() != 3)
        field.Fail("expected 3 rows of 3 numbers, got " + std::to_string(field.Size()) + " rows");
    std::array<double, 9> m;
    for (std::size_t row = 0; row < 3; ++row) {
        const std::vector<double> values = field.Item(row).Numbers(3);
        std::copy(values.begin(), values.end(), m.begin() + 3 * row);
    }
    return m;
}

template <class Field>
void Intrinsics(const Field& field, PinholeCamera& camera) {
    const std::array<double, 9> k = Matrix3(field);
    if (k[1] != 0.0 || k[3] != 0.0)
        field.Fail("skew is not supported: expected [[fx, 0, cx], [0, fy, cy], [0, 0, 1]]");
    if (k[6] != 0.0 || k[7] != 0.0 || k[8] != 1.0)
        field.Fail("the third row must be [0, 0, 1]");
    if (!(k[0] > 0.0 && k[4] > 0.0))
        field.Fail("fx and fy must be > 0, got " + std::to_string(k[0]) + " and " +
                   std::to_string(k[4]));
    camera.fx = k[0];
    camera.cx = k[2];
    camera.fy = k[4];
    camera.cy = k[5];
}

// A rotation: orthonormal to within kRotationTolerance in every entry of RᵀR, and no mirror.
template <class Field>
std::array<double, 9> Rotation(const Field& field) {
    const std::array<double, 9> r = Matrix3(field);
    double worst = 0.0;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            const double product = r[i] * r[j] + r[3 + i] * r[3 + j] + r[6 + i] * r[6 + j];
            worst = std::max(worst, std::abs(product - (i == j ? 1.0 : 0.0)));
        }
    }
    if (!(worst <= kRotationTolerance))
        field.Fail("not a rotation: max |RtR - I| is " + std::to_string(worst) + ", over 1e-6");
    const double determinant = r[0] * (r[4] * r[8] - r[5] * r[7]) -
                               r[1] * (r[3] * r[8] - r[5] * r[6]) +
                               r[2] * (r[3] * r[7] - r[4] * r[6]);
    if (determinant < 0.0)
        field.Fail("a reflection (determinant < 0), not a rotation");
    return r;
}

template <class Field>
PinholeCamera PinholeCameraField(const Field& field) {
    field.ExpectObject({"pinhole", "near"});
    const Field pinhole = field.Member("pinhole");
    pinhole.ExpectObject({"K", "R", "t", "image"});
    PinholeCamera camera;
    Intrinsics(pinhole.Member("K"), camera);
    camera.rotation = Rotation(pinhole.Member("R"));
    camera.translation = Point3(pinhole.Member("t"));
    std::tie(camera.imageWidth, camera.imageHeight) = ScreenField(pinhole.Member("image"));
    camera.nearDistance = NearDistance(field);
    return camera;
}

template <class Field>
std::string PickerName(const Field& field) {
    std::string name = field.String();
    if (MakePicker(name))
        return name;
    std::string known;
    for (const std::string& registered : PickerNames())
        known += (known.empty() ? "" : ", ") + registered;
    field.Fail("unknown picker \"" + Printable(name) + "\" (known: " + known + ")");
}

template <class Field>
ScanLineRule ScanLineRuleName(const Field& field) {
    const std::string name = field.String();
    std::string known;
    for (std::size_t rule = 0; rule < std::size(kScanLineRuleNames); ++rule) {
        if (name == kScanLineRuleNames[rule])
            return static_cast<ScanLineRule>(rule);
        known += (known.empty() ? "" : ", ") + std::string(kScanLineRuleNames[rule]);
    }
    field.Fail("unknown scan-line rule \"" + Printable(name) + "\" (known: " + known + ")");
}

template <class Field>
std::vector<MMPlaneEq<double>> Planes(const Field& field) {
    std::vector<MMPlaneEq<double>> planes;
    const std::size_t count = field.ArraySize(0, "planes");
    for (std::size_t i = 0; i < count; ++i) {
        const Field item = field.Item(i);
        const std::vector<double> v = item.Numbers(4);
        if (v[0] == 0.0 && v[1] == 0.0 && v[2] == 0.0)
            item.Fail("the normal (a, b, c) is zero");
        planes.push_back({v[0], v[1], v[2], v[3]});
    }
    return planes;
}

template <class Field>
int Threads(const Field& field) {
    const std::size_t threads = field.WholeNumber("threads");
    if (threads < 1 || threads > static_cast<std::size_t>(kMaxThreads))
        field.Fail("expected between 1 and " + std::to_string(kMaxThreads) + " threads, got " +
                   std::to_string(threads));
    return static_cast<int>(threads);
}

template <class Field>
double LinesPerPixel(const Field& field) {
    const double lines = field.PositiveNumber();
    if (lines > kMaxLinesPerPixel)
        field.Fail("expected at most " + std::to_string(static_cast<int>(kMaxLinesPerPixel)) +
                   " sample lines per pixel, got " + std::to_string(lines));
    return lines;
}

template <class Source>
GraphSettings Graph(const Source& source, double unitsPerModelUnit) {
    GraphSettings graph;
    if (const auto angle = source.Find(Setting::kSharpAngle))
        graph.sharpAngleDegrees = angle->Number();
    if (const auto thickness = source.Find(Setting::kThickness)) {
        graph.thickness = thickness->NonNegativeNumber();
        if (std::round(graph.thickness * unitsPerModelUnit) > kInt32Max)
            thickness->Fail("too large: over 2147483647 internal units");
    }
    if (const auto whole = source.Find(Setting::kMarkWholeCandidates))
        graph.markWholeCandidates = whole->Boolean();
    return graph;
}

// The scan-line picker takes any radius; the z-buffer picker works in whole screen units.
template <class Source>
SelectionRegion Region(const Source& source, const std::string& picker) {
    const auto polygon = source.Find(Setting::kPolygon);
    const auto path = source.Find(Setting::kBrushPath);
    if (polygon.has_value() == path.has_value())
        source.Fail(Setting::kRegion, "expected exactly one of \"polygon\" and \"brush\"");
    SelectionRegion region;
    if (polygon) {
        region.points = Points(*polygon, 3);
        return region;
    }
    if (picker == "graph")
        source.Fail(Setting::kRegion, "the graph picker takes a polygon, not a brush");
    region.shape = SelectionRegion::Shape::kBrush;
    region.points = Points(*path, 1);
    const auto radius = source.Find(Setting::kBrushRadius);
    if (!radius)
        source.Fail(Setting::kBrushRadius, "missing");
    region.brushRadius = picker == "scanline"
                             ? radius->NonNegativeNumber()
                             : static_cast<double>(radius->WholeNumber("screen units"));
    return region;
}

// The picker works on 32-bit pixels: refuse regions that would leave that range once scaled,
// naming the first point that does.
template <class Source>
void CheckRegionFitsPixels(const Source& source, const PickSettings& settings) {
    const bool brush = settings.region.shape == SelectionRegion::Shape::kBrush;
    const double p = settings.pixelProportion;
    const double radius = settings.region.brushRadius * p;
    if (radius > kMaxPixelCoordinate)
        source.Find(Setting::kBrushRadius)
            ->Fail("too large: the radius in pixels exceeds the 32-bit pixel range");
    const auto points = source.Find(brush ? Setting::kBrushPath : Setting::kPolygon);
    for (std::size_t i = 0; i < settings.region.points.size(); ++i) {
        const VelSDK::Math::point2d& q = settings.region.points[i];
        if (std::abs(q.x * p) + radius > kMaxPixelCoordinate ||
            std::abs(q.y * p) + radius > kMaxPixelCoordinate)
            points->Item(i).Fail("beyond the 32-bit pixel range at this pixel_proportion");
    }
}

template <class Field>
void Flag(const std::optional<Field>& field, bool& flag) {
    if (field)
        flag = field->Boolean();
}

}  // namespace settings_detail

/// The pick settings `source` gives, every one checked; the defaults of PickSettings for those
/// it leaves out.
template <class Source>
PickSettings ValidatePickSettings(const Source& source) {
    using namespace settings_detail;
    PickSettings settings;
    if (const auto units = source.Find(Setting::kUnitsPerModelUnit))
        settings.unitsPerModelUnit = units->PositiveNumber();
    if (const auto pixels = source.Find(Setting::kPixelProportion))
        settings.pixelProportion = pixels->PositiveNumber();
    if (const auto picker = source.Find(Setting::kPicker))
        settings.picker = PickerName(*picker);
    Flag(source.Find(Setting::kMarkThrough), settings.markThrough);
    Flag(source.Find(Setting::kBackFaceCulling), settings.backFaceCulling);
    Flag(source.Find(Setting::kUnmark), settings.unmark);
    Flag(source.Find(Setting::kSkipHiddenSurfaces), settings.skipHiddenSurfaces);
    if (const auto tolerance = source.Find(Setting::kDepthTolerance))
        settings.depthTolerance = tolerance->NonNegativeNumber();
    if (const auto planes = source.Find(Setting::kClippingPlanes))
        settings.clippingPlanes = Planes(*planes);
    if (const auto lines = source.Find(Setting::kLinesPerPixel))
        settings.linesPerPixel = LinesPerPixel(*lines);
    if (const auto rule = source.Find(Setting::kScanLineRule))
        settings.scanlineRule = ScanLineRuleName(*rule);
    if (const auto threads = source.Find(Setting::kThreads))
        settings.threads = Threads(*threads);
    settings.graph = Graph(source, settings.unitsPerModelUnit);
    settings.region = Region(source, settings.picker);
    CheckRegionFitsPixels(source, settings);
    return settings;
}

/// The view of one camera field, its matrix at `unitsPerModelUnit`: a pinhole camera when it
/// has "pinhole", a perspective one when it has "fov_deg", else an orthographic one.
template <class Field>
View CameraFieldView(const Field& field, double unitsPerModelUnit) {
    using namespace settings_detail;
    if (field.Has("pinhole") || field.Has("fov_deg")) {
        CameraFault fault = CameraFault::kNone;
        const std::optional<View> view =
            field.Has("pinhole")
                ? PinholeView(PinholeCameraField(field), unitsPerModelUnit, &fault)
                : PerspectiveView(PerspectiveCameraField(field), unitsPerModelUnit, &fault);
        CheckCameraFault(field, fault);
        return *view;
    }
    const OrthoCamera ortho = OrthographicCamera(field);
    return {CameraMatrix(field, ortho, unitsPerModelUnit), Camera(ortho)};
}

/// The view `source` gives: a matrix, or a camera made into one at `unitsPerModelUnit`.
template <class Source>
View ValidateView(const Source& source, double unitsPerModelUnit) {
    using namespace settings_detail;
    const auto matrix = source.Find(Setting::kView);
    const auto camera = source.Find(Setting::kCamera);
    if (matrix.has_value() == camera.has_value())
        source.Fail(Setting::kViewOrCamera, "expected exactly one of \"view\" and \"camera\"");
    if (camera)
        return CameraFieldView(*camera, unitsPerModelUnit);
    View view;
    view.matrix = Matrix(*matrix);
    return view;
}

/// The views of a `camera` given as a list of cameras, one per camera in order; a single view
/// (one camera or a matrix) as ValidateView reads it otherwise.
template <class Source>
std::vector<View> ValidateViews(const Source& source, double unitsPerModelUnit) {
    const auto camera = source.Find(Setting::kCamera);
    if (!camera || !camera->IsArray())
        return {ValidateView(source, unitsPerModelUnit)};
    if (source.Find(Setting::kView))
        source.Fail(Setting::kViewOrCamera, "expected exactly one of \"view\" and \"camera\"");
    std::vector<View> views;
    const std::size_t count = camera->ArraySize(1, "camera");
    for (std::size_t i = 0; i < count; ++i)
        views.push_back(CameraFieldView(camera->Item(i), unitsPerModelUnit));
    return views;
}

}  // namespace velpick
