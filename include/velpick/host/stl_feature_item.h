#pragma once

class MStlBase;

/// A named feature of a mesh (a surface or a feature graph) with a visibility switch.
class MStlFeatureItem {
  public:
    explicit MStlFeatureItem(MStlBase* stl) : m_stl(stl) {}
    virtual ~MStlFeatureItem() = default;
    MStlFeatureItem(const MStlFeatureItem&) = delete;
    MStlFeatureItem& operator=(const MStlFeatureItem&) = delete;

    bool GetVisible() const { return m_visible; }
    void SetVisible(bool visible) { m_visible = visible; }
    /// The mesh that owns this feature.
    MStlBase* GetStl() const { return m_stl; }

  private:
    MStlBase* m_stl;
    bool m_visible = true;
};
