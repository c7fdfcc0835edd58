// P. Lindstrom, V. Pascucci: Visualization of large terrains made easy, 2001: vertices in the order of
// longest-edge bisection, with errors that grow from the leaves to the root.
//
// The levels run at once, each some rows behind the finer one, so that all of them find their rows in the
// cache. A level works on rows of its own vertices alone, parted by even and odd columns, whose loops have
// neither branches nor gaps.

#include "chunkedloderrorfield.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// The loops over rows are most of the time in which a terrain starts: vectors as long as the processor has
// them, with the same results, since all is whole numbers. Sanitizers start later than the choice is made.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__) &&     \
    !defined(__SANITIZE_THREAD__)
#pragma GCC optimize("O3")
#define ZMT_EACH_PROCESSOR __attribute__((target_clones("avx2", "default")))
#define ZMT_INLINE __attribute__((always_inline))
#else
#define ZMT_EACH_PROCESSOR
#define ZMT_INLINE
#endif

namespace ZMT::CORE {

namespace {

using Value = std::uint16_t;

constexpr Value s_alwaysPresent = 65535;

/// Elements a step of a loop; rows have room for a whole number of steps, and for one element more.
constexpr std::size_t s_block = 32;

std::size_t roomFor(std::size_t count) {
    return (count + s_block - 1) / s_block * s_block;
}

class Row {
public:
    explicit Row(std::size_t count) : values_(roomFor(count) + 1, 0) {}
    Value * data() { return values_.data(); }
    const Value * data() const { return values_.data(); }

private:
    std::vector<Value> values_;
};

ZMT_INLINE inline Value meanOf(Value a, Value b) {
    return static_cast<Value>((a & b) + ((a ^ b) >> 1));
}

ZMT_INLINE inline Value distance(Value a, Value b) {
    return static_cast<Value>(std::max(a, b) - std::min(a, b));
}

/// Sets `results[i]` to `value(i)` for each element, in steps of a fixed length that go through a local
/// array: so the compiler knows that no result is read again, and makes vectors.
template <class GetValue> ZMT_INLINE inline void fill(std::size_t count, Value * results, GetValue value) {
    for (std::size_t begin = 0; begin < count; begin += s_block) {
        Value block[s_block];
        for (std::size_t k = 0; k < s_block; ++k)
            block[k] = value(begin + k);
        std::copy_n(block, s_block, results + begin);
    }
}

/// `count` values; what lies behind the last one up to `total` is like it.
ZMT_EACH_PROCESSOR void partColumns(const Value * values, std::size_t count, std::size_t total, Value * even,
                                    Value * odd) {
    const std::size_t pairs = count / 2 / s_block * s_block;
    fill(pairs, even, [=](std::size_t k) { return values[2 * k]; });
    fill(pairs, odd, [=](std::size_t k) { return values[2 * k + 1]; });
    for (std::size_t i = 2 * pairs; i < total; ++i)
        (i % 2 == 0 ? even : odd)[i / 2] = values[std::min(i, count - 1)];
}

/// `errors[i] = |heights[i] - (a[i] + b[i]) / 2|`
ZMT_EACH_PROCESSOR void bend(std::size_t count, const Value * heights, const Value * a, const Value * b,
                             Value * errors) {
    fill(count, errors, [=](std::size_t k) { return distance(heights[k], meanOf(a[k], b[k])); });
}

ZMT_EACH_PROCESSOR void raiseTo(std::size_t count, const Value * a, const Value * b, Value * errors) {
    fill(count, errors, [=](std::size_t k) { return std::max(errors[k], std::max(a[k], b[k])); });
}

/// What the vertices in the middle of the faces need: their four neighbours on the lattice.
struct FaceRows {
    const Value * heights;
    const Value *lowCorners, *highCorners; ///< heights of the even columns of the rows below and above
    const Value *left, *low, *high;        ///< errors of the neighbours; the right ones follow the left ones
    const Value * diagonals;               ///< by column: all bits set for that which rises with the column
};

ZMT_EACH_PROCESSOR void bendFaces(std::size_t count, const FaceRows & rows, Value * errors) {
    const Value *heights = rows.heights, *lowCorners = rows.lowCorners;
    const Value *highCorners = rows.highCorners, *diagonals = rows.diagonals;
    const Value *left = rows.left, *low = rows.low, *high = rows.high;
    fill(count, errors, [=](std::size_t k) {
        const Value a =
            static_cast<Value>(highCorners[k] ^ ((highCorners[k] ^ lowCorners[k]) & diagonals[k]));
        const Value b =
            static_cast<Value>(lowCorners[k + 1] ^ ((lowCorners[k + 1] ^ highCorners[k + 1]) & diagonals[k]));
        const Value children = std::max(std::max(left[k], left[k + 1]), std::max(low[k], high[k]));
        return std::max(distance(heights[k], meanOf(a, b)), children);
    });
}

ZMT_EACH_PROCESSOR void joinColumns(std::size_t count, const Value * even, const Value * odd,
                                    Value * values) {
    const std::size_t blocks = count / s_block * s_block;
    for (std::size_t begin = 0; begin < blocks; begin += s_block) {
        Value block[2 * s_block];
        for (std::size_t k = 0; k < s_block; ++k) {
            block[2 * k] = even[begin + k];
            block[2 * k + 1] = odd[begin + k];
        }
        std::copy_n(block, 2 * s_block, values + 2 * begin);
    }
    for (std::size_t k = blocks; k < count; ++k) {
        values[2 * k] = even[k];
        values[2 * k + 1] = odd[k];
    }
}

/// One level of the sweep over the lattice of every `step`th vertex. It computes the errors of the vertices
/// on its edges, which have one odd column or row, and in its faces, which have both.
class Level {
public:
    /// `cells` is even: the number of cells in a row of this level, `step` vertices apart.
    Level(std::size_t cells, std::size_t step, Value * errors)
        : cells_(cells), half_(cells / 2), step_(step), pitch_(cells * step + 1), errors_(errors),
          rows_(4, HeightRow(half_ + 1)), faces_(4, FacePairs(half_ + 1)), noFaces_(half_ + 1),
          horizontal_(2, Row(half_)), vertical_(half_ + 1), face_(half_), diagonals_(half_ + 1) {
        for (std::size_t i = 0; i < half_ + 1; i += 2)
            diagonals_.data()[i] = 0xffff;
        if (cells > 2) next_ = std::make_unique<Level>(half_, 2 * step, errors);
    }

