// The triangles are sorted by the cells of their centres in Morton order, so that each node of the quadtree
// is one range of them, and an area a few ranges. Nodes know the extent of their triangles, which may reach
// beyond their cells. The buffers are made by the first drawing.

#include <nbx/gl/mesh/primitivequadtreegl.h>

#include <algorithm>

#include <GL/glew.h>

#include "trianglequadtree.h"
#include "vertexstateguardgl.h"
#include <nbx/engine/shapepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/primitivequadtreeareagl.h>
#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(PrimitiveQuadTreeGL, Shape)

namespace {

using Corners = TriangleQuadTree::Corners;
using Position = TriangleQuadTree::Position;
using Ranges = std::vector<PrimitiveQuadTreeGL::Range>;
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
    TriangleQuadTree tree;
    std::unique_ptr<Buffers> buffers; ///< null until they are needed

    void upload(EngineGL * engine, const PolygonSet & set);
};

void PrimitiveQuadTreeGL::Impl::upload(EngineGL * engine, const PolygonSet & set) {
    const auto count = static_cast<unsigned>(tree.positions().size());
    buffers = std::make_unique<Buffers>();
    buffers->positions = new VertexAttributeBufferObjectGL<Position>(engine, count, tree.positions().data());
    buffers->normals = newBuffer(engine, set.newNormalIterator().get(), count);
    buffers->colors = newBuffer(engine, set.newColorIterator().get(), count);
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        buffers->texCoords[unit] = newBuffer(engine, set.newTextureIterator(unit).get(), count);
    buffers->indices =
        new BufferObjectGL(engine, tree.triangles().size() * sizeof(Corners), tree.triangles().data(),
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
    if (set_) impl_->tree = TriangleQuadTree(*set_, levels_, splitBox_, horizontal_);
}

Bounds PrimitiveQuadTreeGL::boundingBox() const {
    return impl_->tree.box();
}

unsigned PrimitiveQuadTreeGL::triangles() const {
    return static_cast<unsigned>(impl_->tree.triangles().size());
}

unsigned PrimitiveQuadTreeGL::leaves() const {
    return impl_->tree.leaves();
}

std::array<unsigned, 3> PrimitiveQuadTreeGL::triangle(unsigned i) const {
    NBX_CHECK(i < triangles(), L"i out of range");
    return i < triangles() ? impl_->tree.triangles()[i] : Corners();
}

Ranges PrimitiveQuadTreeGL::rangesIn(const Bounds & area) const {
    return impl_->tree.rangesIn(area);
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
    if (!impl_->buffers->areComplete(impl_->tree.positions().size(), triangles())) return;

    const VertexStateGuard guard;
    impl_->buffers->bind(engine);
    glMultiDrawElements(GL_TRIANGLES, counts.data(), GL_UNSIGNED_INT, offsets.data(),
                        static_cast<GLsizei>(counts.size()));
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
