#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "featurerecord.h"

#include <nbx/data/file.h>

namespace ZMT::RASTER {

/// Features one behind the other: in memory as long as they are few, otherwise in a file without a name, that
/// goes with them.
class RecordStore {
public:
    /// More bytes than these go to the file.
    static constexpr std::size_t defaultMemory = 16U << 20U;

    /// Messages call the source `name`.
    explicit RecordStore(const std::string & name, std::size_t memory = defaultMemory);

    /// Where the record begins. Throws `NBX::InputException` where the file cannot be written.
    std::uint64_t add(const FeatureRecord & record);
    /// To be called once, behind the last one.
    void finish();

    /// Calls `visit` with the records that begin at `offsets`, in their order, until it answers false. It is
    /// fastest where they ascend. The record is `visit`'s to change. Throws `NBX::InputException`.
    void read(std::span<const std::uint64_t> offsets, std::span<const unsigned> fields,
              const std::function<bool(FeatureRecord &)> & visit);

private:
    void writeOut();
    const std::uint8_t * fetch(std::uint64_t offset, std::size_t bytes, std::size_t ahead);

    std::string name_;
    std::size_t memory_;
    NBX::SO<NBX::File> file_;
    std::uint64_t written_ = 0;       ///< bytes in the file
    std::vector<std::uint8_t> bytes_; ///< behind these; once finished, those read from `bytesStart_` on
    std::uint64_t bytesStart_ = 0;
    FeatureRecord record_;
};

} // namespace ZMT::RASTER