    /// Takes the next row, of which `count` heights are given, and the errors in the faces of the finer
    /// level between the row before and this one, or null at the first row and at the finest level.
    void push(const Value * heights, std::size_t count, const Value * finerFaces) {
        const std::size_t row = pushed_++;
        HeightRow & heightRow = rows_[row % 4];
        partColumns(heights, count, cells_ + 1, heightRow.even.data(), heightRow.odd.data());
        if (finerFaces) takeFaces(finerFaces, faces_[(row - 1) % 4]);
        if (row == 1) finishFirstRow();
        if (row % 2 == 1 && row > 1) finishRows(row - 2);
        if (row == cells_) finishRows(row - 1);
    }

private:
    struct HeightRow {
        explicit HeightRow(std::size_t count) : even(count), odd(count) {}
        Row even, odd;
    };

    /// The errors in one row of finer faces, as the larger one of two neighbours.
    struct FacePairs {
        explicit FacePairs(std::size_t count) : besideOdd(count), besideEven(count) {}
        Row besideOdd, besideEven; ///< left and right of an odd and of an even column
    };

    void takeFaces(const Value * errors, FacePairs & pairs) const {
        Value *odd = pairs.besideOdd.data(), *even = pairs.besideEven.data();
        const std::size_t blocks = (half_ - 1) / s_block * s_block;
        even[0] = errors[0];
        fill(blocks, odd, [=](std::size_t k) { return std::max(errors[2 * k], errors[2 * k + 1]); });
        fill(blocks, even + 1, [=](std::size_t k) { return std::max(errors[2 * k + 1], errors[2 * k + 2]); });
        for (std::size_t k = blocks; k < half_; ++k) {
            odd[k] = std::max(errors[2 * k], errors[2 * k + 1]);
            even[k + 1] = k + 1 < half_ ? std::max(errors[2 * k + 1], errors[2 * k + 2]) : errors[2 * k + 1];
        }
    }

