// The formats are those of GL_EXT_texture_compression_s3tc. stb_dxt encodes opaque blocks and those of DXT5;
// whole pictures without alpha go to `DXT1Encoder`.
// It knows neither holes nor alpha of four bits: these are encoded here around its end colours.

#include "s3tc.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#define STB_DXT_IMPLEMENTATION
#define STB_DXT_STATIC
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#include <stb_dxt.h>
#pragma GCC diagnostic pop

namespace NBX::S3TC {

namespace {

using Pixel = std::array<std::uint8_t, 4>;

std::uint16_t readU16(const unsigned char * p) {
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}

void writeU16(unsigned char * p, unsigned value) {
    p[0] = static_cast<unsigned char>(value);
    p[1] = static_cast<unsigned char>(value >> 8);
}

/// Red in the highest 5 bits, green in 6, blue in 5.
Pixel expand565(std::uint16_t c) {
    const int r = c >> 11, g = (c >> 5) & 63, b = c & 31;
    return {static_cast<std::uint8_t>(r << 3 | r >> 2), static_cast<std::uint8_t>(g << 2 | g >> 4),
            static_cast<std::uint8_t>(b << 3 | b >> 2), 255};
}

/// (a * weightA + b * weightB) / (weightA + weightB) for every colour.
Pixel mix(const Pixel & a, int weightA, const Pixel & b, int weightB) {
    Pixel result{0, 0, 0, 255};
    for (int c = 0; c < 3; ++c)
        result[c] = static_cast<std::uint8_t>((a[c] * weightA + b[c] * weightB) / (weightA + weightB));
    return result;
}

/// Blocks of two 16-bit colours in rising order have a mean and a hole, where the format allows.
std::array<Pixel, 4> makePalette(std::uint16_t first, std::uint16_t second, bool alwaysFour, bool hole) {
    const Pixel a = expand565(first), b = expand565(second);
    if (alwaysFour || first > second) return {a, b, mix(a, 2, b, 1), mix(a, 1, b, 2)};
    return {a, b, mix(a, 1, b, 1), Pixel{0, 0, 0, static_cast<std::uint8_t>(hole ? 0 : 255)}};
}

void decodeColors(const unsigned char * block, bool alwaysFour, bool hole, unsigned char * pixels) {
    const std::array<Pixel, 4> palette = makePalette(readU16(block), readU16(block + 2), alwaysFour, hole);
    for (int i = 0; i < 16; ++i, pixels += 4)
        std::memcpy(pixels, palette[block[4 + i / 4] >> (2 * (i % 4)) & 3].data(), 4);
}

void decodeAlpha4(const unsigned char * block, unsigned char * pixels) {
    for (int i = 0; i < 16; ++i) {
        const int alpha = block[i / 2] >> (4 * (i % 2)) & 15;
        pixels[4 * i + 3] = static_cast<unsigned char>(alpha * 17);
    }
}

void decodeAlpha3(const unsigned char * block, unsigned char * pixels) {
    const int a = block[0], b = block[1];
    std::array<int, 8> palette{a, b};
    for (int i = 1; i < 7; ++i)
        palette[i + 1] = ((7 - i) * a + i * b) / 7;
    if (a <= b) {
        for (int i = 1; i < 5; ++i)
            palette[i + 1] = ((5 - i) * a + i * b) / 5;
        palette[6] = 0;
        palette[7] = 255;
    }
    std::uint64_t bits = 0;
    for (int i = 0; i < 6; ++i)
        bits |= static_cast<std::uint64_t>(block[2 + i]) << (8 * i);
    for (int i = 0; i < 16; ++i, bits >>= 3)
        pixels[4 * i + 3] = static_cast<unsigned char>(palette[bits & 7]);
}

void encodeAlpha4(const unsigned char * pixels, unsigned char * block) {
    for (int i = 0; i < 8; ++i) {
        const int low = (pixels[8 * i + 3] + 8) / 17, high = (pixels[8 * i + 7] + 8) / 17;
        block[i] = static_cast<unsigned char>(low | high << 4);
    }
}

int distance(const Pixel & a, const unsigned char * b) {
    int sum = 0;
    for (int c = 0; c < 3; ++c)
        sum += (a[c] - b[c]) * (a[c] - b[c]);
    return sum;
}

int nearest(const std::array<Pixel, 4> & palette, int candidates, const unsigned char * pixel) {
    int best = 0;
    for (int i = 1; i < candidates; ++i)
        if (distance(palette[i], pixel) < distance(palette[best], pixel)) best = i;
    return best;
}

void encodeColors(const unsigned char * pixels, unsigned char * block) {
    // The encoder looks at alpha when it searches for blocks of one colour, and reads whole words.
    alignas(16) std::array<unsigned char, 64> opaque;
    std::memcpy(opaque.data(), pixels, opaque.size());
    for (int i = 0; i < 16; ++i)
        opaque[4 * i + 3] = 255;
    stb_compress_dxt_block(block, opaque.data(), 0, STB_DXT_HIGHQUAL);
}

bool isTransparent(const unsigned char * pixel) {
    return pixel[3] < 128;
}

/// A block with holes: the end colours of the opaque pixels, in rising order, and every pixel's best match.
void encodeWithHoles(const unsigned char * pixels, unsigned char * block) {
    const unsigned char * opaque = nullptr;
    for (std::size_t i = 0; i < 16 && !opaque; ++i)
        if (!isTransparent(pixels + 4 * i)) opaque = pixels + 4 * i;
    if (!opaque) {
        std::memset(block, 0, 4);
        std::memset(block + 4, 0xFF, 4);
        return;
    }
    std::array<unsigned char, 64> filled;
    for (std::size_t i = 0; i < 16; ++i)
        std::memcpy(&filled[4 * i], isTransparent(pixels + 4 * i) ? opaque : pixels + 4 * i, 4);
    encodeColors(filled.data(), block);
    const std::uint16_t low = std::min(readU16(block), readU16(block + 2));
    const std::uint16_t high = std::max(readU16(block), readU16(block + 2));
    writeU16(block, low);
    writeU16(block + 2, high);
    const std::array<Pixel, 4> palette = makePalette(low, high, false, true);
    std::memset(block + 4, 0, 4);
    for (int i = 0; i < 16; ++i, pixels += 4) {
        const int index = isTransparent(pixels) ? 3 : nearest(palette, 3, pixels);
        block[4 + i / 4] = static_cast<unsigned char>(block[4 + i / 4] | index << (2 * (i % 4)));
    }
}

/// Reverses the first `lines` of the 4 lines of indices, which are `bits` wide.
void reverseIndices(unsigned char * indices, int bits, int lines) {
    std::uint64_t value = 0;
    for (int i = 0; i < bits / 2; ++i)
        value |= static_cast<std::uint64_t>(indices[i]) << (8 * i);
    const std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
    std::uint64_t reversed = 0;
    for (int line = 0; line < 4; ++line) {
        const int from = line < lines ? lines - 1 - line : line;
        reversed |= (value >> (bits * from) & mask) << (bits * line);
    }
    for (int i = 0; i < bits / 2; ++i)
        indices[i] = static_cast<unsigned char>(reversed >> (8 * i));
}

} // namespace

void encode(Format format, const unsigned char * pixels, unsigned char * block) {
    bool holes = false;
    for (std::size_t i = 0; i < 16; ++i)
        holes = holes || isTransparent(pixels + 4 * i);
    if (format == Format::DXT5) {
        alignas(16) std::array<unsigned char, 64> aligned;
        std::memcpy(aligned.data(), pixels, aligned.size());
        stb_compress_dxt_block(block, aligned.data(), 1, STB_DXT_HIGHQUAL);
    } else if (format == Format::DXT3) {
        encodeAlpha4(pixels, block);
        encodeColors(pixels, block + 8);
    } else if (format == Format::DXT1A && holes) {
        encodeWithHoles(pixels, block);
    } else {
        encodeColors(pixels, block);
    }
}

void decode(Format format, const unsigned char * block, unsigned char * pixels) {
    if (format == Format::DXT1 || format == Format::DXT1A) {
        decodeColors(block, false, format == Format::DXT1A, pixels);
        return;
    }
    decodeColors(block + 8, true, false, pixels);
    if (format == Format::DXT3)
        decodeAlpha4(block, pixels);
    else
        decodeAlpha3(block, pixels);
}

void reverseLines(Format format, unsigned char * block, int lines) {
    if (format == Format::DXT3) reverseIndices(block, 16, lines);
    if (format == Format::DXT5) reverseIndices(block + 2, 12, lines);
    reverseIndices(block + blockBytes(format) - 4, 8, lines);
}

} // namespace NBX::S3TC
