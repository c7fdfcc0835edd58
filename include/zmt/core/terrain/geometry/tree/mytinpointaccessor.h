#pragma once

#include <nbx/object/errorhandler.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace ZMT::CORE {

/// Gives the triangulation the vertices of a grid by their numbers: x and z in the plane, y as the height.
/// Both values are those of the process, so that only one construction may run at a time.
class MyTinPointAccessor {
public:
    using Point = NBX::Vector3Base<double>;
    /// Stands for `centerPoint`.
    static constexpr unsigned s_centerNumber = 0xFFFFFFFF;

    static Point point(unsigned number) {
        if (number == s_centerNumber) return centerPoint;
        const GridData * data = currentData.get();
        NBX_CHECK(data, L"no geometry-data");
        if (!data) return {};
        const NBX::Vector3Base<double> v = data->vertex(number % data->sizeX(), number / data->sizeX());
        return {v.x, v.z, v.y};
    }

    static inline NBX::SO<GridData> currentData;
    static inline Point centerPoint;
};

} // namespace ZMT::CORE
