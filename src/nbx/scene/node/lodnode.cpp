#include <nbx/scene/node/lodnode.h>

#include <nbx/container/sequence/array.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(LODNode, SceneNode)

LODNode::LODNode(const Vector3Base<double> & center) : center_(center), levels_(new SceneThing()) {}

void LODNode::append(SceneNode * level, double maxDistance) {
    const bool grows = maxDistances_.empty() || maxDistance > maxDistances_.back();
    NBX_CHECK(grows, L"a level ends where the one before does");
    const unsigned before = levels_->objects();
    levels_->append(level);
    if (levels_->objects() == before) return;
    maxDistances_.push_back(maxDistance);
    modified();
}

SceneNode * LODNode::getLodNode(unsigned i) const {
    NBX_CHECK(i < lodNodes(), L"i out of range");
    return i < lodNodes() ? dynamic_cast<SceneNode *>(levels_->object(i)) : nullptr;
}

double LODNode::getMaxDistance(unsigned i) const {
    NBX_CHECK(i < maxDistances_.size(), L"i out of range");
    return i < maxDistances_.size() ? maxDistances_[i] : 0.0;
}

SceneNode * LODNode::levelAt(double distance) const {
    for (unsigned i = 0; i < lodNodes(); ++i)
        if (distance < maxDistances_[i]) return getLodNode(i);
    return nullptr;
}

void LODNode::setCenter(const Vector3Base<double> & center) {
    if (center_ == center) return;
    center_ = center;
    modified();
}

void LODNode::acceptChildren(std::vector<Visitable *> & children) const {
    SceneNode::acceptChildren(children);
    children.push_back(levels_.get());
}

void LODNode::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<SceneNode>(m, this);
    attributeWithDefault(m, "center", center_, Vector3Base<double>());
    SO<Array<double>> distances(new Array<double>(maxDistances_));
    SO<SceneThing> levels = levels_;
    attributeWithDefault(m, "maxDistances", distances, nullptr);
    attributeWithDefault(m, "levels", levels, nullptr);
    if (!m.isReading()) return;
    if (!levels) levels = new SceneThing();
    const std::size_t size = distances ? distances->size() : 0;
    if (levels->objects() != size || levels->childNodes() != size)
        throw IOError(L"stored levels of detail are damaged");
    maxDistances_ = distances ? distances->stl() : std::vector<double>();
    levels_ = levels;
    modified();
}

} // namespace NBX
