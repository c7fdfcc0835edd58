// The triangles are sorted by the cells of their centres in Morton order, so that each node of the quadtree
// is one range of them, and an area a few ranges. Nodes know the extent of their triangles, which may reach
// beyond their cells. The buffers are made by the first drawing.

#include <nbx/gl/mesh/primitivequadtreegl.h>

#include <algorithm>
#include <cstdint>
#include <numeric>

#include <GL/glew.h>

#include <nbx/engine/shapepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/primitivequadtreeareagl.h>
#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>
#include <nbx/math/isfinite.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(PrimitiveQuadTreeGL, Shape)

namespace {

using Corners = std::array<unsigned, 3>;
using Position = Vector3Base<float>;
using Ranges = std::vector<PrimitiveQuadTreeGL::Range>;

/// Extent in the two directions of the split. In the precision in which the triangles are drawn.
struct Rectangle {
    float min[2], max[2];

    bool touches(const Rectangle & other) const {
        return min[0] <= other.max[0] && other.min[0] <= max[0] && min[1] <= other.max[1] &&
               other.min[1] <= max[1];
    }
    bool isInside(const Rectangle & other) const {
        return other.min[0] <= min[0] && max[0] <= other.max[0] && other.min[1] <= min[1] &&
               max[1] <= other.max[1];
    }
    Rectangle & operator+=(const Rectangle & other) {
        for (unsigned i = 0; i < 2; ++i) {
            min[i] = std::min(min[i], other.min[i]);
            max[i] = std::max(max[i], other.max[i]);
        }
        return *this;
    }
};

Rectangle rectangleOf(const Bounds & box, unsigned second) {
    const auto & a = box.getLLF();
    const auto & b = box.getURB();
    return {{float(a.x), float(a[second])}, {float(b.x), float(b[second])}};
}

Rectangle rectangleOf(const std::vector<Position> & positions, const Corners & corners, unsigned second) {
    const Position & first = positions[corners[0]];
    Rectangle result{{first.x, first[second]}, {first.x, first[second]}};
    for (const unsigned corner : corners) {
        const Position & p = positions[corner];
        result += {{p.x, p[second]}, {p.x, p[second]}};
    }
    return result;
}

/// Spreads the low 16 bits to the even places.
std::uint32_t spread(std::uint32_t bits) {
    bits = (bits | bits << 8) & 0x00ff00ff;
    bits = (bits | bits << 4) & 0x0f0f0f0f;
    bits = (bits | bits << 2) & 0x33333333;
    return (bits | bits << 1) & 0x55555555;
}

/// Number of the cell in which the centre of the rectangle lies, of 2^levels in each direction, in the order
/// of G. M. Morton, A Computer Oriented Geodetic Data Base, 1966: two bits for each level.
std::uint32_t cellOf(const Rectangle & rectangle, const Rectangle & split, unsigned levels) {
    const double cells = double(1U << levels);
    std::uint32_t numbers[2];
    for (unsigned i = 0; i < 2; ++i) {
        const double size = double(split.max[i]) - split.min[i];
        const double center = (double(rectangle.min[i]) + rectangle.max[i]) / 2.0;
        const double cell = (center - split.min[i]) / size * cells;
        // A rectangle without extent, or with one that is not finite, has one cell.
        numbers[i] = cell > 0.0 && size > 0.0 ? static_cast<std::uint32_t>(std::min(cell, cells - 1.0)) : 0;
    }
    return spread(numbers[0]) | spread(numbers[1]) << 1;
}

void append(Ranges & ranges, unsigned first, unsigned count) {
    if (!ranges.empty() && ranges.back().first + ranges.back().count == first)
        ranges.back().count += count;
    else
        ranges.push_back({first, count});
}

struct Node {
    PrimitiveQuadTreeGL::Range range;
    Rectangle rectangle; ///< of the triangles
    unsigned firstChild; ///< number of the first of the children, which follow each other
    unsigned children;   ///< 0 for a leaf
};

using Attributes = SO<BaseVertexAttributeBufferObjectGL>;

Attributes newBuffer(EngineGL * engine, const Iterator<Vector3Base<double>> * vectors, unsigned count) {
    if (!vectors || vectors->size() < count) return nullptr;
    std::vector<Position> values;
    values.reserve(vectors->size());
    for (const Vector3Base<double> & v : *vectors)
        values.emplace_back(v);
    return new VertexAttributeBufferObjectGL<Position>(engine, vectors->size(), values.data());
}

Attributes newBuffer(EngineGL * engine, const Iterator<Color> * colors, unsigned count) {
    using Components = std::array<float, 4>;
    if (!colors || colors->size() < count) return nullptr;
    std::vector<Components> values;
    values.reserve(colors->size());
    for (const Color & c : *colors)
        values.push_back({c[0], c[1], c[2], c[3]});
    return new VertexAttributeBufferObjectGL<Components>(engine, colors->size(), values.data());
}

/// What lies on the graphics card.
struct Buffers {
    Attributes positions, normals, colors;
    std::array<Attributes, PolygonSet::maxTextureUnits> texCoords;
    SO<BufferObjectGL> indices;

