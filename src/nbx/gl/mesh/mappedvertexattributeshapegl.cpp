// All kinds of primitives are read as triangles of one winding, through the indices where there are some, for
// rays and for polygons; the card draws the primitives as they are.

#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include <GL/glew.h>

#include <nbx/container/sequence/array.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/scene/shape/polygonset.h>

#include "nbx/container/space/trianglehierarchy.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(MappedVertexAttributeShapeGL, Shape)

namespace {

using Mesh = MappedVertexAttributeShapeGL;
using Data = MappedVertexAttributeDataGL;
using Buffer = MappedVertexAttributeDataGL::Buffer;
using Types = VertexAttributeShapeGL;

bool isIndexType(unsigned type) {
    return type == GL_UNSIGNED_SHORT || type == GL_UNSIGNED_INT;
}

/// The corners of triangle `i` as positions in the sequence of corners.
std::array<unsigned, 3> corners(Mesh::PrimitiveType type, unsigned i) {
    switch (type) {
    case Types::PT_TriangleStrip:
    case Types::PT_QuadStrip:
        if (i % 2 == 0) return {i, i + 1, i + 2};
        return {i + 1, i, i + 2};
    case Types::PT_TriangleFan:
    case Types::PT_Polygon:
        return {0, i + 1, i + 2};
    case Types::PT_Quads: {
        const unsigned first = i / 2 * 4;
        if (i % 2 == 0) return {first, first + 1, first + 2};
        return {first, first + 2, first + 3};
    }
    default:
        return {i * 3, i * 3 + 1, i * 3 + 2};
    }
}

unsigned trianglesOf(Mesh::PrimitiveType type, unsigned corners) {
    switch (type) {
    case Types::PT_Triangles:
        return corners / 3;
    case Types::PT_Quads:
        return corners / 4 * 2;
    case Types::PT_QuadStrip:
        return corners >= 4 ? corners / 2 * 2 - 2 : 0;
    case Types::PT_TriangleStrip:
    case Types::PT_TriangleFan:
    case Types::PT_Polygon:
        return corners > 2 ? corners - 2 : 0;
    default:
        return 0;
    }
}

SO<Buffer> bufferOf(const Iterator<Vector3Base<double>> & vectors, unsigned components) {
    const SO<Buffer> buffer(new Buffer(GL_FLOAT, components, vectors.size()));
    auto * target = static_cast<float *>(buffer->mapPointer());
    for (unsigned i = 0; i < vectors.size(); ++i) {
        const Vector3Base<double> v = vectors.get(i);
        for (unsigned c = 0; c < components; ++c)
            *target++ = float(v[c]);
    }
    return buffer;
}

SO<Buffer> bufferOf(const Iterator<Color> & colors) {
    const SO<Buffer> buffer(new Buffer(GL_UNSIGNED_BYTE, 4, colors.size()));
    auto * target = static_cast<std::uint8_t *>(buffer->mapPointer());
    for (unsigned i = 0; i < colors.size(); ++i) {
        const Color color = colors.get(i);
        for (unsigned c = 0; c < 4; ++c)
            *target++ = std::uint8_t(std::lround(std::clamp(color[c], 0.0F, 1.0F) * 255.0F));
    }
    return buffer;
}

template <class T> SO<Buffer> bufferOf(const std::vector<unsigned> & indices, unsigned type) {
    const SO<Buffer> buffer(new Buffer(type, 1, unsigned(indices.size())));
    std::transform(indices.begin(), indices.end(), static_cast<T *>(buffer->mapPointer()),
                   [](unsigned index) { return T(index); });
    return buffer;
}

SO<Buffer> indicesOf(const std::vector<unsigned> & indices, unsigned vertices) {
    constexpr unsigned shortLimit = 1U << 16U;
    return vertices <= shortLimit ? bufferOf<std::uint16_t>(indices, GL_UNSIGNED_SHORT)
                                  : bufferOf<std::uint32_t>(indices, GL_UNSIGNED_INT);
}

/// The corners of all triangles whose vertices exist.
std::vector<unsigned> cornersOf(const PolygonSet & set) {
    std::vector<unsigned> all;
    all.reserve(std::size_t(set.triangles()) * 3);
    bool complete = true;
    for (unsigned i = 0; i < set.triangles(); ++i) {
        std::array<unsigned, 3> triangle;
        if (set.triangle(i, triangle))
            all.insert(all.end(), triangle.begin(), triangle.end());
        else
            complete = false;
    }
    NBX_CHECK(complete, L"a polygon has a corner beyond the vertices");
    return all;
}

SO<Data> dataOf(const PolygonSet & set, BufferObjectGL::UsagePattern usage) {
    const SO<Data> data(new Data(usage));
    const SO<PolygonSet::Vertices> & vertices = set.newVertexIterator();
    if (!vertices) return data;
    data->setBuffer(Data::VERTEX_ID, bufferOf(*vertices, 3));
    const auto isWhole = [&](unsigned size) {
        NBX_CHECK(size == vertices->size(), L"the vertex attributes are not as many as the vertices");
        return size == vertices->size();
    };
    if (const auto normals = set.newNormalIterator(); normals && isWhole(normals->size()))
        data->setBuffer(Data::NORMAL_ID, bufferOf(*normals, 3));
    if (const auto colors = set.newColorIterator(); colors && isWhole(colors->size()))
        data->setBuffer(Data::COLOR_ID, bufferOf(*colors));
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        if (const auto coordinates = set.newTextureIterator(unit);
            coordinates && isWhole(coordinates->size()))
            data->setBuffer(Data::TEXCOORD_ID(unit), bufferOf(*coordinates, 2));
    return data;
}

/// The elements of `source` at `places`, which are in range.
SO<Buffer> gathered(const Buffer & source, const std::vector<unsigned> & places) {
    const SO<Buffer> result(new Buffer(source.componentType(), source.components(), unsigned(places.size())));
    const std::size_t bytes = source.elementBytes();
    const auto * from = static_cast<const std::uint8_t *>(source.data());
    auto * to = static_cast<std::uint8_t *>(result->mapPointer());
    for (const unsigned place : places) {
        std::memcpy(to, from + place * bytes, bytes);
        to += bytes;
    }
    return result;
}

SO<PolygonSet::Vertices> vectorsOf(const Buffer & buffer, unsigned count) {
    const SO<Array<Vector3Base<double>>> vectors(new Array<Vector3Base<double>>(count));
    for (unsigned i = 0; i < count; ++i)
        for (unsigned c = 0; c < std::min(buffer.components(), 3U); ++c)
            vectors->stl()[i][c] = buffer.value(i, c);
    return vectors;
}

SO<PolygonSet::Colors> colorsOf(const Buffer & buffer, unsigned count) {
    const SO<Array<Color>> colors(new Array<Color>(count, Color::white));
    double unit = 1.0; // whole numbers reach up to one
    if (buffer.componentType() == GL_UNSIGNED_BYTE) unit = UINT8_MAX;
    if (buffer.componentType() == GL_UNSIGNED_SHORT) unit = UINT16_MAX;
    if (buffer.componentType() == GL_UNSIGNED_INT) unit = UINT32_MAX;
    for (unsigned i = 0; i < count; ++i)
        for (unsigned c = 0; c < buffer.components(); ++c)
            colors->stl()[i][c] = float(buffer.value(i, c) / unit);
    return colors;
}

} // namespace

