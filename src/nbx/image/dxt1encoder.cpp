// After S. Brown's "cluster fit" and F. Giesen's "real-time DXT compression": the end colours lie on the
// principal axis of the 16 colours, and are then solved for by least squares from the choice of each pixel.
//
// Eight blocks go through the arithmetic side by side, one in each lane of a vector: gathering the bytes of
// a pixel of each (`gather`), fitting two colours (`fit`, in dxt1encoder.inl, once for each kind of
// processor), writing the blocks (`writeBlock`). All variants do the same operations in the same order on
// IEEE numbers, and the compiler fuses none, so that their bytes are the same.
//
// Blocks of nearly one colour are where 16-bit colours fail: there the third colour of a pair out of a table
// stands for all pixels, when that is better.

#include "dxt1encoder.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#if defined(__GNUC__) && !defined(__clang__)
// The loops over three colours must be unrolled: their vectors belong into registers.
#pragma GCC optimize("O3")
#endif

namespace NBX::DXT1Encoder {

namespace {

constexpr int s_lanes = 8;
/// More improve the picture by less than a hundredth of a decibel.
constexpr int s_refinements = 3;

/// The same pixel of all blocks side by side: pixel, colour, block.
struct Lanes {
    alignas(8) unsigned char bytes[16][3][s_lanes];
};

struct Fit {
    int low[s_lanes], high[s_lanes]; ///< end colours of 16 bits
    int bits[s_lanes];               ///< as a block holds them when its first colour is the low end
    float error[s_lanes];            ///< sum of the squared differences of the pixels
    float spread[s_lanes];           ///< the same from the mean colour
    int mean[3][s_lanes];            ///< rounded
};

// The vectors are passed inside of this file only. The warning comes at its end.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace Portable {
#include "dxt1encoder.inl"
}

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define NBX_DXT1_AVX2
#pragma GCC push_options
#pragma GCC target("avx2")
namespace AVX2 {
#include "dxt1encoder.inl"
}
#pragma GCC pop_options
#endif

using FitLanes = void (*)(const Lanes &, Fit &);

FitLanes fitOfThisProcessor() {
#ifdef NBX_DXT1_AVX2
    if (__builtin_cpu_supports("avx2")) return AVX2::fit;
#endif
    return Portable::fit;
}

/// Two ends of a colour, of `bits` bits, whose mixture of two thirds and one third comes nearest to each
/// value of 8 bits. Ends that lie close together come first: decoders round differently.
class SingleColorTable {
public:
    struct Ends {
        std::uint8_t first, second;
        std::uint16_t squaredError;
    };

    explicit SingleColorTable(int bits) {
        for (int value = 0; value < 256; ++value)
            ends_[static_cast<std::size_t>(value)] = best(value, bits);
    }
    const Ends & operator[](int value) const { return ends_[static_cast<std::size_t>(value)]; }

private:
    static int expanded(int value, int bits) { return value << (8 - bits) | value >> (2 * bits - 8); }

    static Ends best(int value, int bits) {
        Ends best{};
        int least = 1 << 20;
        for (int first = 0; first < 1 << bits; ++first)
            for (int second = 0; second < 1 << bits; ++second) {
                const int a = expanded(first, bits), b = expanded(second, bits);
                const int error = std::abs((2 * a + b) / 3 - value);
                const int cost = 1024 * error + std::abs(a - b);
                if (cost >= least) continue;
                least = cost;
                best = {static_cast<std::uint8_t>(first), static_cast<std::uint8_t>(second),
                        static_cast<std::uint16_t>(error * error)};
            }
        return best;
    }

    std::array<Ends, 256> ends_;
};

struct Block {
    unsigned first, second, bits;
};

void writeBlock(Block block, unsigned char * out) {
    // In rising order the fourth colour would be black.
    if (block.first < block.second) {
        std::swap(block.first, block.second);
        block.bits ^= 0x55555555U;
    }
    for (int i = 0; i < 2; ++i) {
        out[i] = static_cast<unsigned char>(block.first >> (8 * i));
        out[2 + i] = static_cast<unsigned char>(block.second >> (8 * i));
    }
    for (int i = 0; i < 4; ++i)
        out[4 + i] = static_cast<unsigned char>(block.bits >> (8 * i));
}

/// Every pixel has the third colour, which comes as near to the mean as any; false when its error is not
/// below that of `fit`.
bool findSingleColor(const Fit & fit, int lane, Block & block) {
    static const SingleColorTable five(5), six(6);
    const SingleColorTable::Ends &r = five[fit.mean[0][lane]], &g = six[fit.mean[1][lane]],
                                 &b = five[fit.mean[2][lane]];
    const int offMean = r.squaredError + g.squaredError + b.squaredError;
    if (fit.spread[lane] + 16.0F * static_cast<float>(offMean) >= fit.error[lane]) return false;
    block.first = static_cast<unsigned>(r.first << 11 | g.first << 5 | b.first);
    block.second = static_cast<unsigned>(r.second << 11 | g.second << 5 | b.second);
    block.bits = block.first == block.second ? 0U : 0xAAAAAAAAU;
    return true;
}

void writeLane(const Fit & fit, int lane, unsigned char * out) {
    Block block{static_cast<unsigned>(fit.low[lane]), static_cast<unsigned>(fit.high[lane]),
                static_cast<unsigned>(fit.bits[lane])};
    if (fit.spread[lane] < fit.error[lane]) findSingleColor(fit, lane, block);
    if (block.first == block.second) block.bits = 0;
    writeBlock(block, out);
}

/// The bytes of the blocks from `column` on.
void gather(const std::array<const unsigned char *, 4> & lines, const PixelForm & form, int width, int column,
            Lanes & lanes) {
    const auto step = static_cast<std::size_t>(form.bytes);
    const int inside = std::min(s_lanes, (width - 4 * column) / 4);
    for (std::size_t i = 0; i < 16; ++i) {
        const unsigned char * line = lines[i / 4];
        const unsigned char * pixel = line + step * (4 * static_cast<std::size_t>(column) + i % 4);
        for (int lane = 0; lane < inside; ++lane, pixel += 4 * step)
            for (std::size_t c = 0; c < 3; ++c)
                lanes.bytes[i][c][lane] = pixel[form.color[c]];
        for (int lane = inside; lane < s_lanes; ++lane) {
            const int x = std::min(4 * (column + lane) + static_cast<int>(i % 4), width - 1);
            for (std::size_t c = 0; c < 3; ++c)
                lanes.bytes[i][c][lane] = line[step * static_cast<std::size_t>(x) + form.color[c]];
        }
    }
}

} // namespace

void encodeRow(const std::array<const unsigned char *, 4> & lines, const PixelForm & form, int width,
               unsigned char * blocks, Instructions instructions) {
    static const FitLanes best = fitOfThisProcessor();
    const FitLanes fitLanes = instructions == Instructions::Best ? best : Portable::fit;
    Lanes lanes;
    Fit fit;
    const int columns = (width + 3) / 4;
    for (int column = 0; column < columns; column += s_lanes) {
        gather(lines, form, width, column, lanes);
        fitLanes(lanes, fit);
        for (int lane = 0; lane < std::min(s_lanes, columns - column); ++lane, blocks += 8)
            writeLane(fit, lane, blocks);
    }
}

} // namespace NBX::DXT1Encoder
