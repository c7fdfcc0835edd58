#pragma once

#include <array>

#include <nbx/engine/technique.h>
#include <nbx/math/bounds.h>
#include <nbx/math/ray.h>
#include <nbx/object/so.h>

namespace NBX {

class SceneNode;

/// Finds where a ray first meets a scene. Shapes are tested by the ray intersector of their class; shapes
/// without one are simplified.
class RayTracingTechnique : public Technique {
    NBX_CLASS(RayTracingTechnique, Technique)
public:
    /// `ray` is in scene coordinates.
    explicit RayTracingTechnique(const Ray & ray);

    /// Tests the ray against `node`; true on a hit.
    bool trace(Engine * engine, SceneNode * node);

    /// The ray in scene coordinates, and the one in the frame of the engine's model matrix.
    const Ray & ray() const { return ray_; }
    Ray localRay(const Engine * engine) const;

    /// The nearest intersection so far, in scene coordinates.
    struct Hit {
        double distance; ///< from the ray's origin, in world units
        Vector3Base<double> point;
        Vector3Base<double> normal; ///< of length 1
        SO<const Shape> shape;
    };
    bool hasHit() const { return hasHit_; }
    /// Means something only after a hit.
    const Hit & nearestHit() const { return hit_; }

    /// Called by ray intersectors: `point` and `normal` are in the frame of the engine's model matrix. Kept
    /// when it lies nearer than what was reported before; of equally near ones the first.
    void report(const Engine * engine, const Vector3Base<double> & point, const Vector3Base<double> & normal,
                const Shape * shape);

    /// The same for a triangle of `shape` that `ray` hits at the parameter `distance`; both are in the frame
    /// of the engine's model matrix. The normal looks at the ray's origin.
    void reportTriangle(const Engine * engine, const Ray & ray, double distance,
                        const std::array<Vector3Base<double>, 3> & corners, const Shape * shape);

    /// Whether the ray, which begins at its origin, meets the box; its border counts. False for an undefined
    /// box.
    static bool checkBounds(const Ray & ray, const Bounds & box);
    /// The parameter at which it enters the box, 0 from within; infinite where `checkBounds` is false.
    /// Somewhat too small rather than too large.
    static double enterBounds(const Ray & ray, const Bounds & box);
    /// The parameter, the same in the frame of every shape, beyond which a hit is not the nearest one any
    /// more; infinite before the first. Somewhat too large rather than too small.
    double limit() const;

    /// Forgets the hits before.
    void start(Engine * engine) override;
    ID service() const override;
    bool process(Engine * engine, Handler * handler, const Shape * shape) override;
    bool apply(Engine * engine, Handler * handler, const MonoAttribute * attribute, bool entering) override;
    /// There is one pass.
    bool nextPass(Engine * engine) override;

private:
    Ray ray_;
    bool hasHit_ = false;
    Hit hit_{};
};

} // namespace NBX
