// Vertices stand in the order of the samples in the file. They are built in memory, in plain loops, and wait
// there for the first use, which brings the engine that the upload needs.

#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>

#include <algorithm>
#include <limits>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/bufferobjectgl.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

#include "tilesquare.h"

// The smallest and the largest number of a row are found in registers that hold several.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("O3")
#endif

namespace ZMT::CORE::GRID {

namespace {

using Vertex = GridTerrainTileVertexBuffer::Vertex;
using Point = NBX::Vector3Base<double>;

static_assert(sizeof(Vertex) == 16);

constexpr std::uint8_t s_gridColor = 192, s_borderColor = 0;

std::array<std::uint8_t, 4> colorOf(std::uint8_t grey, std::uint16_t value) {
    return {grey, grey, grey, static_cast<std::uint8_t>(value != 0 ? 255 : 0)};
}

unsigned borderVertices(const GridTerrainTileData & data) {
    unsigned vertices = 0;
    for (unsigned k = 0; k < data.borderLODs(); ++k)
        vertices += data.borderLODValues(k);
    return vertices * bordersOfTile;
}

/// All samples as `GridTerrainTileData::samples` has them, for data that lie otherwise.
std::vector<std::uint16_t> collectSamples(const GridTerrainTileData & data) {
    std::vector<std::uint16_t> samples;
    samples.reserve(std::size_t(data.cells()) * data.cells() + borderVertices(data));
    for (unsigned y = 0; y < data.cells(); ++y)
        for (unsigned x = 0; x < data.cells(); ++x)
            samples.push_back(data.value(x, y));
    for (unsigned border = 0; border < bordersOfTile; ++border)
        for (unsigned k = 0; k < data.borderLODs(); ++k)
            for (unsigned i = 0; i < data.borderLODValues(k); ++i)
                samples.push_back(data.borderValue(border, k, i));
    return samples;
}

/// The defined samples of a tile: their box, and where the extreme ones lie.
struct Extent {
    unsigned minX = std::numeric_limits<unsigned>::max(), maxX = 0;
    unsigned minY = std::numeric_limits<unsigned>::max(), maxY = 0;
    unsigned low = 65536, high = 0;
    unsigned lowX = 0, lowY = 0, highX = 0, highY = 0;
    bool hasUndefined = false;

    bool isEmpty() const { return high == 0; }

    void addRow(const std::uint16_t * row, unsigned y, unsigned cells) {
        // One less turns "undefined" into the largest number.
        std::uint16_t lowestLess1 = 65535, highest = 0, least = 65535;
        for (unsigned x = 0; x < cells; ++x) {
            lowestLess1 = std::min(lowestLess1, static_cast<std::uint16_t>(row[x] - 1));
            highest = std::max(highest, row[x]);
            least = std::min(least, row[x]);
        }
        const unsigned lowest = lowestLess1 + 1U;
        hasUndefined = hasUndefined || least == 0;
        if (highest == 0) return;
        const std::uint16_t * end = row + cells;
        const auto isDefined = [](std::uint16_t value) { return value != 0; };
        minX = std::min(minX, static_cast<unsigned>(std::find_if(row, end, isDefined) - row));
        unsigned last = cells - 1;
        while (row[last] == 0)
            --last;
        maxX = std::max(maxX, last);
        minY = std::min(minY, y), maxY = y;
        if (lowest < low) {
            low = lowest, lowY = y;
            lowX = static_cast<unsigned>(std::find(row, end, low) - row);
        }
        if (highest > high) {
            high = highest, highY = y;
            highX = static_cast<unsigned>(std::find(row, end, high) - row);
        }
    }
};

/// The box of a row of a border from one end to the other, as high as its defined heights.
NBX::Bounds boxOf(const Vertex & first, const Vertex & last, const std::uint16_t * values, unsigned count) {
    std::uint16_t lowestLess1 = 65535, highest = 0;
    for (unsigned i = 0; i < count; ++i) {
        lowestLess1 = std::min(lowestLess1, static_cast<std::uint16_t>(values[i] - 1));
        highest = std::max(highest, values[i]);
    }
    if (highest == 0) return {};
    return NBX::Bounds(Point(first.x, first.y, lowestLess1 + 1.0), Point(last.x, last.y, highest));
}

#if defined(__SSE2__)
/// Writes the vertices of a row of the grid, four at once as far as that goes, and tells how many: four
/// records are four vectors turned over. It takes a third of the time of single stores, which are most of
/// what a buffer costs.
std::size_t writeFours(Vertex * vertices, const std::uint16_t * values, const std::vector<float> & columns,
                       float y) {
    const __m128i zero = _mm_setzero_si128(), opaque = _mm_set1_epi32(static_cast<int>(0xff000000U));
    const __m128i grey = _mm_set1_epi32(s_gridColor * 0x010101);
    const __m128 ys = _mm_set1_ps(y);
    std::size_t i = 0;
    for (; i + 4 <= columns.size(); i += 4) {
        const auto * four = reinterpret_cast<const __m128i *>(values + i);
        const __m128i value = _mm_unpacklo_epi16(_mm_loadl_epi64(four), zero);
        const __m128i alpha = _mm_andnot_si128(_mm_cmpeq_epi32(value, zero), opaque);
        const __m128 color = _mm_castsi128_ps(_mm_or_si128(grey, alpha));
        const __m128 xs = _mm_loadu_ps(columns.data() + i), zs = _mm_cvtepi32_ps(value);
        const __m128 xyLow = _mm_unpacklo_ps(xs, ys), xyHigh = _mm_unpackhi_ps(xs, ys);
        const __m128 zcLow = _mm_unpacklo_ps(zs, color), zcHigh = _mm_unpackhi_ps(zs, color);
        float * target = &vertices[i].x;
        _mm_storeu_ps(target, _mm_movelh_ps(xyLow, zcLow));
        _mm_storeu_ps(target + 4, _mm_movehl_ps(zcLow, xyLow));
        _mm_storeu_ps(target + 8, _mm_movelh_ps(xyHigh, zcHigh));
        _mm_storeu_ps(target + 12, _mm_movehl_ps(zcHigh, xyHigh));
    }
    return i;
}
#else
std::size_t writeFours(Vertex *, const std::uint16_t *, const std::vector<float> &, float) {
    return 0;
}
#endif

/// Writes vertices one after the other.
struct Writer {
    Vertex * next;
    double step;

