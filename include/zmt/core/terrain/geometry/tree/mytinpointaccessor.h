#pragma once

#include <nbx/object/errorhandler.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace ZMT::CORE {

/// Gives the triangulation the vertices of a grid by their numbers: x and z in the plane, y as the height.
class MyTinPointAccessor {
public:
    using Point = NBX::Vector3Base<double>;
    /// Stands for `centerPoint`.
    static constexpr unsigned s_centerNumber = 0xFFFFFFFF;

    /// Reads `currentData`, as it is at each call.
    MyTinPointAccessor() = default;
    /// Reads `grid`, which is borrowed, and may be read by several threads.
    explicit MyTinPointAccessor(const GridData & grid) : grid_(&grid) {}

    Point point(unsigned number) const {
        if (number == s_centerNumber) return centerPoint;
        const GridData * data = grid_ ? grid_ : currentData.get();
        NBX_CHECK(data, L"no geometry-data");
        if (!data) return {};
        const NBX::Vector3Base<double> v = data->vertex(number % data->sizeX(), number / data->sizeX());
        return {v.x, v.z, v.y};
    }

    /// Both are of the process, and changed by one thread at a time.
    static inline NBX::SO<GridData> currentData;
    static inline Point centerPoint;

private:
    const GridData * grid_ = nullptr;
};

} // namespace ZMT::CORE
