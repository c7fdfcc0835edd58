// Vertices stand in the order of the samples in the file. They are built in memory, in plain loops, and wait
// there for the first use, which brings the engine that the upload needs.

#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>

#include <algorithm>
#include <limits>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/bufferobjectgl.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

namespace ZMT::CORE::GRID {

namespace {

using Vertex = GridTerrainTileVertexBuffer::Vertex;
using Point = NBX::Vector3Base<double>;

static_assert(sizeof(Vertex) == 16);

constexpr unsigned s_borders = 4;
constexpr std::uint8_t s_gridColor = 192, s_borderColor = 0;

std::array<std::uint8_t, 4> colorOf(std::uint8_t grey, std::uint16_t value) {
    return {grey, grey, grey, static_cast<std::uint8_t>(value != 0 ? 255 : 0)};
}

unsigned borderVertices(const GridTerrainTileData & data) {
    unsigned vertices = 0;
    for (unsigned k = 0; k < data.borderLODs(); ++k)
        vertices += data.borderLODValues(k);
    return vertices * s_borders;
}

/// All samples as `GridTerrainTileData::samples` has them, for data that lie otherwise.
std::vector<std::uint16_t> collectSamples(const GridTerrainTileData & data) {
    std::vector<std::uint16_t> samples;
    for (unsigned y = 0; y < data.cells(); ++y)
        for (unsigned x = 0; x < data.cells(); ++x)
            samples.push_back(data.value(x, y));
    for (unsigned border = 0; border < s_borders; ++border)
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
        unsigned lowest = 65535, highest = 0, least = 65535;
        for (unsigned x = 0; x < cells; ++x) {
            lowest = std::min<unsigned>(lowest, static_cast<std::uint16_t>(row[x] - 1));
            highest = std::max<unsigned>(highest, row[x]);
            least = std::min<unsigned>(least, row[x]);
        }
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
        if (lowest + 1 < low) {
            low = lowest + 1, lowY = y;
            lowX = static_cast<unsigned>(std::find(row, end, low) - row);
        }
        if (highest > high) {
            high = highest, highY = y;
            highX = static_cast<unsigned>(std::find(row, end, high) - row);
        }
    }
};

/// Of those that are defined.
NBX::Bounds boxOf(const Vertex * begin, const Vertex * end) {
    NBX::Bounds box;
    for (const Vertex * v = begin; v != end; ++v)
        if (v->z != 0.0F) box += Point(v->x, v->y, v->z);
    return box;
}

/// Writes vertices one after the other.
struct Writer {
    Vertex * next;
    double step;

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
    bytes_ = static_cast<unsigned>(vertices_.size() * sizeof vertices_[0]);
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
    vertices_.resize(std::size_t(cells) * cells + borderVertices(data));
    Writer writer{vertices_.data(), double(data.step())};
    const double x = data.tileX(), y = data.tileY(), last = cells - 1.0;

    Extent extent;
    for (unsigned row = 0; row < cells; ++row, values += cells) {
        writer.run(values, cells, x, y + row, 1.0, 0.0, s_gridColor);
        extent.addRow(values, row, cells);
    }
    for (unsigned border = 0; border < s_borders; ++border)
        for (unsigned k = 0; k < data.borderLODs(); ++k) {
            const double rowStep = 1U << k;
            const bool isAlongY = border % 2 == 0;
            writer.run(values, data.borderLODValues(k), x + (border == 2 ? last : 0.0),
                       y + (border == 3 ? last : 0.0), isAlongY ? 0.0 : rowStep, isAlongY ? rowStep : 0.0,
                       s_borderColor);
            if (k > 0) borderBoxes_[border] += boxOf(writer.next - data.borderLODValues(k), writer.next);
            values += data.borderLODValues(k);
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
        new NBX::BufferObjectGL(engine, bytes_, vertices_.data(), NBX::BufferObjectGL::DT_VertexAttributes,
                                NBX::BufferObjectGL::UP_Static);
    std::vector<Vertex>().swap(vertices_);
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
