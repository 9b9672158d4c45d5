#include <cstdio>

#include <velpick/host/stl_base.h>
#include <velpick/host/stl_surface.h>
#include <velpick/mark_polygon.h>

// Two triangles side by side; a lasso around the left one marks it alone.
int main() {
    MStlBase mesh;
    MStlSurface* surface = mesh.AddSurface(nullptr);
    surface->AddTriangle(0, 0, 0, 4, 0, 0, 0, 4, 0);
    surface->AddTriangle(10, 0, 0, 14, 0, 0, 10, 4, 0);

    MStlBaseOperatorMarkPolygon pick;
    pick.AddStl(&mesh, nullptr, nullptr, true, nullptr);
    pick.SetPolygon({{-1.0, -1.0}, {6.0, -1.0}, {6.0, 6.0}, {-1.0, 6.0}});
    const bool ran = pick.operate();
    std::printf("ran %s, marked: left %d, right %d\n", ran ? "yes" : "no",
                mesh.GetTriangle(0).IsMarked(), mesh.GetTriangle(1).IsMarked());
    return ran && mesh.GetTriangle(0).IsMarked() && !mesh.GetTriangle(1).IsMarked() ? 0 : 1;
}