    void gridRow(const std::uint16_t * values, const std::vector<float> & columns, float y) {
        const std::size_t count = columns.size();
        for (std::size_t i = writeFours(next, values, columns, y); i < count; ++i)
            next[i] = {columns[i], y, static_cast<float>(values[i]), colorOf(s_gridColor, values[i])};
        next += count;
    }

    /// `count` vertices from (`x`, `y`), in steps of the tile, on, each (`dx`, `dy`) behind the one before.
    void run(const std::uint16_t * values, unsigned count, double x, double y, double dx, double dy,
             std::uint8_t grey) {
        for (unsigned i = 0; i < count; ++i)
            next[i] = {static_cast<float>((x + dx * i) * step), static_cast<float>((y + dy * i) * step),
                       static_cast<float>(values[i]), colorOf(grey, values[i])};
        next += count;
    }
};

} // namespace

NBX_CLASS_IMPL(GridTerrainTileVertexBuffer, NBX::SharedObj)

GridTerrainTileVertexBuffer::GridTerrainTileVertexBuffer(NBX::SO<GridTerrainTileData> data) : data_(data) {
    NBX_CHECK(data, L"no tile data");
    if (!data) return;
    build();
    // Nobody holds the object yet: outside of a picture, a manager without room would delete it on the spot.
    NBX::GraphicsMemoryManager * manager = NBX::GraphicsMemoryManager::instance();
    if (manager->isInFrame() || bytes_ <= manager->getBudget()) manager->add(this, bytes_);
}

GridTerrainTileVertexBuffer::~GridTerrainTileVertexBuffer() = default;

void GridTerrainTileVertexBuffer::build() {
    const GridTerrainTileData & data = *data_;
    const unsigned cells = data.cells();
    std::vector<std::uint16_t> collected;
    const std::uint16_t * values = data.samples();
    if (!values) {
        collected = collectSamples(data);
        values = collected.data();
    }
    const std::size_t count = std::size_t(cells) * cells + borderVertices(data);
    vertices_ = std::make_unique_for_overwrite<Vertex[]>(count);
    bytes_ = static_cast<unsigned>(count * sizeof(Vertex));
    Writer writer{vertices_.get(), double(data.step())};
    const double x = data.tileX(), y = data.tileY(), last = cells - 1.0;
    std::vector<float> columns(cells);
    for (unsigned column = 0; column < cells; ++column)
        columns[column] = static_cast<float>((x + column) * writer.step);

    Extent extent;
    for (unsigned row = 0; row < cells; ++row, values += cells) {
        writer.gridRow(values, columns, static_cast<float>((y + row) * writer.step));
        extent.addRow(values, row, cells);
    }
    for (unsigned border = 0; border < bordersOfTile; ++border)
        for (unsigned k = 0; k < data.borderLODs(); ++k) {
            const double rowStep = 1U << k;
            const unsigned rowLength = data.borderLODValues(k);
            const bool isAlongY = border % 2 == 0;
            writer.run(values, rowLength, x + (border == 2 ? last : 0.0), y + (border == 3 ? last : 0.0),
                       isAlongY ? 0.0 : rowStep, isAlongY ? rowStep : 0.0, s_borderColor);
            if (k > 0)
                borderBoxes_[border] +=
                    boxOf(*(writer.next - rowLength), *(writer.next - 1), values, rowLength);
            values += rowLength;
        }

    hasUndefValues_ = extent.hasUndefined;
    if (extent.isEmpty()) return;
    const auto point = [&](unsigned column, unsigned row, unsigned height) {
        return Point((x + column) * writer.step, (y + row) * writer.step, height);
    };
    bbox_ = NBX::Bounds(point(extent.minX, extent.minY, extent.low),
                        point(extent.maxX, extent.maxY, extent.high));
    lowestPoint_ = point(extent.lowX, extent.lowY, extent.low);
    highestPoint_ = point(extent.highX, extent.highY, extent.high);
}

void GridTerrainTileVertexBuffer::upload(NBX::EngineGL * engine) const {
    buffer_ =
        new NBX::BufferObjectGL(engine, bytes_, vertices_.get(), NBX::BufferObjectGL::DT_VertexAttributes,
                                NBX::BufferObjectGL::UP_Static);
    vertices_.reset();
}

NBX::Bounds GridTerrainTileVertexBuffer::bbox() const {
    return bbox_;
}

bool GridTerrainTileVertexBuffer::hasUndefValues() const {
    return hasUndefValues_;
}

NBX::SO<NBX::BufferObjectGL> GridTerrainTileVertexBuffer::vertexArray() const {
    return buffer_;
}

NBX::SO<GridTerrainTileData> GridTerrainTileVertexBuffer::tileData() const {
    return data_;
}

} // namespace ZMT::CORE::GRID
