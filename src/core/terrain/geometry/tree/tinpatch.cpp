// All numbers of a patch lie in one block: vertices, ends of the strips' ranges, strips, borders. Lists are
// handed out as views that keep the patch and the block. What is read goes through vectors, is packed, and is
// checked against the geometry data before anybody uses it.

#include <zmt/core/terrain/geometry/tree/tinpatch.h>

#include <algorithm>
#include <utility>
#include <vector>

#include <nbx/object/attributeruns.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/base/stripmesh.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace ZMT::CORE {

namespace {

constexpr std::array<const char *, TinPatch::s_borders> s_outerNames = {"isOuterBorder0", "isOuterBorder1",
                                                                        "isOuterBorder2", "isOuterBorder3"};

/// A list of a patch. It keeps the block that holds it, which the patch may replace but never changes.
template <class T> class PatchList : public NBX::Iterator<T> {
    using Base = NBX::Iterator<T>;
    NBX_TEMPLATE_CLASS(PatchList, Base)
public:
    PatchList(const TinPatch * patch, const PatchBlock & block, const T * first, unsigned size)
        : patch_(patch), block_(block), first_(first), size_(size) {}

    unsigned size() const override { return size_; }
    T get(unsigned i) const override { return pointer()[i]; }
    const T * pointer() const override { return first_; }
    const NBX::SharedObj * container() const override { return patch_.get(); }

private:
    NBX::SO<const TinPatch> patch_;
    PatchBlock block_;
    const T * first_;
    unsigned size_;
};

/// The list at `first` in `block`; null when it is empty.
template <class T>
NBX::SO<const NBX::Iterator<T>> listOf(const TinPatch * patch, const PatchBlock & block, const T * first,
                                       unsigned size) {
    return size > 0 ? new PatchList<T>(patch, block, first, size) : nullptr;
}

unsigned sizeOf(const auto & sequence) {
    return sequence ? sequence->size() : 0;
}

/// Returns whether the elements lay one behind the other.
template <class T> bool copyTo(T * target, const NBX::SO<const NBX::Iterator<T>> & sequence) {
    if (sizeOf(sequence) == 0) return true;
    const T * pointer = sequence->pointer();
    for (unsigned i = 0; i < sequence->size(); ++i)
        target[i] = pointer ? pointer[i] : sequence->get(i);
    return pointer != nullptr;
}

/// A counted sequence: "size", then one "pointer" an element.
template <class T>
void writeSequence(NBX::SerializationManager & m, const T * values, unsigned size, bool isArray) {
    m.attribute("size", size);
    const T * pointer = isArray ? values : nullptr;
    if (size > 0) NBX_CHECK(pointer, L"not an array");
    NBX::attributes(m, "pointer", const_cast<T *>(values), size);
}

/// `runs` is the same stream where it reads several values at once, else null.
template <class T>
void readSequence(NBX::SerializationManager & m, NBX::AttributeRuns * runs, std::vector<T> & values) {
    unsigned size = 0;
    m.attribute("size", size);
    if (size > m.bytesLeft()) throw NBX::IOError(L"stored patch is larger than its file");
    values.resize(size);
    if (size == 0) return;
    const bool isComplete =
        runs ? runs->run("pointer", values.data(), size) : NBX::attributes(m, "pointer", values.data(), size);
    if (!isComplete) throw NBX::IOError(L"stored patch is cut short");
}

/// The lists of a patch while it is read. Their memory serves the next patch as well.
struct StoredLists {
    std::vector<unsigned> vertices, ranges;
    std::vector<unsigned short> strips;
    std::vector<float> heights;
    std::array<std::vector<unsigned short>, TinPatch::s_borders> borders;
};

template <class T> bool staysBelow(const T * numbers, unsigned size, unsigned limit) {
    return std::all_of(numbers, numbers + size, [limit](T number) { return number < limit; });
}

} // namespace

void TinPatch::Lists::allocate() {
    std::size_t shorts = strips;
    for (const unsigned border : borders)
        shorts += border;
    block = PatchBlock(sizeof(unsigned) * (vertices + std::size_t(ranges)) + sizeof(unsigned short) * shorts);
}

unsigned short * TinPatch::Lists::borderNumbers(unsigned border) const {
    unsigned short * first = stripNumbers() + strips;
    for (unsigned i = 0; i < border; ++i)
        first += borders[i];
    return first;
}

