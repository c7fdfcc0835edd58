#include <nbx/engine/engine.h>
#include <nbx/engine/rayintersector.h>
#include <nbx/engine/raytracingtechnique.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "rayleaves.h"

namespace ZMT::CORE {

namespace {

/// Finds the nearest triangle of a tree. What is loaded plays no part.
class TTTRayIntersector : public NBX::RayIntersector {
    NBX_TEMPLATE_CLASS(TTTRayIntersector, NBX::RayIntersector)
public:
    NBX::ID target() const override { return TexturedTriangleTree::ClassNameNBX(); }

    bool intersect(NBX::Engine * engine, const NBX::Matrix4x4Base<double> &,
                   const NBX::Matrix4x4Base<double> &, const NBX::Shape * shape, const NBX::Ray & ray,
                   NBX::RayTracingTechnique * technique) override {
        const auto * tree = dynamic_cast<const TexturedTriangleTree *>(shape);
        if (!tree) return false;
        const auto & untextured = tree->getUntexturedGeometry();
        const bool meetsUntextured =
            untextured && NBX::RayTracingTechnique::checkBounds(ray, untextured->boundingBox());
        if (meetsUntextured) engine->paint(untextured.get());
        const auto & nodes = tree->getRenderTree();
        const bool meetsNodes =
            nodes && NBX::RayTracingTechnique::checkBounds(ray, nodes->root()->content.bounds);
        if (meetsNodes)
            if (const auto leaves = tree->rayLeaves()) leaves->intersect(engine, ray, *technique);
        // The box of both may be met where neither is.
        return meetsUntextured || meetsNodes ||
               NBX::RayTracingTechnique::checkBounds(ray, tree->boundingBox());
    }
};

} // namespace

NBX_REGISTER_HANDLER(TTTRayIntersector)

} // namespace ZMT::CORE