    /// False when the driver had no memory for them.
    bool areComplete(std::size_t vertices, std::size_t triangles) const {
        return positions->bytes() >= vertices * sizeof(Position) &&
               indices->bytes() >= triangles * sizeof(Corners) && isComplete(normals) && isComplete(colors) &&
               std::all_of(texCoords.begin(), texCoords.end(), isComplete);
    }

    void bind(EngineGL * engine) const {
        if (normals) {
            normals->bind(engine);
            glNormalPointer(GL_FLOAT, 0, normals->boundAddress(0));
            glEnableClientState(GL_NORMAL_ARRAY);
        }
        if (colors) {
            colors->bind(engine);
            glColorPointer(4, GL_FLOAT, 0, colors->boundAddress(0));
            glEnableClientState(GL_COLOR_ARRAY);
        }
        bindTexCoords(engine);
        positions->bind(engine);
        glVertexPointer(3, GL_FLOAT, 0, positions->boundAddress(0));
        glEnableClientState(GL_VERTEX_ARRAY);
        indices->bind(engine);
    }

private:
    static bool isComplete(const Attributes & a) { return !a || a->bytes() > 0; }

    /// Units without coordinates of their own take those of unit 0.
    void bindTexCoords(EngineGL * engine) const {
        const unsigned units = std::min(PolygonSet::maxTextureUnits, engine->textureCoordinateSets());
        for (unsigned unit = 0; unit < units; ++unit) {
            const Attributes & coordinates = texCoords[unit] ? texCoords[unit] : texCoords[0];
            if (!coordinates) continue;
            coordinates->bind(engine);
            glClientActiveTexture(GL_TEXTURE0 + unit);
            glTexCoordPointer(3, GL_FLOAT, 0, coordinates->boundAddress(0));
            glEnableClientState(GL_TEXTURE_COORD_ARRAY);
        }
    }
};

} // namespace

struct PrimitiveQuadTreeGL::Impl {
    unsigned second = 2; ///< the second direction of the split
    std::vector<Position> positions;
    std::vector<Corners> triangles;
    std::vector<Rectangle> rectangles; ///< of the triangles
    std::vector<Node> nodes;           ///< the root first
    Bounds box;
    std::unique_ptr<Buffers> buffers;

    void read(const PolygonSet & set);
    void sort(const Rectangle & split, unsigned levels);
    void addNodes(const std::vector<std::uint32_t> & cells, unsigned levels);
    void addChildren(unsigned parent, const std::vector<std::uint32_t> & cells, unsigned level);
    void collect(unsigned node, const Rectangle & area, Ranges & ranges) const;
    void upload(EngineGL * engine, const PolygonSet & set);
};

void PrimitiveQuadTreeGL::Impl::read(const PolygonSet & set) {
    const SO<PolygonSet::Vertices> vertices = set.newVertexIterator();
    if (!vertices) return;
    positions.reserve(vertices->size());
    for (const Vector3Base<double> & v : *vertices)
        positions.emplace_back(v);
    for (unsigned i = 0; i < set.triangles(); ++i) {
        Corners corners;
        if (!set.triangle(i, corners)) continue;
        if (!std::all_of(corners.begin(), corners.end(), [&](unsigned c) { return isFinite(positions[c]); }))
            continue;
        triangles.push_back(corners);
        rectangles.push_back(rectangleOf(positions, corners, second));
        for (const unsigned corner : corners)
            box += Vector3Base<double>(positions[corner]);
    }
}

