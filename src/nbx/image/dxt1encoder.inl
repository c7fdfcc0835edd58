// The arithmetic of eight blocks at once, one in each lane of a vector. Included once for each kind of
// processor, into a namespace of its own and with that processor's instructions switched on: vectors are
// taken apart where a function is compiled, so it does not help to be inlined into one with longer vectors.

#define DXT1_INLINE inline __attribute__((always_inline))

using Floats = float __attribute__((vector_size(32)));
using Ints = int __attribute__((vector_size(32)));

/// A colour of each block; components from 0 to 255.
struct Colors {
    Floats c[3];
};

/// The two ends of the line of colours as a block holds them.
struct Ends {
    Ints low, high; ///< of 16 bits
};

/// What comes of two ends: which of the four colours on the line between them each pixel has.
struct Match {
    Ints bits;    ///< 2 bits a pixel, as a block holds them when its first colour is the low end
    Floats error; ///< sum of the squared differences
    /// For the ends that fit best to this choice: shares of the high end, summed up.
    Floats share, squaredShare;
    Colors sharedColor;
};

DXT1_INLINE Floats smaller(const Floats & a, const Floats & b) {
    return a < b ? a : b;
}
DXT1_INLINE Floats larger(const Floats & a, const Floats & b) {
    return a > b ? a : b;
}
DXT1_INLINE Floats floatsOf(const Ints & a) {
    return __builtin_convertvector(a, Floats);
}
DXT1_INLINE Ints intsOf(const Floats & a) {
    return __builtin_convertvector(a, Ints);
}
DXT1_INLINE Floats splat(float value) {
    return Floats{} + value;
}

/// Colours as floating point numbers, and their sum.
struct Pixels {
    Floats p[16][3];
    Colors sum;
};

DXT1_INLINE void load(const Lanes & lanes, Pixels & pixels) {
    using Bytes = unsigned char __attribute__((vector_size(8)));
    for (int c = 0; c < 3; ++c)
        pixels.sum.c[c] = Floats{};
    for (int i = 0; i < 16; ++i)
        for (int c = 0; c < 3; ++c) {
            Bytes bytes;
            std::memcpy(&bytes, lanes.bytes[i][c], sizeof(bytes));
            pixels.p[i][c] = floatsOf(__builtin_convertvector(bytes, Ints));
            pixels.sum.c[c] += pixels.p[i][c];
        }
}

/// Products of the differences from the mean, summed up: xx, xy, xz, yy, yz, zz.
struct Covariance {
    Floats m[6];
};

DXT1_INLINE Covariance covarianceOf(const Pixels & pixels) {
    Covariance result{};
    Floats mean[3];
    for (int c = 0; c < 3; ++c)
        mean[c] = pixels.sum.c[c] * (1.0F / 16.0F);
    for (int i = 0; i < 16; ++i) {
        const Floats x = pixels.p[i][0] - mean[0], y = pixels.p[i][1] - mean[1], z = pixels.p[i][2] - mean[2];
        result.m[0] += x * x;
        result.m[1] += x * y;
        result.m[2] += x * z;
        result.m[3] += y * y;
        result.m[4] += y * z;
        result.m[5] += z * z;
    }
    return result;
}

/// The direction in which the colours differ most, by a few steps of power iteration from the row of the
/// largest variance. Zero where all are the same.
DXT1_INLINE Colors axisOf(const Covariance & covariance) {
    const Floats * m = covariance.m;
    const Ints greenLeads = (m[3] > m[0]) & (m[3] >= m[5]);
    const Ints blueLeads = (m[5] > m[0]) & ~greenLeads;
    Floats x = greenLeads ? m[1] : (blueLeads ? m[2] : m[0]);
    Floats y = greenLeads ? m[3] : (blueLeads ? m[4] : m[1]);
    Floats z = greenLeads ? m[4] : (blueLeads ? m[5] : m[2]);
    for (int step = 0; step < 3; ++step) {
        // Their largest is scaled to 1, so that the products stay in range.
        const Floats largest = larger(larger(larger(x, -x), larger(y, -y)), larger(z, -z));
        const Floats scale = 1.0F / larger(largest, splat(1e-20F));
        x *= scale;
        y *= scale;
        z *= scale;
        const Floats nextX = x * m[0] + y * m[1] + z * m[2], nextY = x * m[1] + y * m[3] + z * m[4],
                     nextZ = x * m[2] + y * m[4] + z * m[5];
        x = nextX;
        y = nextY;
        z = nextZ;
    }
    return {{x, y, z}};
}

/// The nearest colours that a block can hold.
DXT1_INLINE Ints quantized(const Colors & color) {
    Ints result{};
    for (int c = 0; c < 3; ++c) {
        const int bits = c == 1 ? 6 : 5;
        const auto largest = static_cast<float>((1 << bits) - 1);
        const Floats cut = smaller(larger(color.c[c], Floats{}), splat(255.0F));
        result = (result << bits) | intsOf(cut * (largest / 255.0F) + 0.5F);
    }
    return result;
}

DXT1_INLINE Colors expanded(const Ints & color) {
    const Ints r = color >> 11, g = (color >> 5) & 63, b = color & 31;
    return {{floatsOf((r << 3) | (r >> 2)), floatsOf((g << 2) | (g >> 4)), floatsOf((b << 3) | (b >> 2))}};
}