MappedVertexAttributeShapeGL::MappedVertexAttributeShapeGL()
    : MappedVertexAttributeShapeGL(Types::PT_Triangles, new Data()) {}

MappedVertexAttributeShapeGL::MappedVertexAttributeShapeGL(PrimitiveType type, SO<Data> data,
                                                           SO<Buffer> indices)
    : Shape(true), type_(type), data_(data), indices_(indices) {
    NBX_CHECK(data, L"no data");
}

MappedVertexAttributeShapeGL::MappedVertexAttributeShapeGL(const PolygonSet * set,
                                                           BufferObjectGL::UsagePattern usage)
    : Shape(true), type_(Types::PT_Triangles) {
    NBX_CHECK(set, L"no polygon set");
    data_ = set ? dataOf(*set, usage) : SO<Data>(new Data(usage));
    if (!set || !data_->vertices()) return;
    const bool isPlain = set->getPrimitiveType() == PolygonSet::PT_Triangles && !set->newIndexIterator();
    if (!isPlain) indices_ = indicesOf(cornersOf(*set), data_->vertices());
}

MappedVertexAttributeShapeGL::~MappedVertexAttributeShapeGL() = default;

unsigned MappedVertexAttributeShapeGL::triangles() const {
    if (!data_) return 0;
    return trianglesOf(type_, indices_ ? indices_->count() : data_->vertices());
}

