#include "heightlevels.h"

#include <algorithm>

#include <nbx/object/exception.h>

#include "contenthash.h"

namespace ZMT::CORE::GRID {

namespace {

std::uint64_t hashOf(const float * row, std::uint32_t width) {
    return ContentHash::of(row, width * sizeof(float));
}

} // namespace

HeightLevels::HeightLevels(const LatticeArea & finest, unsigned depth) : levels_(depth + 1) {
    levels_[0].area = finest;
    for (unsigned level = 1; level <= depth; ++level) {
        levels_[level].area = levels_[level - 1].area.halved();
        levels_[level].start = points_;
        levels_[level].firstRow = rows_;
        rows_ += levels_[level].area.height();
        points_ += std::uint64_t(levels_[level].area.width()) * levels_[level].area.height();
    }
}

HeightLevels::~HeightLevels() = default;

void HeightLevels::keepIn(const NBX::SO<NBX::File> & file, std::uint64_t start) {
    file_ = file;
    fileStart_ = start;
}

void HeightLevels::keepGuarded(const NBX::SO<NBX::File> & file, std::uint64_t start) {
    keepIn(file, start);
    isGuarded_ = true;
}

std::uint64_t HeightLevels::pointOf(unsigned level, std::uint32_t y) const {
    const Level & l = levels_[level];
    return l.start + std::uint64_t(y - l.area.minY) * l.area.width();
}

void HeightLevels::seek(unsigned level, std::uint32_t y) {
    const std::uint64_t rowsBefore = levels_[level].firstRow + (y - levels_[level].area.minY);
    file_->seek(static_cast<std::int64_t>(fileStart_ + pointOf(level, y) * sizeof(float) +
                                          (isGuarded_ ? rowsBefore * sizeof(std::uint64_t) : 0)));
}

/// What follows in the file.
void HeightLevels::take(void * data, std::size_t bytes) {
    if (file_->read(data, bytes) != bytes)
        throw NBX::InputException(L"the file was cut off while it was read; make it anew", file_->fullName());
}

void HeightLevels::read(unsigned level, std::uint32_t y, std::uint32_t rows, float * heights) {
    const std::uint32_t width = levels_[level].area.width();
    if (!file_) {
        std::copy_n(heights_.begin() + static_cast<std::ptrdiff_t>(pointOf(level, y)),
                    std::size_t(rows) * width, heights);
        return;
    }
    seek(level, y);
    for (std::uint32_t row = 0; row < rows; ++row, heights += width) {
        take(heights, width * sizeof(float));
        if (!isGuarded_) continue;
        std::uint64_t hash = 0;
        take(&hash, sizeof hash);
        if (hash != hashOf(heights, width))
            throw NBX::InputException(L"the heights in it are damaged; make it anew", file_->fullName());
    }
}

void HeightLevels::writeRow(unsigned level, std::uint32_t y, const float * row) {
    const std::uint32_t width = levels_[level].area.width();
    if (!file_) {
        std::copy_n(row, width, heights_.begin() + static_cast<std::ptrdiff_t>(pointOf(level, y)));
        return;
    }
    seek(level, y);
    file_->write(row, width * sizeof(float));
    if (!isGuarded_) return;
    const std::uint64_t hash = hashOf(row, width);
    file_->write(&hash, sizeof hash);
}

} // namespace ZMT::CORE::GRID
