#pragma once

#include <vector>

#include <nbx/container/sequence/iterator2d.h>

namespace ZMT::CORE {

/// The vertex numbers of the cells of a grid that have a micro-structure, three a triangle. Any other cell
/// has an empty list, and takes no memory. Immutable once made: may be read from any thread.
class MicroIndexTable : public NBX::Iterator2D<std::vector<unsigned>> {
    using Base = NBX::Iterator2D<std::vector<unsigned>>;
    NBX_STORED_CLASS(MicroIndexTable, Base)
public:
    /// The list of cell number `cells[i]`, which is `x + y * sizeX`, ends in front of `indices[ends[i]]` and
    /// begins where the one before ends. Throws `NBX::IOError` unless `cells` ascend strictly, lie inside,
    /// and have whole triangles.
    MicroIndexTable(unsigned sizeX, unsigned sizeY, std::vector<unsigned> cells, std::vector<unsigned> ends,
                    std::vector<unsigned> indices);
    ~MicroIndexTable() override;

    unsigned sizeX() const override { return sizeX_; }
    unsigned sizeY() const override { return sizeY_; }
    using Base::get;
    /// O(log n) for n cells with a list, and O(1) where these lie evenly.
    std::vector<unsigned> get(unsigned x, unsigned y) const override;

    /// Attributes "sizeX", "sizeY", "cells", "ends", "indices".
    void serialize(NBX::SerializationManager & m) override;

private:
    MicroIndexTable();

    void checkLists() const;
    void findSlots();

    unsigned sizeX_ = 0, sizeY_ = 0;
    std::vector<unsigned> cells_, ends_, indices_;
    /// A slot has the cells whose number is the slot's when shifted to the right. For each slot the place of
    /// its first cell in `cells_`, then the end of the last slot.
    std::vector<unsigned> slots_;
    unsigned slotShift_ = 0;
};

} // namespace ZMT::CORE
