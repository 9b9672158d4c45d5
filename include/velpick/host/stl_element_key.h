#pragma once

class MStlBase;
class MStlSurface;
class MStlGraph;

/// Mesh elements are created only by their mesh, surface or graph: their constructors take
/// this key, which only those classes can make.
class MStlElementKey {
    MStlElementKey() = default;
    friend class MStlBase;
    friend class MStlSurface;
    friend class MStlGraph;
};