bool MappedVertexAttributeShapeGL::triangle(unsigned i, std::array<unsigned, 3> & vertices) const {
    if (i >= triangles()) return false;
    vertices = corners(type_, i);
    const unsigned n = data_->vertices();
    for (unsigned & vertex : vertices) {
        if (indices_) vertex = unsigned(indices_->value(vertex, 0));
        if (vertex >= n) return false;
    }
    return true;
}

Vector3Base<double> MappedVertexAttributeShapeGL::vertex(unsigned i) const {
    Vector3Base<double> position;
    const Buffer * positions = data_->find(Data::VERTEX_ID);
    for (unsigned c = 0; c < std::min(positions->components(), 3U); ++c)
        position[c] = positions->value(i, c);
    return position;
}

SO<MappedVertexAttributeShapeGL> MappedVertexAttributeShapeGL::withoutIndices() {
    if (type_ == Types::PT_Triangles && !indices_) return this;
    std::vector<unsigned> places;
    std::array<unsigned, 3> corner;
    for (unsigned i = 0; i < triangles(); ++i)
        if (triangle(i, corner)) places.insert(places.end(), corner.begin(), corner.end());
    const SO<Data> data(new Data(data_ ? data_->usagePattern() : BufferObjectGL::UP_Static));
    if (data_)
        for (const ID & name : data_->names())
            if (const SO<Buffer> source = data_->buffer(name); source->count() >= data_->vertices())
                data->setBuffer(name, gathered(*source, places));
    return new MappedVertexAttributeShapeGL(Types::PT_Triangles, data);
}

SO<PolygonSet> MappedVertexAttributeShapeGL::newPolygonSet() const {
    if (triangles() == 0 || data_->vertices() == 0) return nullptr;
    const unsigned count = data_->vertices();
    const auto whole = [&](const ID & name) {
        const SO<Buffer> buffer = data_->buffer(name);
        return buffer && buffer->count() >= count ? buffer : nullptr;
    };
    const SO<Array<unsigned>> places(new Array<unsigned>());
    std::array<unsigned, 3> corner;
    for (unsigned i = 0; i < triangles(); ++i)
        if (triangle(i, corner)) places->stl().insert(places->stl().end(), corner.begin(), corner.end());
    SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, vectorsOf(*whole(Data::VERTEX_ID), count)));
    if (type_ != Types::PT_Triangles || indices_) set->setIndexIterator(places);
    if (const auto normals = whole(Data::NORMAL_ID)) set->setNormalIterator(vectorsOf(*normals, count));
    if (const auto colors = whole(Data::COLOR_ID)) set->setColorIterator(colorsOf(*colors, count));
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        if (const auto coordinates = whole(Data::TEXCOORD_ID(unit)))
            set->setTextureIterator(vectorsOf(*coordinates, count), unit);
    return set;
}

bool MappedVertexAttributeShapeGL::indicesFit() const {
    if (!indices_) return true;
    if (!isIndexType(indices_->componentType()) || indices_->components() != 1) return false;
    const unsigned vertices = data_->vertices();
    for (unsigned i = 0; i < indices_->count(); ++i)
        if (indices_->value(i, 0) >= vertices) return false;
    return true;
}

/// Grows with each change of the shape or of what it is made of.
std::uint64_t MappedVertexAttributeShapeGL::stateNo() const {
    std::uint64_t state = lastTransactionNo();
    if (indices_) state = std::max(state, indices_->lastTransactionNo());
    if (!data_) return state;
    state = std::max(state, data_->lastTransactionNo());
    if (const Buffer * positions = data_->find(Data::VERTEX_ID))
        state = std::max(state, positions->lastTransactionNo());
    return state;
}

