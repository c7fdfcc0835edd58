#pragma once

#include <optional>

#include "packedboxes.h"
#include "recordstore.h"

namespace ZMT::RASTER {

/// Features by the place where they lie, of sources that cannot find them. An index in memory takes 26 bytes
/// for each.
class StoredFeatures {
public:
    explicit StoredFeatures(const std::string & name, std::size_t memory = RecordStore::defaultMemory)
        : records_(name, memory) {}

    /// Throws `NBX::InputException` where they cannot be stored.
    void add(const FeatureRecord & record);
    /// To be called once, behind the last one.
    void finish();

    std::size_t size() const { return index_.size(); }
    std::size_t indexBytes() const { return index_.bytes(); }
    const std::optional<GeoExtent> & extent() const { return extent_; }

    /// Calls `visit` with those whose boxes touch `box`, in the order in which they were added, until it
    /// answers false. Areas that are smaller than `tolerance` are left out. The record is `visit`'s to
    /// change.
    void read(const GeoExtent & box, double tolerance, std::span<const unsigned> fields,
              const std::function<bool(FeatureRecord &)> & visit);

private:
    RecordStore records_;
    std::vector<PackedBoxes::Entry> entries_;
    PackedBoxes index_;
    std::optional<GeoExtent> extent_;
};

} // namespace ZMT::RASTER
