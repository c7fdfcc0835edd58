#include "microindextable.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include <nbx/container/sequence/serializevalues.h>

namespace ZMT::CORE {

MicroIndexTable::MicroIndexTable() = default;

MicroIndexTable::MicroIndexTable(unsigned sizeX, unsigned sizeY, std::vector<unsigned> cells,
                                 std::vector<unsigned> ends, std::vector<unsigned> indices)
    : sizeX_(sizeX), sizeY_(sizeY), cells_(std::move(cells)), ends_(std::move(ends)),
      indices_(std::move(indices)) {
    checkLists();
    findSlots();
}

MicroIndexTable::~MicroIndexTable() = default;

void MicroIndexTable::checkLists() const {
    const std::uint64_t cellCount = std::uint64_t(sizeX_) * sizeY_;
    if (cellCount > UINT32_MAX) throw NBX::IOError(L"micro-structures of too many cells");
    bool isConsistent =
        ends_.size() == cells_.size() && indices_.size() == (ends_.empty() ? 0 : ends_.back());
    for (std::size_t i = 0; isConsistent && i < cells_.size(); ++i) {
        const unsigned begin = i > 0 ? ends_[i - 1] : 0;
        isConsistent = cells_[i] < cellCount && (i == 0 || cells_[i - 1] < cells_[i]) && ends_[i] > begin &&
                       (ends_[i] - begin) % 3 == 0;
    }
    if (!isConsistent) throw NBX::IOError(L"lists of micro-structures do not fit their cells");
}

// A stream may claim any number of cells, hence there are no more slots than cells that have a list.
void MicroIndexTable::findSlots() {
    slots_.clear();
    slotShift_ = 0;
    if (cells_.empty()) return;
    while (std::uint64_t(cells_.back()) >> slotShift_ >= cells_.size())
        ++slotShift_;
    for (std::size_t place = 0; place < cells_.size(); ++place)
        slots_.resize((std::uint64_t(cells_[place]) >> slotShift_) + 1, static_cast<unsigned>(place));
    slots_.push_back(static_cast<unsigned>(cells_.size()));
}

std::vector<unsigned> MicroIndexTable::get(unsigned x, unsigned y) const {
    NBX_CHECK(x < sizeX_ && y < sizeY_, L"place out of range");
    if (x >= sizeX_ || y >= sizeY_) return {};
    const unsigned cell = x + y * sizeX_;
    const std::uint64_t slot = std::uint64_t(cell) >> slotShift_;
    if (slot + 1 >= slots_.size()) return {};
    const auto end = cells_.begin() + slots_[slot + 1];
    const auto found = std::lower_bound(cells_.begin() + slots_[slot], end, cell);
    if (found == end || *found != cell) return {};
    const std::size_t i = std::size_t(found - cells_.begin());
    const unsigned begin = i > 0 ? ends_[i - 1] : 0;
    return {indices_.begin() + begin, indices_.begin() + ends_[i]};
}

void MicroIndexTable::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::SharedObj>(m, static_cast<NBX::SharedObj *>(this));
    m.attribute("sizeX", sizeX_);
    m.attribute("sizeY", sizeY_);
    NBX::serializeValue(m, "cells", cells_);
    NBX::serializeValue(m, "ends", ends_);
    NBX::serializeValue(m, "indices", indices_);
    if (!m.isReading()) return;
    checkLists();
    findSlots();
}

NBX_STORED_CLASS_IMPL(MicroIndexTable, MicroIndexTable::Base)

} // namespace ZMT::CORE