void TinPatch::noteArray(unsigned list, bool isArray) {
    const auto bit = static_cast<std::uint8_t>(1U << list);
    isArray_ = static_cast<std::uint8_t>(isArray ? isArray_ | bit : isArray_ & ~bit);
}

TinPatch::TinPatch() = default;

TinPatch::TinPatch(const NBX::SO<GeometryData> & data, const VertexNumbers & vertexIndices,
                   const LocalNumbers & stripIndices, const VertexNumbers & stripRanges,
                   const LocalNumbers & border0, bool outer0, const LocalNumbers & border1, bool outer1,
                   const LocalNumbers & border2, bool outer2, const LocalNumbers & border3, bool outer3,
                   const NBX::Bounds & bbox, double approxError, double wall,
                   const NBX::SO<Children> & children)
    : GeometryPatch(bbox, approxError, wall, children),
      data_(data), isOuterBorder_{outer0, outer1, outer2, outer3} {
    NBX_CHECK(data, L"no data");
    const std::array<LocalNumbers, s_borders> borders{border0, border1, border2, border3};
    lists_.vertices = sizeOf(vertexIndices);
    lists_.strips = sizeOf(stripIndices);
    lists_.ranges = sizeOf(stripRanges);
    for (unsigned i = 0; i < s_borders; ++i)
        lists_.borders[i] = sizeOf(borders[i]);
    lists_.allocate();
    noteArray(L_Vertices, copyTo(lists_.vertexNumbers(), vertexIndices));
    noteArray(L_Strips, copyTo(lists_.stripNumbers(), stripIndices));
    noteArray(L_Ranges, copyTo(lists_.rangeEnds(), stripRanges));
    for (unsigned i = 0; i < s_borders; ++i)
        noteArray(L_Borders + i, copyTo(lists_.borderNumbers(i), borders[i]));
}

TinPatch::~TinPatch() = default;

NBX::SO<GeometryData> TinPatch::data() const {
    return data_;
}

TinPatch::Description TinPatch::description() const {
    Description result{"tin", cells(), lists_.vertices, 0};
    unsigned begin = 0;
    for (const unsigned * end = lists_.rangeEnds(); end != lists_.rangeEnds() + lists_.ranges; ++end) {
        result.triangles += std::max(*end - begin, 2U) - 2;
        begin = *end;
    }
    return result;
}

NBX::Area TinPatch::cells() const {
    const auto grid = NBX::soCast<GridData>(data_);
    const unsigned lowSize = lists_.borders[B_LowX], highSize = lists_.borders[B_HighX];
    if (!grid || grid->sizeX() == 0 || lowSize == 0 || highSize == 0) return {};
    const unsigned low = lists_.vertexNumbers()[lists_.borderNumbers(B_LowX)[0]];
    const unsigned high = lists_.vertexNumbers()[lists_.borderNumbers(B_HighX)[0]];
    const unsigned x = low % grid->sizeX(), y = low / grid->sizeX();
    const unsigned endX = high % grid->sizeX(), endY = high / grid->sizeX();
    // What a file says to be the first and the last corner need not be.
    if (endX < x || endY < y) return {};
    return {int(x), int(y), endX - x, endY - y};
}

StripMesh TinPatch::surface(const NBX::Vector3Base<double> & zero) const {
    StripMesh mesh;
    // A triangulation turns counter-clockwise.
    mesh.isClockwise = false;
    if (!data_) return mesh;
    const auto shift = data_->origin() - zero;
    mesh.vertices.reserve(lists_.vertices);
    for (unsigned i = 0; i < lists_.vertices; ++i)
        mesh.vertices.push_back(data_->vertex(lists_.vertexNumbers()[i]) + shift);
    mesh.strips.indices.assign(lists_.stripNumbers(), lists_.stripNumbers() + lists_.strips);
    mesh.strips.ranges.assign(lists_.rangeEnds(), lists_.rangeEnds() + lists_.ranges);
    return mesh;
}

TinPatch::VertexNumbers TinPatch::vertexIndices() const {
    return listOf(this, lists_.block, lists_.vertexNumbers(), lists_.vertices);
}

TinPatch::LocalNumbers TinPatch::stripIndices() const {
    return listOf(this, lists_.block, lists_.stripNumbers(), lists_.strips);
}

TinPatch::VertexNumbers TinPatch::stripRanges() const {
    return listOf(this, lists_.block, lists_.rangeEnds(), lists_.ranges);
}