    /// The finer faces below row `row` (`above` 0) or above it (1); those without error beyond the lattice.
    const FacePairs & facesBeside(std::size_t row, std::size_t above) const {
        const std::size_t number = row + above;
        return number == 0 || number > cells_ || step_ == 1 ? noFaces_ : faces_[(number - 1) % 4];
    }

    void computeHorizontal(std::size_t row) {
        const HeightRow & heights = rows_[row % 4];
        Value * errors = horizontal_[row / 2 % 2].data();
        bend(half_, heights.odd.data(), heights.even.data(), heights.even.data() + 1, errors);
        if (step_ > 1)
            raiseTo(half_, facesBeside(row, 0).besideOdd.data(), facesBeside(row, 1).besideOdd.data(),
                    errors);
    }

    void computeVertical(std::size_t row) {
        bend(half_ + 1, rows_[row % 4].even.data(), rows_[(row - 1) % 4].even.data(),
             rows_[(row + 1) % 4].even.data(), vertical_.data());
        if (step_ > 1)
            raiseTo(half_ + 1, facesBeside(row, 0).besideEven.data(), facesBeside(row, 1).besideEven.data(),
                    vertical_.data());
    }

    void computeFaces(std::size_t row) {
        const FaceRows rows{rows_[row % 4].odd.data(),
                            rows_[(row - 1) % 4].even.data(),
                            rows_[(row + 1) % 4].even.data(),
                            vertical_.data(),
                            horizontal_[(row - 1) / 2 % 2].data(),
                            horizontal_[(row + 1) / 2 % 2].data(),
                            diagonals_.data() + row / 2 % 2};
        bendFaces(half_, rows, face_.data());
    }

    void finishFirstRow() {
        computeHorizontal(0);
        writeEvenRow(0);
        if (next_) next_->push(rows_[0].even.data(), half_ + 1, nullptr);
    }

    /// Row `odd`, and the even one above it.
    void finishRows(std::size_t odd) {
        computeHorizontal(odd + 1);
        computeVertical(odd);
        computeFaces(odd);
        writeOddRow(odd);
        writeEvenRow(odd + 1);
        if (next_) next_->push(rows_[(odd + 1) % 4].even.data(), half_ + 1, face_.data());
    }

    Value * errorsOf(std::size_t row) const { return errors_ + row * step_ * pitch_; }

    /// The even columns belong to the coarser levels, which write later.
    void writeEvenRow(std::size_t row) const {
        Value * errors = errorsOf(row);
        const Value * horizontal = horizontal_[row / 2 % 2].data();
        if (step_ == 1) return joinColumns(half_, horizontal, horizontal, errors);
        for (std::size_t i = 0; i < half_; ++i)
            errors[(2 * i + 1) * step_] = horizontal[i];
    }

    void writeOddRow(std::size_t row) const {
        Value * errors = errorsOf(row);
        const Value *vertical = vertical_.data(), *face = face_.data();
        if (step_ == 1)
            joinColumns(half_, vertical, face, errors);
        else
            for (std::size_t i = 0; i < half_; ++i) {
                errors[2 * i * step_] = vertical[i];
                errors[(2 * i + 1) * step_] = face[i];
            }
        errors[cells_ * step_] = vertical[half_];
    }

    std::size_t cells_, half_, step_, pitch_;
    Value * errors_;
    std::size_t pushed_ = 0;
    std::vector<HeightRow> rows_; ///< the last four
    std::vector<FacePairs> faces_;
    FacePairs noFaces_;
    std::vector<Row> horizontal_; ///< the last two even rows
    Row vertical_, face_, diagonals_;
    std::unique_ptr<Level> next_;
};

} // namespace

void ChunkedLodErrorField::compute(const unsigned short * heights, unsigned sizeX, unsigned sizeY,
                                   unsigned level, unsigned short * errors) {
    const std::size_t cells = std::size_t(1) << level, pitch = cells + 1;
    Level finest(cells, 1, errors);
    for (std::size_t row = 0; row <= cells; ++row)
        finest.push(heights + std::min<std::size_t>(row, sizeY - 1) * sizeX, sizeX, nullptr);
    for (const std::size_t vertex :
         {std::size_t(0), cells, cells * pitch, cells * pitch + cells, cells / 2 * (pitch + 1)})
        errors[vertex] = s_alwaysPresent;
}

} // namespace ZMT::CORE