DXT1_INLINE Ends endsAlong(const Colors & axis, const Pixels & pixels) {
    Floats squared{}, mean[3];
    for (int c = 0; c < 3; ++c) {
        squared += axis.c[c] * axis.c[c];
        mean[c] = pixels.sum.c[c] * (1.0F / 16.0F);
    }
    Floats least{}, most{};
    for (int i = 0; i < 16; ++i) {
        Floats along{};
        for (int c = 0; c < 3; ++c)
            along += (pixels.p[i][c] - mean[c]) * axis.c[c];
        least = smaller(least, along);
        most = larger(most, along);
    }
    const Floats scale = squared > 0.0F ? 1.0F / squared : Floats{};
    Colors low, high;
    for (int c = 0; c < 3; ++c) {
        low.c[c] = mean[c] + axis.c[c] * (least * scale);
        high.c[c] = mean[c] + axis.c[c] * (most * scale);
    }
    return {quantized(low), quantized(high)};
}

DXT1_INLINE Match matchOf(const Ends & ends, const Pixels & pixels) {
    const Colors low = expanded(ends.low), high = expanded(ends.high);
    Floats line[3], squared{}, start{};
    for (int c = 0; c < 3; ++c) {
        line[c] = high.c[c] - low.c[c];
        squared += line[c] * line[c];
        start += low.c[c] * line[c];
    }
    const Floats scale = squared > 0.0F ? 3.0F / squared : Floats{};
    const Floats offset = 0.5F - start * scale;
    for (int c = 0; c < 3; ++c)
        line[c] *= 1.0F / 3.0F;
    Match match{};
    for (int i = 0; i < 16; ++i) {
        const Floats * p = pixels.p[i];
        // A third of the line is added to the scale, which is that of three steps.
        const Floats along = (p[0] * line[0] + p[1] * line[1] + p[2] * line[2]) * (scale * 3.0F) + offset;
        const Ints step = intsOf(smaller(larger(along, Floats{}), splat(3.0F)));
        const Floats share = floatsOf(step);
        match.share += share;
        match.squaredShare += share * share;
        for (int c = 0; c < 3; ++c) {
            const Floats difference = p[c] - (low.c[c] + line[c] * share);
            match.error += difference * difference;
            match.sharedColor.c[c] += p[c] * share;
        }
        // Steps 0 to 3 are the colours 0, 2, 3, 1 of a block.
        match.bits |= (((step + 1) & 2) | (step >> 1)) << (2 * i);
    }
    match.share *= 1.0F / 3.0F;
    match.squaredShare *= 1.0F / 9.0F;
    for (int c = 0; c < 3; ++c)
        match.sharedColor.c[c] *= 1.0F / 3.0F;
    return match;
}

/// The ends with the least squared error for the choice of `match`; the same ends where all pixels chose the
/// same, which leaves one of the ends open.
DXT1_INLINE Ends refined(const Ends & ends, const Match & match, const Pixels & pixels) {
    const Floats lowLow = 16.0F - 2.0F * match.share + match.squaredShare;
    const Floats lowHigh = match.share - match.squaredShare, highHigh = match.squaredShare;
    const Floats determinant = lowLow * highHigh - lowHigh * lowHigh;
    const Ints solvable = determinant > 0.01F;
    const Floats scale = 1.0F / (solvable ? determinant : splat(1.0F));
    Colors low, high;
    for (int c = 0; c < 3; ++c) {
        const Floats atHigh = match.sharedColor.c[c], atLow = pixels.sum.c[c] - atHigh;
        low.c[c] = (atLow * highHigh - atHigh * lowHigh) * scale;
        high.c[c] = (atHigh * lowLow - atLow * lowHigh) * scale;
    }
    return {solvable ? quantized(low) : ends.low, solvable ? quantized(high) : ends.high};
}

/// Fits all lanes: the line along the axis, then the best ends for the choice that it leads to, as long as
/// that is better.
inline void fit(const Lanes & lanes, Fit & result) {
    Pixels pixels;
    load(lanes, pixels);
    const Covariance covariance = covarianceOf(pixels);
    Ends ends = endsAlong(axisOf(covariance), pixels);
    Match match = matchOf(ends, pixels);
    Ends best = ends;
    Ints bits = match.bits;
    Floats error = match.error;
    for (int round = 0; round < s_refinements; ++round) {
        ends = refined(ends, match, pixels);
        match = matchOf(ends, pixels);
        const Ints better = match.error < error;
        best.low = better ? ends.low : best.low;
        best.high = better ? ends.high : best.high;
        bits = better ? match.bits : bits;
        error = better ? match.error : error;
    }
    const Floats spread = covariance.m[0] + covariance.m[3] + covariance.m[5];
    std::memcpy(result.low, &best.low, sizeof(best.low));
    std::memcpy(result.high, &best.high, sizeof(best.high));
    std::memcpy(result.bits, &bits, sizeof(bits));
    std::memcpy(result.error, &error, sizeof(error));
    std::memcpy(result.spread, &spread, sizeof(spread));
    for (int c = 0; c < 3; ++c) {
        const Ints mean = intsOf(pixels.sum.c[c] * (1.0F / 16.0F) + 0.5F);
        std::memcpy(result.mean[c], &mean, sizeof(mean));
    }
}

#undef DXT1_INLINE