/// Brings the triangles into the order of their cells, and makes the nodes over them.
void PrimitiveQuadTreeGL::Impl::sort(const Rectangle & split, unsigned levels) {
    const std::size_t count = triangles.size();
    if (count == 0) return;
    std::vector<std::pair<std::uint32_t, unsigned>> order(count);
    for (std::size_t i = 0; i < count; ++i)
        order[i] = {cellOf(rectangles[i], split, levels), static_cast<unsigned>(i)};
    std::sort(order.begin(), order.end());

    std::vector<Corners> sortedTriangles(count);
    std::vector<Rectangle> sortedRectangles(count);
    std::vector<std::uint32_t> cells(count);
    for (std::size_t i = 0; i < count; ++i) {
        cells[i] = order[i].first;
        sortedTriangles[i] = triangles[order[i].second];
        sortedRectangles[i] = rectangles[order[i].second];
    }
    triangles.swap(sortedTriangles);
    rectangles.swap(sortedRectangles);
    addNodes(cells, levels);
}

void PrimitiveQuadTreeGL::Impl::addNodes(const std::vector<std::uint32_t> & cells, unsigned levels) {
    nodes.push_back({{0, static_cast<unsigned>(cells.size())}, rectangles[0], 0, 0});
    addChildren(0, cells, levels);
}

/// `level` counts the splits that are left.
void PrimitiveQuadTreeGL::Impl::addChildren(unsigned parent, const std::vector<std::uint32_t> & cells,
                                            unsigned level) {
    const Range range = nodes[parent].range;
    Rectangle rectangle = rectangles[range.first];
    if (level == 0) {
        for (unsigned i = range.first; i < range.first + range.count; ++i)
            rectangle += rectangles[i];
        nodes[parent].rectangle = rectangle;
        return;
    }
    const unsigned firstChild = static_cast<unsigned>(nodes.size());
    const unsigned shift = 2 * (level - 1), end = range.first + range.count;
    for (unsigned begin = range.first; begin < end;) {
        const auto next = std::upper_bound(
            cells.begin() + begin, cells.begin() + end, cells[begin] >> shift,
            [shift](std::uint32_t quadrant, std::uint32_t cell) { return quadrant < cell >> shift; });
        const auto childEnd = static_cast<unsigned>(next - cells.begin());
        nodes.push_back({{begin, childEnd - begin}, rectangle, 0, 0});
        begin = childEnd;
    }
    const unsigned children = static_cast<unsigned>(nodes.size()) - firstChild;
    nodes[parent].firstChild = firstChild;
    nodes[parent].children = children;
    for (unsigned i = 0; i < children; ++i) {
        addChildren(firstChild + i, cells, level - 1);
        rectangle += nodes[firstChild + i].rectangle;
    }
    nodes[parent].rectangle = rectangle;
}

void PrimitiveQuadTreeGL::Impl::collect(unsigned number, const Rectangle & area, Ranges & ranges) const {
    const Node & node = nodes[number];
    if (!node.rectangle.touches(area)) return;
    if (node.rectangle.isInside(area)) {
        append(ranges, node.range.first, node.range.count);
        return;
    }
    for (unsigned i = 0; i < node.children; ++i)
        collect(node.firstChild + i, area, ranges);
    if (node.children > 0) return;
    for (unsigned i = node.range.first; i < node.range.first + node.range.count; ++i)
        if (rectangles[i].touches(area)) append(ranges, i, 1);
}

void PrimitiveQuadTreeGL::Impl::upload(EngineGL * engine, const PolygonSet & set) {
    const auto count = static_cast<unsigned>(positions.size());
    buffers = std::make_unique<Buffers>();
    buffers->positions = new VertexAttributeBufferObjectGL<Position>(engine, count, positions.data());
    buffers->normals = newBuffer(engine, set.newNormalIterator().get(), count);
    buffers->colors = newBuffer(engine, set.newColorIterator().get(), count);
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        buffers->texCoords[unit] = newBuffer(engine, set.newTextureIterator(unit).get(), count);
    buffers->indices = new BufferObjectGL(engine, triangles.size() * sizeof(Corners), triangles.data(),
                                          BufferObjectGL::DT_VertexIndices, BufferObjectGL::UP_Static);
}

PrimitiveQuadTreeGL::PrimitiveQuadTreeGL() : Shape(true), impl_(std::make_unique<Impl>()) {}

PrimitiveQuadTreeGL::PrimitiveQuadTreeGL(unsigned levels, const SO<PolygonSet> & set, const Bounds & box,
                                         bool horizontal)
    : Shape(true), levels_(levels), set_(set), splitBox_(box), horizontal_(horizontal) {
    NBX_CHECK(set, L"no polygon set");
    NBX_CHECK(levels <= maxLevels, L"too many levels: " << levels);
    levels_ = std::min(levels_, maxLevels);
    build();
}

