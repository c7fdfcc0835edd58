#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/vector3base.h>

namespace ZMT::CORE {

class HybridData;
class MicroTrianglesData;

/// Positions or normals of the corners of a cell's triangles.
class MicroTrianglesData_Iterator : public NBX::Iterator<NBX::Vector3Base<double>> {
    using Points = NBX::Iterator<NBX::Vector3Base<double>>;
    NBX_CLASS(MicroTrianglesData_Iterator, Points)
public:
    enum Mode { IM_Vertices, IM_Normals };

    /// Keeps `data` and its container. `mode` is one of `Mode`.
    MicroTrianglesData_Iterator(MicroTrianglesData * data, int mode);
    ~MicroTrianglesData_Iterator() override;

    unsigned size() const override;
    NBX::Vector3Base<double> get(unsigned i) const override;
    const NBX::SharedObj * container() const override;

private:
    NBX::SO<MicroTrianglesData> data_;
    NBX::SO<const HybridData> container_; ///< of `data_`, which does not own it
    int mode_;
};

} // namespace ZMT::CORE
