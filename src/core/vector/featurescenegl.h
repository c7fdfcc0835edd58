#pragma once

#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>

#include "featureshapes.h"

namespace ZMT::CORE {

/// Makes the scene of one texture out of shapes, each of which covers those before it. What is translucent
/// is drawn once at each pixel by each group, for which the stencil buffer is used; it must be clear.
class FeatureSceneGL {
public:
    FeatureSceneGL();

    /// `position` is where the vertices count from, in the frame of the scene.
    void append(const FeatureShapes & shapes, const NBX::Vector3Base<double> & position);
    void append(const FeatureShapes::Group & group, const NBX::Vector3Base<double> & position);
    /// Where others may have left marks in the stencil buffer, before anything is appended.
    void clearMarks();
    void append(NBX::RenderObj * object) { scene_->append(object); }
    const NBX::SO<NBX::SceneThing> & scene() const { return scene_; }

private:
    int nextMark();

    NBX::SO<NBX::SceneThing> scene_;
    int mark_ = 0; ///< in the stencil buffer, of the last group
};

} // namespace ZMT::CORE
