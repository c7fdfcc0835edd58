#include <zmt/core/terrain/geometry/tinpatch.h>

#include <string>
#include <utility>

#include <nbx/container/array.h>
#include <zmt/core/terrain/geometry/geometrydata.h>

namespace ZMT::CORE {

namespace {

template <class T>
void writeSequence(NBX::SerializationManager & m, const NBX::SO<const NBX::Iterator<T>> & sequence) {
    unsigned size = sequence ? sequence->size() : 0;
    m.attribute("size", size);
    if (size == 0) return;
    const T * pointer = sequence->pointer();
    NBX_CHECK(pointer, L"not an array");
    for (unsigned i = 0; i < size; ++i) {
        T value = pointer ? pointer[i] : sequence->get(i);
        m.attribute("pointer", value);
    }
}

template <class T> NBX::SO<const NBX::Iterator<T>> readSequence(NBX::SerializationManager & m) {
    unsigned size = 0;
    m.attribute("size", size);
    if (size == 0) return nullptr;
    if (size > m.bytesLeft()) throw NBX::IOError(L"stored patch is larger than its file");
    auto * values = new NBX::Array<T>(size);
    NBX::SO<const NBX::Iterator<T>> result(values);
    for (T & value : values->stl())
        if (!m.attribute("pointer", value)) throw NBX::IOError(L"stored patch is cut short");
    return result;
}

/// A counted sequence: "size", then one "pointer" an element.
template <class T>
void serializeSequence(NBX::SerializationManager & m, NBX::SO<const NBX::Iterator<T>> & sequence) {
    if (m.isReading())
        sequence = readSequence<T>(m);
    else
        writeSequence<T>(m, sequence);
}

unsigned sizeOf(const auto & sequence) {
    return sequence ? sequence->size() : 0;
}

/// True when every entry of `numbers` is below `limit`.
template <class T> bool staysBelow(const NBX::SO<const NBX::Iterator<T>> & numbers, unsigned limit) {
    for (unsigned i = 0; i < sizeOf(numbers); ++i)
        if (numbers->get(i) >= limit) return false;
    return true;
}

} // namespace

TinPatch::TinPatch() = default;

TinPatch::TinPatch(NBX::SO<GeometryData> data, VertexNumbers vertexIndices, LocalNumbers stripIndices,
                   VertexNumbers stripRanges, LocalNumbers border0, bool outer0, LocalNumbers border1,
                   bool outer1, LocalNumbers border2, bool outer2, LocalNumbers border3, bool outer3,
                   const NBX::Bounds & bbox, double approxError, double wall, NBX::SO<Children> children)
    : GeometryPatch(bbox, approxError, wall, std::move(children)), data_(data),
      vertexIndices_(std::move(vertexIndices)), stripIndices_(std::move(stripIndices)),
      stripRanges_(std::move(stripRanges)), borderIndices_{border0, border1, border2, border3},
      isOuterBorder_{outer0, outer1, outer2, outer3} {
    NBX_CHECK(data, L"no data");
}

TinPatch::~TinPatch() = default;

NBX::SO<GeometryData> TinPatch::data() const {
    return data_;
}

void TinPatch::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<GeometryPatch>(m, this);
    m.attribute("data", data_);
    serializeSequence(m, vertexIndices_);
    serializeSequence(m, stripIndices_);
    serializeSequence(m, stripRanges_);
    serializeSequence(m, parentHeights_);
    for (unsigned border = 0; border < s_borders; ++border) {
        const std::string name = "isOuterBorder" + std::to_string(border);
        m.attribute(name.c_str(), isOuterBorder_[border]);
        serializeSequence(m, borderIndices_[border]);
    }
    if (!m.isReading()) return;

    bool fits = data_ && staysBelow(vertexIndices_, data_->vertices()) &&
                staysBelow(stripIndices_, sizeOf(vertexIndices_)) &&
                staysBelow(stripRanges_, sizeOf(stripIndices_) + 1) &&
                (!parentHeights_ || parentHeights_->size() == sizeOf(vertexIndices_));
    for (const LocalNumbers & border : borderIndices_)
        fits = fits && staysBelow(border, sizeOf(vertexIndices_));
    if (!fits) throw NBX::IOError(L"stored patch refers to vertices that do not exist");
    wallShape_ = nullptr;
    patchShape_ = nullptr;
}

NBX_STORED_CLASS_IMPL(TinPatch, GeometryPatch)

} // namespace ZMT::CORE
