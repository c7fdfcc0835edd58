#include <nbx/gl/mesh/vertexattributeshapegl.h>

#include <algorithm>

#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(VertexAttributeShapeGL, Shape)

namespace {

/// The content of a buffer as numbers of type `T`; empty when the buffer cannot be read.
template <class T> std::vector<T> contentOf(BufferObjectGL & buffer) {
    std::vector<T> content;
    if (buffer.bytes() < sizeof(T)) return content;
    if (const void * pointer = buffer.mapPointer(BufferObjectGL::MA_Read)) {
        const T * first = static_cast<const T *>(pointer);
        content.assign(first, first + buffer.bytes() / sizeof(T));
        if (!buffer.unmapPointer()) content.clear();
    }
    return content;
}

template <class T> SO<BufferObjectGL> newIndices(EngineGL * engine, const std::vector<T> & numbers) {
    return new BufferObjectGL(engine, numbers.size() * sizeof(T), numbers.data(),
                              BufferObjectGL::DT_VertexIndices, BufferObjectGL::UP_Static);
}

bool areValidRanges(const std::vector<std::uint32_t> & ends, std::size_t limit) {
    return std::is_sorted(ends.begin(), ends.end()) && (ends.empty() || ends.back() <= limit);
}

} // namespace

VertexAttributeShapeGL::VertexAttributeShapeGL(PrimitiveType type,
                                               SO<BaseVertexAttributeBufferObjectGL> vertices,
                                               SO<BufferObjectGL> indices, SO<BufferObjectGL> ranges,
                                               const Bounds & box)
    : Shape(true), vertices_(vertices), indices_(indices), ranges_(ranges), type_(type), box_(box) {
    NBX_CHECK(vertices, L"no vertices");
    if (vertices) NBX_CHECK_RANGE(2u, vertices->components(), 5u);
    NBX_CHECK(!indices || indices->dataType() == BufferObjectGL::DT_VertexIndices,
              L"the index buffer holds other data");
}

VertexAttributeShapeGL::VertexAttributeShapeGL(EngineGL * engine, PrimitiveType type,
                                               SO<BaseVertexAttributeBufferObjectGL> vertices,
                                               const std::vector<std::uint16_t> & indices,
                                               const std::vector<std::uint32_t> & ranges)
    : VertexAttributeShapeGL(type, vertices, indices.empty() ? nullptr : newIndices(engine, indices),
                             newIndices(engine, ranges)) {
    setPrimitives(indices_ ? &indices : nullptr, &ranges);
    primitivesTransactionNo_ = buffersTransactionNo();
}

void VertexAttributeShapeGL::setBoundingBox(const Bounds & box) {
    box_ = box;
    modified();
}

void VertexAttributeShapeGL::setNormals(SO<BaseVertexAttributeBufferObjectGL> normals) {
    NBX_CHECK(!normals || normals->components() == 3, L"a normal has three components");
    normals_ = normals;
    modified();
}

void VertexAttributeShapeGL::setColors(SO<BaseVertexAttributeBufferObjectGL> colors) {
    NBX_CHECK(!colors || colors->components() >= 3, L"a colour has three or four components");
    colors_ = colors;
    modified();
}

void VertexAttributeShapeGL::setTexCoords(unsigned unit, SO<BaseVertexAttributeBufferObjectGL> texCoords) {
    NBX_CHECK_RANGE(0, int(unit), int(maxTextureUnits));
    if (unit >= maxTextureUnits) return;
    texCoords_[unit] = texCoords;
    modified();
}

SO<BaseVertexAttributeBufferObjectGL> VertexAttributeShapeGL::texCoords(unsigned unit) const {
    return unit < maxTextureUnits ? texCoords_[unit] : nullptr;
}

std::uint64_t VertexAttributeShapeGL::buffersTransactionNo() const {
    const std::uint64_t indices = indices_ ? indices_->lastTransactionNo() : 0;
    const std::uint64_t ranges = ranges_ ? ranges_->lastTransactionNo() : 0;
    return std::max(indices, ranges);
}

const VertexAttributeShapeGL::Primitives & VertexAttributeShapeGL::primitives() const {
    if (primitivesTransactionNo_ != buffersTransactionNo()) {
        readPrimitives();
        primitivesTransactionNo_ = buffersTransactionNo();
    }
    return primitives_;
}

void VertexAttributeShapeGL::readPrimitives() const {
    std::vector<std::uint16_t> indices;
    std::vector<std::uint32_t> ranges;
    if (indices_) indices = contentOf<std::uint16_t>(*indices_);
    if (ranges_) ranges = contentOf<std::uint32_t>(*ranges_);
    setPrimitives(indices_ ? &indices : nullptr, ranges_ ? &ranges : nullptr);
}

void VertexAttributeShapeGL::setPrimitives(const std::vector<std::uint16_t> * indices,
                                           const std::vector<std::uint32_t> * ranges) const {
    primitives_ = Primitives();
    if (!vertices_) return;
    if (indices) {
        const auto last = std::max_element(indices->begin(), indices->end());
        const bool indicesInside = last == indices->end() || *last < vertices_->count();
        NBX_CHECK(indicesInside, L"an index lies beyond the vertices");
        if (!indicesInside) return;
    }
    const std::size_t elements = indices ? indices->size() : vertices_->count();
    const std::vector<std::uint32_t> whole = {std::uint32_t(elements)};
    const std::vector<std::uint32_t> & ends = ranges ? *ranges : whole;
    const bool rangesInside = areValidRanges(ends, elements);
    NBX_CHECK(rangesInside, L"the ranges do not ascend, or reach beyond the indices");
    if (!rangesInside) return;
    std::uint32_t begin = 0;
    for (const std::uint32_t end : ends) {
        if (end > begin) {
            primitives_.firsts.push_back(int(begin));
            primitives_.counts.push_back(int(end - begin));
            primitives_.offsets.push_back(reinterpret_cast<const void *>(begin * sizeof(std::uint16_t)));
        }
        begin = end;
    }
}

} // namespace NBX
