#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/vector3base.h>

namespace ZMT::CORE {

/// Points of another sequence, shifted between geo and scene coordinates on every access; copies nothing.
class GeoTransformation_CoordTransformIterator : public NBX::Iterator<NBX::Vector3Base<double>> {
    using Points = NBX::Iterator<NBX::Vector3Base<double>>;
    NBX_STORED_CLASS(GeoTransformation_CoordTransformIterator, Points)
public:
    /// `geo2nbx` is true from geo to scene coordinates, false the other way.
    GeoTransformation_CoordTransformIterator(NBX::SO<Points> master, bool geo2nbx);

    unsigned size() const override;
    NBX::Vector3Base<double> get(unsigned i) const override;
    const NBX::SharedObj * container() const override;
    /// Throws `NBX::IOError` for stored points that are their own master.
    void serialize(NBX::SerializationManager & m) override;

private:
    GeoTransformation_CoordTransformIterator() = default;

    bool isTooDeep() const;

    NBX::SO<Points> master_;
    bool geo2nbx_ = false;
};

} // namespace ZMT::CORE
