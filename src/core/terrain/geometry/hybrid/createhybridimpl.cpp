#include <zmt/core/terrain/geometry/hybrid/createhybridimpl.h>

#include "hybridstamper.h"

namespace ZMT::CORE {

HybridCreation::HybridCreation(const GridData & grid) : stamper_(new HybridStamper(grid)) {}

HybridCreation::~HybridCreation() = default;

void HybridCreation::stamp(const std::vector<NBX::Vector3Base<double>> & points) {
    stamper_->stamp(points);
}

NBX::SO<HybridData> HybridCreation::finish() {
    return stamper_->build();
}

} // namespace ZMT::CORE
