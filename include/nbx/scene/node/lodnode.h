#pragma once

#include <vector>

#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenenode.h>
#include <nbx/scene/node/scenething.h>

namespace NBX {

/// One thing in several levels of detail, of which the engine evaluates the one for the distance of the eye
/// from a centre. The finest level is the first one.
class LODNode : public SceneNode {
    NBX_STORED_CLASS(LODNode, SceneNode)
public:
    /// `center` is in the frame of this node.
    explicit LODNode(const Vector3Base<double> & center = {});

    /// Adds a level that is shown from where the one before ends up to `maxDistance` world units, excluded;
    /// beyond the last one nothing is shown. A distance that is not above the one before is reported, and the
    /// level is never shown. A null level, or one that would contain this node, is reported and left out.
    void append(SceneNode * level, double maxDistance);
    unsigned lodNodes() const { return levels_->objects(); }
    /// Level `i`; null for a number out of range, which is reported.
    SceneNode * getLodNode(unsigned i) const;
    /// Up to where level `i` is shown; 0 for a number out of range, which is reported.
    double getMaxDistance(unsigned i) const;
    /// The level for a distance; null beyond the last one.
    SceneNode * levelAt(double distance) const;

    const Vector3Base<double> & getCenter() const { return center_; }
    void setCenter(const Vector3Base<double> & center);

    /// Defined beside the engine. Distances are those of the scene, whatever the transformations above scale.
    void evaluate(Engine * engine) override;
    /// The box of all levels.
    Bounds boundingBox(Engine * engine) override { return levels_->boundingBox(engine); }
    /// All levels as one node, for walks over the scene.
    const SceneThing * levels() const { return levels_.get(); }
    void acceptChildren(std::vector<Visitable *> & children) const override;
    /// Attributes "center", "maxDistances", "levels". Throws `IOError` where levels and distances do not fit.
    void serialize(SerializationManager & m) override;

private:
    Vector3Base<double> center_;
    std::vector<double> maxDistances_; ///< one for each level
    SO<SceneThing> levels_;
};

} // namespace NBX