bool MappedVertexAttributeShapeGL::isDrawable() const {
    const std::uint64_t state = stateNo();
    if (drawableStateNo_ != state) {
        isDrawable_ = data_ && data_->isDrawable() && indicesFit();
        // A mesh without anything is no fault.
        NBX_CHECK(isDrawable_ || !data_ || data_->names().empty(), L"the mesh cannot be drawn");
        drawableStateNo_ = state;
    }
    return isDrawable_;
}

const TriangleHierarchy * MappedVertexAttributeShapeGL::hierarchy() const {
    constexpr unsigned few = 16;
    const std::uint64_t state = stateNo();
    if (hierarchyStateNo_ == state) return hierarchy_.get();
    hierarchyStateNo_ = state;
    hierarchy_ = nullptr;
    if (triangles() >= few) hierarchy_ = newHierarchy();
    return hierarchy_.get();
}

std::unique_ptr<const TriangleHierarchy> MappedVertexAttributeShapeGL::newHierarchy() const {
    const Buffer * positions = data_ ? data_->find(Data::VERTEX_ID) : nullptr;
    if (positions && positions->componentType() != GL_FLOAT) return nullptr;
    std::vector<TriangleHierarchy::Corners> all(triangles());
    std::array<unsigned, 3> corner;
    for (unsigned i = 0; i < all.size(); ++i) {
        const bool isWhole = triangle(i, corner);
        for (unsigned c = 0; c < 3; ++c) {
            const Vector3Base<double> v = isWhole ? vertex(corner[c]) : Vector3Base<double>(NAN, NAN, NAN);
            all[i][c] = {float(v.x), float(v.y), float(v.z)};
        }
    }
    return std::make_unique<const TriangleHierarchy>(all);
}

Bounds MappedVertexAttributeShapeGL::boundingBox() const {
    const std::uint64_t state = stateNo();
    if (boxStateNo_ != state) {
        box_ = Bounds();
        for (unsigned i = 0; data_ && i < data_->vertices(); ++i)
            box_ += vertex(i);
        boxStateNo_ = state;
    }
    return box_;
}

void MappedVertexAttributeShapeGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Shape>(m, this);
    int type = type_;
    attributeWithDefault(m, "primitiveType", type, int(Types::PT_Triangles));
    attributeWithDefault(m, "data", data_, SO<Data>());
    unsigned indexType = indices_ ? indices_->componentType() : 0;
    attributeWithDefault(m, "indexType", indexType, 0U);
    if (m.isReading()) {
        if (type < Types::PT_Points || type > Types::PT_Polygon)
            throw IOError(L"stored mesh is damaged", L"its primitives are of no kind that is known");
        type_ = PrimitiveType(type);
        if (!data_) data_ = new Data();
        readIndices(m, indexType);
        modified();
    } else if (indices_) {
        unsigned count = indices_->count();
        m.attribute("indexCount", count);
        m.rawAttribute("indices", indices_->mapPointer(), indices_->bytes());
    }
}

void MappedVertexAttributeShapeGL::readIndices(SerializationManager & m, unsigned type) {
    indices_ = nullptr;
    if (type == 0) return;
    unsigned count = 0;
    const bool hasCount = m.attribute("indexCount", count);
    const std::uint64_t bytes =
        std::uint64_t(count) * BaseVertexAttributeBufferObjectGL::componentBytes(type);
    if (!hasCount || !isIndexType(type) || bytes > m.bytesLeft())
        throw IOError(L"stored mesh is damaged", L"its indices are cut short");
    const SO<Buffer> read(new Buffer(type, 1, count));
    if (!m.rawAttribute("indices", read->mapPointer(), bytes))
        throw IOError(L"stored mesh is damaged", L"its indices are cut short");
    indices_ = read;
    if (!indicesFit()) throw IOError(L"stored mesh is damaged", L"an index lies beyond the vertices");
}

} // namespace NBX