TinPatch::LocalNumbers TinPatch::borderIndices(Border border) const {
    return listOf(this, lists_.block, lists_.borderNumbers(border), lists_.borders[border]);
}

TinPatch::Heights TinPatch::parentHeights() const {
    return listOf(this, parentHeights_, heightsOfParent(), parentHeightCount_);
}

void TinPatch::setParentHeights(const Heights & heights) {
    const unsigned count = sizeOf(heights);
    const PatchBlock copy = count > 0 ? PatchBlock(count * sizeof(float)) : PatchBlock();
    noteArray(L_ParentHeights, copyTo(static_cast<float *>(copy.data()), heights));
    parentHeightCount_ = count;
    parentHeights_ = copy;
}

void TinPatch::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<GeometryPatch>(m, this);
    m.attribute("data", data_);
    if (m.isReading())
        readLists(m);
    else
        writeLists(m);
}

void TinPatch::writeLists(NBX::SerializationManager & m) {
    writeSequence(m, lists_.vertexNumbers(), lists_.vertices, isArray(L_Vertices));
    writeSequence(m, lists_.stripNumbers(), lists_.strips, isArray(L_Strips));
    writeSequence(m, lists_.rangeEnds(), lists_.ranges, isArray(L_Ranges));
    writeSequence(m, heightsOfParent(), parentHeightCount_, isArray(L_ParentHeights));
    for (unsigned i = 0; i < s_borders; ++i) {
        m.attribute(s_outerNames[i], isOuterBorder_[i]);
        writeSequence(m, lists_.borderNumbers(i), lists_.borders[i], isArray(L_Borders + i));
    }
}

void TinPatch::readLists(NBX::SerializationManager & m) {
    thread_local StoredLists stored;
    auto & [vertices, ranges, strips, heights, borders] = stored;
    auto * runs = dynamic_cast<NBX::AttributeRuns *>(&m);
    readSequence(m, runs, vertices);
    readSequence(m, runs, strips);
    readSequence(m, runs, ranges);
    readSequence(m, runs, heights);
    for (unsigned i = 0; i < s_borders; ++i) {
        m.attribute(s_outerNames[i], isOuterBorder_[i]);
        readSequence(m, runs, borders[i]);
    }

    lists_.vertices = static_cast<unsigned>(vertices.size());
    lists_.strips = static_cast<unsigned>(strips.size());
    lists_.ranges = static_cast<unsigned>(ranges.size());
    for (unsigned i = 0; i < s_borders; ++i)
        lists_.borders[i] = static_cast<unsigned>(borders[i].size());
    lists_.allocate();
    isArray_ = 0xFF;
    std::copy(vertices.begin(), vertices.end(), lists_.vertexNumbers());
    std::copy(strips.begin(), strips.end(), lists_.stripNumbers());
    std::copy(ranges.begin(), ranges.end(), lists_.rangeEnds());
    for (unsigned i = 0; i < s_borders; ++i)
        std::copy(borders[i].begin(), borders[i].end(), lists_.borderNumbers(i));
    parentHeightCount_ = static_cast<unsigned>(heights.size());
    parentHeights_ = heights.empty() ? PatchBlock() : PatchBlock(heights.size() * sizeof(float));
    std::copy(heights.begin(), heights.end(), static_cast<float *>(parentHeights_.data()));
    if (!listsFit()) throw NBX::IOError(L"stored patch refers to vertices that do not exist");
    wallShape_ = nullptr;
    patchShape_ = nullptr;
}

bool TinPatch::listsFit() const {
    bool fits = data_ && staysBelow(lists_.vertexNumbers(), lists_.vertices, data_->vertices()) &&
                staysBelow(lists_.stripNumbers(), lists_.strips, lists_.vertices) &&
                staysBelow(lists_.rangeEnds(), lists_.ranges, lists_.strips + 1) &&
                std::is_sorted(lists_.rangeEnds(), lists_.rangeEnds() + lists_.ranges) &&
                (parentHeightCount_ == 0 || parentHeightCount_ == lists_.vertices);
    for (unsigned i = 0; i < s_borders; ++i)
        fits = fits && staysBelow(lists_.borderNumbers(i), lists_.borders[i], lists_.vertices);
    return fits;
}

NBX_STORED_CLASS_IMPL(TinPatch, GeometryPatch)

} // namespace ZMT::CORE
