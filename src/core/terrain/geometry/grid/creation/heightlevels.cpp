#include "heightlevels.h"

#include <algorithm>

#include <nbx/object/exception.h>

namespace ZMT::CORE::GRID {

HeightLevels::HeightLevels(const LatticeArea & finest, unsigned depth) : levels_(depth + 1) {
    levels_[0].area = finest;
    for (unsigned level = 1; level <= depth; ++level) {
        levels_[level].area = levels_[level - 1].area.halved();
        levels_[level].start = points_;
        points_ += std::uint64_t(levels_[level].area.width()) * levels_[level].area.height();
    }
}

HeightLevels::~HeightLevels() = default;

void HeightLevels::keepIn(const NBX::SO<NBX::File> & file, std::uint64_t start) {
    file_ = file;
    fileStart_ = start;
}

std::uint64_t HeightLevels::pointOf(unsigned level, std::uint32_t y) const {
    const Level & l = levels_[level];
    return l.start + std::uint64_t(y - l.area.minY) * l.area.width();
}

void HeightLevels::seek(std::uint64_t point) {
    file_->seek(static_cast<std::int64_t>(fileStart_ + point * sizeof(float)));
}

void HeightLevels::read(unsigned level, std::uint32_t y, std::uint32_t rows, float * heights) {
    const std::uint64_t at = pointOf(level, y), count = std::uint64_t(rows) * levels_[level].area.width();
    if (!file_) {
        std::copy_n(heights_.begin() + static_cast<std::ptrdiff_t>(at), count, heights);
        return;
    }
    seek(at);
    if (file_->read(heights, count * sizeof(float)) != count * sizeof(float))
        throw NBX::InputException(L"the file was cut off while it was read; make it anew", file_->fullName());
}

void HeightLevels::writeRow(unsigned level, std::uint32_t y, const float * row) {
    const std::uint64_t at = pointOf(level, y);
    const std::uint32_t width = levels_[level].area.width();
    if (!file_) {
        std::copy_n(row, width, heights_.begin() + static_cast<std::ptrdiff_t>(at));
        return;
    }
    seek(at);
    file_->write(row, width * sizeof(float));
}

} // namespace ZMT::CORE::GRID
