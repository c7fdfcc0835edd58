#include "storedfeatures.h"

#include <algorithm>

namespace ZMT::RASTER {

namespace {

/// Of the value of a box; the rest is where the record begins.
constexpr std::uint64_t s_isOfAreas = std::uint64_t(1) << 63U;

} // namespace

void StoredFeatures::add(const FeatureRecord & record) {
    const std::optional<GeoExtent> box = record.shapes.box();
    if (!box) return;
    entries_.push_back(
        PackedBoxes::entry(*box, records_.add(record) | (record.isOfAreas() ? s_isOfAreas : 0)));
    if (!extent_) extent_ = box;
    extent_ = GeoExtent{std::min(extent_->minX, box->minX), std::min(extent_->minY, box->minY),
                        std::max(extent_->maxX, box->maxX), std::max(extent_->maxY, box->maxY)};
}

void StoredFeatures::finish() {
    records_.finish();
    index_ = PackedBoxes(std::move(entries_));
    entries_ = {};
}

void StoredFeatures::read(const GeoExtent & box, double tolerance, std::span<const unsigned> fields,
                          const std::function<bool(FeatureRecord &)> & visit) {
    const auto isSmall = [tolerance](const PackedBoxes::Entry & entry) {
        return double(entry.maxX) - entry.minX < tolerance && double(entry.maxY) - entry.minY < tolerance;
    };
    std::vector<std::uint64_t> found;
    index_.find(box, [&](const PackedBoxes::Entry & entry) {
        if (!((entry.value & s_isOfAreas) && isSmall(entry))) found.push_back(entry.value & ~s_isOfAreas);
    });
    std::sort(found.begin(), found.end());
    records_.read(found, fields, visit);
}

} // namespace ZMT::RASTER
