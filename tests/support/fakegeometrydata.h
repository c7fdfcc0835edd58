#pragma once

#include <string>
#include <vector>

#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>

/// Vertices from a list, with the normal (v, 1, 0), and answers that can be told apart. Notes the queries.
class FakeGeometryData : public ZMT::CORE::GeometryData {
    NBX_TEMPLATE_CLASS(FakeGeometryData, ZMT::CORE::GeometryData)
public:
    explicit FakeGeometryData(std::vector<Point> points, const Point & origin = {})
        : points_(std::move(points)), origin_(origin) {}

    unsigned vertices() const override { return static_cast<unsigned>(points_.size()); }
    Point vertex(unsigned v) const override { return points_[v]; }
    Point normal(unsigned v) const override { return {static_cast<double>(v), 1.0, 0.0}; }
    double calculateHeight(const Point & p) const override {
        calls_.emplace_back("calculateHeight");
        return p.x + p.z;
    }
    bool hasUndefinedHeight(const Point & p) const override {
        calls_.emplace_back("hasUndefinedHeight");
        return p.x < 0.0;
    }
    bool isUndefinedHeightValue(double height) const override {
        calls_.emplace_back("isUndefinedHeightValue");
        return height == -1.0;
    }
    std::pair<double, double> getCellSize() const override {
        calls_.emplace_back("getCellSize");
        return {3.0, 4.0};
    }
    bool resampleRasterData(ZMT::RASTER::SimpleRasterData<float> * target) const override {
        calls_.emplace_back("resampleRasterData");
        target_ = target;
        return true;
    }
    NBX::SO<NBX::PolygonSet> extractMesh(const NBX::Bounds & box, NBX::Progress * progress) const override {
        calls_.emplace_back("extractMesh");
        box_ = box;
        progress_ = progress;
        return mesh_;
    }
    Point origin() const override { return origin_; }

    Points * verticesOf(Indices * indices) const { return newIndexToVertexIterator(indices); }
    Points * normalsOf(Indices * indices) const { return newIndexToNormalIterator(indices); }

    NBX::SO<NBX::PolygonSet> mesh_;
    mutable std::vector<std::string> calls_;
    mutable ZMT::RASTER::SimpleRasterData<float> * target_ = nullptr;
    mutable NBX::Bounds box_;
    mutable NBX::Progress * progress_ = nullptr;

private:
    std::vector<Point> points_;
    Point origin_;
};
