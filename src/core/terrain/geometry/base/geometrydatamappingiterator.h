#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/vector3base.h>

namespace ZMT::CORE {

class GeometryData;

/// Positions or normals of the vertices whose numbers another sequence gives.
class GeometryData_MappingIterator : public NBX::Iterator<NBX::Vector3Base<double>> {
    using Points = NBX::Iterator<NBX::Vector3Base<double>>;
    NBX_STORED_CLASS(GeometryData_MappingIterator, Points)
public:
    /// Keeps both. `normals` is false for positions, true for normals.
    GeometryData_MappingIterator(const GeometryData * data, const NBX::Iterator<unsigned> * indices,
                                 bool normals);
    ~GeometryData_MappingIterator() override;

    unsigned size() const override;
    NBX::Vector3Base<double> get(unsigned i) const override;
    const NBX::SharedObj * container() const override;
    void serialize(NBX::SerializationManager & m) override;

private:
    GeometryData_MappingIterator();

    NBX::SO<const GeometryData> data_;
    NBX::SO<const NBX::Iterator<unsigned>> indices_;
    bool normals_ = false;
};

} // namespace ZMT::CORE
