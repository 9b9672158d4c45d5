#include "scene_help.h"

#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>

#include "pick_settings.h"
#include "picker.h"
#include "scene.h"

namespace velpick {

namespace {

constexpr const char* kFieldsHelp =
    R"(Scene file (JSON; every field but meshes, view or camera, and region is optional):
  units_per_model_unit  internal units per model unit ({units}); meshes are scaled by it
  meshes                [{ "file": path relative to the scene, "placement": 16 numbers
                        (identity), "markable": "all" or [surface indices] ("all"),
                        "hidden_surfaces": [surface indices] }]; OBJ groups are surfaces
  view                  16 numbers, row-major, column vectors: scene internal units to
                        screen units (x, y on screen, z depth, larger nearer); or instead
  camera                orthographic: { "eye", "target", "up": [x,y,z] in model units,
                        "height": model units across the screen's height, "screen": [w, h]
                        screen units };
                        perspective: the same with "fov_deg" (vertical field of view,
                        0 < fov < 180) in place of "height": the plane through the target
                        maps as the orthographic camera of height 2 d tan(fov/2), d the
                        eye-target distance;
                        pinhole: { "pinhole": { "K": [[fx,0,cx],[0,fy,cy],[0,0,1]], "R": 3x3
                        rotation, "t": [3] model units, "image": [w, h] pixels } }: camera
                        coordinates R X + t (z forward, x right, y down), image point
                        (fx x/z + cx, fy y/z + cy), whole (u, v) at pixel centres; the region
                        is then in image coordinates (u right, v down), the screen the image;
                        perspective and pinhole take "near" (model units; default {near} of the
                        distance from the eye to the farthest corner of the placed meshes'
                        bounding box): what is nearer is cut away;
                        or a list of cameras: one pick per view, each from the same initial
                        marks, the region in each view's screen; the JSON then holds
                        "views": [{"meshes": [...]}, ...]
  region                { "polygon": [[x,y], ...] } or
                        { "brush": { "path": [[x,y], ...], "radius": r } } in screen units;
                        r must be whole for the zbuffer picker; the graph picker takes
                        polygons only
  picker                "zbuffer", "scanline" or "graph" ({picker}), see below
  scanline_rule         "ordered" or "nearest" ({rule}): how the scanline picker's sample
                        lines decide what they see. "ordered": the front of a depth order
                        that pieces enter from left to right, each moving ahead of the
                        pieces it is nearer than at the middle of their common stretch;
                        "nearest": a triangle is marked where, on some line, it lies within
                        depth_tolerance of the nearest surface over a stretch of positive
                        length (a triangle rising through a plate is marked where it is in
                        front)
  pixel_proportion {pixels}, depth_tolerance {tolerance} (model units; zbuffer, and scanline with
  scanline_rule "nearest"), mark_through {through}, back_face_culling {culling}, unmark {unmark},
  start_marked {start} (mark all before picking), skip_hidden_surfaces {skip} (ignore the
  triangles of hidden surfaces), clipping_planes [[a,b,c,d], ...] (keeps ax+by+cz+d >= 0),
  lines_per_pixel {lines} (scanline), threads (zbuffer and scanline: the most threads a pick
  uses; all cores), graph { "sharp_angle_deg": {angle}, "thickness": {thickness} (model units),
  "mark_whole_candidates": {whole} } (graph)
Unknown fields are errors. Errors print one line naming the file and field; exit status 2.

Pickers:
)";

constexpr const char* kExampleHelp = R"(
Example:
  {"meshes": [{"file": "part.stl"}],
   "camera": {"eye": [0,0,100], "target": [0,0,0], "up": [0,1,0], "height": 50,
              "screen": [160, 100]},
   "region": {"polygon": [[40,30], [120,30], [80,80]]}}
  velpick scene.json --image pick.png --ply pick.ply)";

std::string Text(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

std::string Text(bool value) {
    return value ? "true" : "false";
}

std::string Quoted(const std::string& name) {
    return "\"" + name + "\"";
}

// `text` with each "{name}" replaced by its value.
std::string Filled(std::string text,
                   std::initializer_list<std::pair<const char*, std::string>> values) {
    for (const auto& [name, value] : values) {
        const std::string placeholder = std::string("{") + name + "}";
        for (std::size_t at = text.find(placeholder); at != std::string::npos;
             at = text.find(placeholder, at + value.size()))
            text.replace(at, placeholder.size(), value);
    }
    return text;
}

}  // namespace

std::string SceneHelp() {
    const PickSettings defaults;
    const std::string fields = Filled(
        kFieldsHelp, {{"units", Text(defaults.unitsPerModelUnit)},
                      {"near", Text(kDefaultNearShare)},
                      {"picker", Quoted(defaults.picker)},
                      {"rule", Quoted(kScanLineRuleNames[static_cast<int>(defaults.scanlineRule)])},
                      {"pixels", Text(defaults.pixelProportion)},
                      {"tolerance", Text(defaults.depthTolerance)},
                      {"through", Text(defaults.markThrough)},
                      {"culling", Text(defaults.backFaceCulling)},
                      {"unmark", Text(defaults.unmark)},
                      {"start", Text(Scene{}.startMarked)},
                      {"skip", Text(defaults.skipHiddenSurfaces)},
                      {"lines", Text(defaults.linesPerPixel)},
                      {"angle", Text(defaults.graph.sharpAngleDegrees)},
                      {"thickness", Text(defaults.graph.thickness)},
                      {"whole", Text(defaults.graph.markWholeCandidates)}});
    return fields + DescribePickers() + kExampleHelp;
}

}  // namespace velpick
