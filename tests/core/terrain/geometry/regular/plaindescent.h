#pragma once

#include <nbx/engine/engine.h>
#include <nbx/engine/rayintersector.h>
#include <nbx/engine/raytracingtechnique.h>
#include <zmt/core/terrain/geometry/hybrid/hybriddata.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>

/// A grid patch that rays test by dividing it into quarters down to the cells, by plan and height limits
/// alone: what faster searches are held against.
class PlainPatch : public NBX::Shape {
    NBX_TEMPLATE_CLASS(PlainPatch, NBX::Shape)
public:
    explicit PlainPatch(const NBX::SO<ZMT::CORE::GridPatch> & patch) : NBX::Shape(true), patch_(patch) {}

    NBX::Bounds boundingBox() const override { return patch_->boundingBox(); }
    const ZMT::CORE::GridPatch & patch() const { return *patch_; }

private:
    NBX::SO<ZMT::CORE::GridPatch> patch_;
};

class PlainPatchRayIntersector : public NBX::RayIntersector {
    NBX_TEMPLATE_CLASS(PlainPatchRayIntersector, NBX::RayIntersector)
    using Point = NBX::Vector3Base<double>;

public:
    NBX::ID target() const override { return PlainPatch::ClassNameNBX(); }

    bool intersect(NBX::Engine * engine, const NBX::Matrix4x4Base<double> &,
                   const NBX::Matrix4x4Base<double> &, const NBX::Shape * shape, const NBX::Ray & ray,
                   NBX::RayTracingTechnique * technique) override {
        const auto & patch = static_cast<const PlainPatch *>(shape)->patch();
        const NBX::Area & domain = patch.domain();
        check({engine, ray, patch, technique}, unsigned(domain.getX()), unsigned(domain.getY()),
              domain.getWidth(), domain.getHeight());
        return true;
    }

private:
    struct Test {
        NBX::Engine * engine;
        const NBX::Ray & ray;
        const ZMT::CORE::GridPatch & patch;
        NBX::RayTracingTechnique * technique;
    };

    static void check(const Test & test, unsigned x, unsigned y, unsigned w, unsigned h) {
        const NBX::Bounds limits = test.patch.boundingBox();
        const Point a = test.patch.grid()->vertex(x, y), b = test.patch.grid()->vertex(x + w, y + h);
        if (!test.technique->checkBounds(
                test.ray, NBX::Bounds({a.x, limits.getLLF().y, a.z}, {b.x, limits.getURB().y, b.z})))
            return;
        if (w == 1 && h == 1) {
            checkCell(test, x, y);
        } else if (w == 1) {
            check(test, x, y, 1, h / 2);
            check(test, x, y + h / 2, 1, h - h / 2);
        } else if (h == 1) {
            check(test, x, y, w / 2, 1);
            check(test, x + w / 2, y, w - w / 2, 1);
        } else {
            check(test, x, y, w / 2, h / 2);
            check(test, x, y + h / 2, w / 2, h - h / 2);
            check(test, x + w / 2, y, w - w / 2, h / 2);
            check(test, x + w / 2, y + h / 2, w - w / 2, h - h / 2);
        }
    }

    static void checkCell(const Test & test, unsigned x, unsigned y) {
        const auto & grid = *test.patch.grid();
        if (const auto * hybrid = dynamic_cast<const ZMT::CORE::HybridData *>(&grid))
            if (const auto micro = hybrid->microData(x, y)) return test.engine->paint(micro.get());
        checkTriangle(test, grid.vertex(x, y), grid.vertex(x, y + 1), grid.vertex(x + 1, y + 1));
        checkTriangle(test, grid.vertex(x, y), grid.vertex(x + 1, y + 1), grid.vertex(x + 1, y));
    }

    static void checkTriangle(const Test & test, const Point & a, const Point & b, const Point & c) {
        double t = 0.0;
        if (!intersectTriangle(test.ray.getOrigin(), test.ray.getDirection(), a, b, c, t)) return;
        const Point normal = (b - a).cross(c - a);
        const bool looksAway = normal.dot(test.ray.getDirection()) > 0.0;
        test.technique->report(test.engine, test.ray.point(t), looksAway ? normal * -1.0 : normal,
                               &test.patch);
    }
};

inline const bool plainPatchRegistered = (NBX::Engine::registerHandler(new PlainPatchRayIntersector), true);
