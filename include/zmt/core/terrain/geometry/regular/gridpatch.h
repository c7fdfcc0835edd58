#pragma once

#include <nbx/math/area.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>

namespace ZMT::CORE {

class GridData;

/// A rectangle of a grid at full resolution.
class GridPatch : public GeometryPatch {
    NBX_STORED_CLASS(GridPatch, GeometryPatch)
public:
    /// `domain` counts cells: the vertices run from its x to x + width, from its y to y + height.
    GridPatch(const NBX::SO<GridData> & grid, const NBX::Area & domain, const NBX::Bounds & bbox,
              double approxError, double wall, const NBX::SO<Children> & children);
    ~GridPatch() override;

    NBX::SO<GeometryData> data() const override;
    /// Cells with shapes of their own count with what these have.
    Description description() const override;
    StripMesh surface(const NBX::Vector3Base<double> & zero) const override;
    void serialize(NBX::SerializationManager & m) override;

    const NBX::SO<GridData> & grid() const { return grid_; }
    const NBX::Area & domain() const { return domain_; }

protected:
    GridPatch();

private:
    void appendShapes(StripMesh & mesh, const NBX::Vector3Base<double> & shift) const;

    NBX::SO<GridData> grid_;
    NBX::Area domain_;
};

} // namespace ZMT::CORE
