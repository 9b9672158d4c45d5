#include "demo_scene.h"

#include <cmath>

#include "camera_view.h"

namespace velpick {

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

constexpr double kUnitsPerModelUnit = 1000.0;
constexpr double kPi = 3.14159265358979323846;

// The plate: z = 0, facing +z, with a square hole around the origin.
constexpr double kPlateLeft = -33.0, kPlateRight = 12.0, kPlateBottom = -30.0, kPlateTop = 30.0;
constexpr double kPlateCell = 1.0;
constexpr double kHoleHalfWidth = 9.0;

// The sphere behind it.
constexpr point3d kSphereCentre{0.0, 0.0, -24.0};
constexpr double kSphereRadius = 20.0;
constexpr int kSphereSlices = 96, kSphereStacks = 48;

class MeshBuilder {
  public:
    MeshBuilder() : m_mesh(std::make_unique<MStlBase>()), m_surface(m_mesh->AddSurface(nullptr)) {}

    /// A triangle from model-unit corners, counter-clockwise about its outward side.
    void Triangle(const point3d& a, const point3d& b, const point3d& c) {
        m_surface->AddTriangle(Units(a.x), Units(a.y), Units(a.z), Units(b.x), Units(b.y),
                               Units(b.z), Units(c.x), Units(c.y), Units(c.z));
    }
    std::unique_ptr<MStlBase> Take() { return std::move(m_mesh); }

  private:
    static int Units(double modelLength) {
        return static_cast<int>(std::lround(modelLength * kUnitsPerModelUnit));
    }

    std::unique_ptr<MStlBase> m_mesh;
    MStlSurface* m_surface;
};

std::unique_ptr<MStlBase> MakePlate() {
    MeshBuilder plate;
    for (double x = kPlateLeft; x < kPlateRight; x += kPlateCell) {
        for (double y = kPlateBottom; y < kPlateTop; y += kPlateCell) {
            const double cx = x + kPlateCell / 2.0, cy = y + kPlateCell / 2.0;
            if (std::abs(cx) < kHoleHalfWidth && std::abs(cy) < kHoleHalfWidth)
                continue;
            const double x1 = x + kPlateCell, y1 = y + kPlateCell;
            plate.Triangle({x, y, 0.0}, {x1, y, 0.0}, {x1, y1, 0.0});
            plate.Triangle({x, y, 0.0}, {x1, y1, 0.0}, {x, y1, 0.0});
        }
    }
    return plate.Take();
}

point3d SpherePoint(int slice, int stack) {
    const double longitude = 2.0 * kPi * slice / kSphereSlices;
    const double latitude = kPi * stack / kSphereStacks - kPi / 2.0;
    return {kSphereCentre.x + kSphereRadius * std::cos(latitude) * std::cos(longitude),
            kSphereCentre.y + kSphereRadius * std::cos(latitude) * std::sin(longitude),
            kSphereCentre.z + kSphereRadius * std::sin(latitude)};
}

std::unique_ptr<MStlBase> MakeSphere() {
    MeshBuilder sphere;
    for (int stack = 0; stack < kSphereStacks; ++stack) {
        for (int slice = 0; slice < kSphereSlices; ++slice) {
            const point3d a = SpherePoint(slice, stack), b = SpherePoint(slice + 1, stack);
            const point3d c = SpherePoint(slice + 1, stack + 1), d = SpherePoint(slice, stack + 1);
            // The poles' quads have two corners in one point: keep only their real triangle.
            if (stack > 0)
                sphere.Triangle(a, b, c);
            if (stack + 1 < kSphereStacks)
                sphere.Triangle(a, c, d);
        }
    }
    return sphere.Take();
}

// A hand-drawn looking lasso around the hole and the plate's right edge, in screen units.
std::vector<point2d> MakeLasso(double centreX, double centreY) {
    constexpr int kPoints = 40;
    std::vector<point2d> lasso;
    for (int i = 0; i < kPoints; ++i) {
        const double angle = 2.0 * kPi * i / kPoints;
        const double wobble = 1.0 + 0.08 * std::sin(3.0 * angle) + 0.05 * std::cos(5.0 * angle);
        lasso.push_back(
            {centreX + 26.0 * wobble * std::cos(angle), centreY + 19.0 * wobble * std::sin(angle)});
    }
    return lasso;
}

Scene MakeSceneSettings() {
    Scene scene;
    scene.settings.unitsPerModelUnit = kUnitsPerModelUnit;
    scene.settings.pixelProportion = 6.0;
    const OrthoCamera camera{
        {25.0, 35.0, 100.0}, {0.0, 0.0, -12.0}, {0.0, 1.0, 0.0}, 80.0, 120.0, 80.0};
    scene.view = {*CameraView(camera, kUnitsPerModelUnit), camera};
    scene.settings.region.points = MakeLasso(56.0, 42.0);
    for (const char* name : {"demo:plate", "demo:sphere"}) {
        SceneMesh mesh;
        mesh.file = name;
        scene.meshes.push_back(mesh);
    }
    return scene;
}

}  // namespace

DemoScene MakeDemoScene() {
    DemoScene demo;
    demo.scene = MakeSceneSettings();
    demo.meshes.push_back(MakePlate());
    demo.meshes.push_back(MakeSphere());
    return demo;
}

}  // namespace velpick
