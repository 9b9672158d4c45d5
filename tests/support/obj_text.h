#pragma once

// A host mesh written as OBJ text, for tests that feed meshes to the command line.

#include <map>
#include <ostream>
#include <sstream>
#include <string>

#include <velpick/host/stl_base.h>
#include <velpick/host/stl_surface.h>
#include <velpick/host/stl_triangle.h>

namespace scene {

/// Every triangle in mesh order with its own three vertices, coordinates divided by
/// `unitsPerModelUnit`; a group "s<i>" starts wherever the surface changes, i numbering the
/// mesh's surfaces in tree order, so surface indices survive an import.
inline std::string ObjText(const MStlBase& mesh, double unitsPerModelUnit = 1000.0) {
    std::map<const MStlSurface*, int> surfaceIndex;
    for (MStlSurface& surface : mesh.Surfaces())
        surfaceIndex.emplace(&surface, static_cast<int>(surfaceIndex.size()));
    std::ostringstream out;
    out.precision(12);
    const MStlSurface* group = nullptr;
    int next = 1;
    for (const MStlTriangle& t : mesh.Triangles()) {
        if (t.GetSurface() != group)
            out << "g s" << surfaceIndex.at(group = t.GetSurface()) << "\n";
        for (std::size_t k = 0; k < 3; ++k) {
            const VelSDK::Math::point3d p = t.GetVertex(k);
            out << "v " << p.x / unitsPerModelUnit << " " << p.y / unitsPerModelUnit << " "
                << p.z / unitsPerModelUnit << "\n";
        }
        out << "f " << next << " " << next + 1 << " " << next + 2 << "\n";
        next += 3;
    }
    return out.str();
}

}  // namespace scene
