#include <zmt/core/terrain/geometry/base/geometrypatch.h>

#include <algorithm>
#include <bit>

#include <nbx/container/sequence/array.h>
#include <zmt/core/terrain/geometry/base/stripmesh.h>

namespace ZMT::CORE {

namespace {

/// A tree of the largest grid has some forty.
constexpr unsigned s_mostStoredLevels = 200;

} // namespace

NBX_CLASS_IMPL(GeometryPatch, NBX::Shape)

GeometryPatch::GeometryPatch() : NBX::Shape(true), bbox_(NBX::Vector3Base<double>()) {}

GeometryPatch::GeometryPatch(const NBX::Bounds & bbox, double approxError, double wall,
                             const NBX::SO<Children> & children)
    : NBX::Shape(true), bbox_(bbox.isDefined() ? bbox : NBX::Bounds(NBX::Vector3Base<double>())),
      approxError_(approxError), wall_(wall) {
    NBX_CHECK(approxError >= 0, L"invalid approximation-error: " << approxError);
    for (unsigned i = 0; children && i < children->size(); ++i)
        addChild(children->get(i));
}

NBX::SO<GeometryPatch> GeometryPatch::child(unsigned i) const {
    NBX_CHECK(i < children(), L"i out of range");
    return i < childCount_ ? children_[i] : nullptr;
}

StripMesh GeometryPatch::surface(const NBX::Vector3Base<double> &) const {
    return {};
}

void GeometryPatch::addChild(const NBX::SO<GeometryPatch> & child) {
    NBX_CHECK(child, L"no child");
    if (!child) return;
    // Room for 1, 2, 4 and so on; there are four at most, as a rule.
    if (childCount_ == 0 || std::has_single_bit(childCount_)) {
        const std::size_t room = childCount_ == 0 ? 1 : std::size_t(childCount_) * 2;
        std::unique_ptr<NBX::SO<GeometryPatch>[]> larger(new NBX::SO<GeometryPatch>[room]);
        std::move(children_.get(), children_.get() + childCount_, larger.get());
        children_ = std::move(larger);
    }
    children_[childCount_++] = child;
    child->setParent(this);
}

void GeometryPatch::addStoredChild(const NBX::SO<GeometryPatch> & child) {
    if (child->parent()) throw NBX::IOError(L"stored patch has two parents");
    for (NBX::SO<GeometryPatch> above(this); above; above = above->parent())
        if (above == child) throw NBX::IOError(L"stored patch lies below itself");
    if (child->storedLevels_ >= s_mostStoredLevels) throw NBX::IOError(L"stored tree is too deep");
    storedLevels_ = std::max<std::uint16_t>(storedLevels_, child->storedLevels_ + 1);
    addChild(child);
}

void GeometryPatch::setParent(const NBX::WO<GeometryPatch> & parent) {
    NBX_CHECK(!parent_, L"parent already set");
    parent_ = parent;
}

void GeometryPatch::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    NBX::Shape::acceptChildren(children);
    for (unsigned i = 0; i < childCount_; ++i)
        children.push_back(children_[i].get());
}

void GeometryPatch::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::Shape>(m, this);
    m.attribute("bbox", bbox_);
    m.attribute("error", approxError_);
    m.attribute("wall", wall_);

    NBX::SO<NBX::Array<NBX::SO<GeometryPatch>>> children;
    if (m.isWriting() && childCount_ > 0)
        children = new NBX::Array<NBX::SO<GeometryPatch>>(
            std::vector<NBX::SO<GeometryPatch>>(children_.get(), children_.get() + childCount_));
    m.attribute("children", children);
    if (m.isReading()) {
        children_.reset();
        childCount_ = 0;
        storedLevels_ = 0;
        for (unsigned i = 0; children && i < children->size(); ++i)
            if (children->get(i)) addStoredChild(children->get(i));
        if (!bbox_.isDefined()) bbox_ = NBX::Bounds(NBX::Vector3Base<double>());
    }

    const NBX::Vector3Base<double> & llf = bbox_.getLLF();
    bbox_ += NBX::Vector3Base<double>(llf.x, wall_, llf.z);
}

} // namespace ZMT::CORE