PrimitiveQuadTreeGL::~PrimitiveQuadTreeGL() = default;

void PrimitiveQuadTreeGL::build() {
    impl_ = std::make_unique<Impl>();
    impl_->second = horizontal_ ? 2 : 1;
    if (!set_) return;
    impl_->read(*set_);
    impl_->sort(rectangleOf(splitBox_.isDefined() ? splitBox_ : impl_->box, impl_->second), levels_);
}

Bounds PrimitiveQuadTreeGL::boundingBox() const {
    return impl_->box;
}

unsigned PrimitiveQuadTreeGL::triangles() const {
    return static_cast<unsigned>(impl_->triangles.size());
}

unsigned PrimitiveQuadTreeGL::leaves() const {
    return static_cast<unsigned>(std::count_if(impl_->nodes.begin(), impl_->nodes.end(),
                                               [](const Node & node) { return node.children == 0; }));
}

std::array<unsigned, 3> PrimitiveQuadTreeGL::triangle(unsigned i) const {
    NBX_CHECK(i < triangles(), L"i out of range");
    return i < triangles() ? impl_->triangles[i] : Corners();
}

Ranges PrimitiveQuadTreeGL::rangesIn(const Bounds & area) const {
    Ranges ranges;
    if (!impl_->nodes.empty() && area.isDefined())
        impl_->collect(0, rectangleOf(area, impl_->second), ranges);
    return ranges;
}

void PrimitiveQuadTreeGL::draw(EngineGL * engine, const Ranges & ranges) const {
    std::vector<GLsizei> counts;
    std::vector<const void *> offsets;
    for (const Range & range : ranges) {
        const bool inside = range.first <= triangles() && range.count <= triangles() - range.first;
        NBX_CHECK(inside, L"range error: [0, " << triangles() << L"), " << range.first);
        if (!inside || range.count == 0) continue;
        counts.push_back(static_cast<GLsizei>(range.count * 3));
        offsets.push_back(reinterpret_cast<const void *>(range.first * sizeof(Corners)));
    }
    if (counts.empty()) return;
    if (!impl_->buffers) impl_->upload(engine, *set_);
    if (!impl_->buffers->areComplete(impl_->positions.size(), impl_->triangles.size())) return;

    glPushClientAttrib(GL_CLIENT_VERTEX_ARRAY_BIT);
    glPushAttrib(GL_CURRENT_BIT);
    impl_->buffers->bind(engine);
    glMultiDrawElements(GL_TRIANGLES, counts.data(), GL_UNSIGNED_INT, offsets.data(),
                        static_cast<GLsizei>(counts.size()));
    glPopAttrib();
    glPopClientAttrib();
}

void PrimitiveQuadTreeGL::acceptChildren(std::vector<Visitable *> & children) const {
    Shape::acceptChildren(children);
    children.push_back(set_.get());
}

void PrimitiveQuadTreeGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Shape>(m, this);
    attributeWithDefault(m, "levels", levels_, 0U);
    attributeWithDefault(m, "polygonSet", set_, SO<PolygonSet>());
    attributeWithDefault(m, "box", splitBox_, Bounds());
    attributeWithDefault(m, "horizontal", horizontal_, true);
    if (!m.isReading()) return;
    if (levels_ > maxLevels) throw IOError(L"stored quadtree is damaged");
    build();
    modified();
}

namespace {

class PrimitiveQuadTreePainterGL : public ShapePainter {
public:
    ID target() const override { return PrimitiveQuadTreeGL::ClassNameNBX(); }

    bool render(Engine * engine, const Shape * shape) override {
        auto * gl = dynamic_cast<EngineGL *>(engine);
        const auto * tree = dynamic_cast<const PrimitiveQuadTreeGL *>(shape);
        NBX_CHECK(gl, L"no engine");
        if (!gl || !tree) return false;
        const auto * area = dynamic_cast<const PrimitiveQuadTreeAreaGL *>(
            engine->getAttribute(PrimitiveQuadTreeAreaGL::ClassNameNBX()));
        tree->draw(gl, area ? tree->rangesIn(area->getBox()) : Ranges{{0, tree->triangles()}});
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(PrimitiveQuadTreePainterGL)

} // namespace NBX
