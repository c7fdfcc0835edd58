#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nbx/object/exception.h>
#include <zmt/raster/featuresource.h>

/// Features in main memory, which notes what is asked of it.
class MemoryFeatures : public ZMT::RASTER::FeatureSource {
public:
    using Feature = ZMT::RASTER::VectorFeature;
    using Field = ZMT::RASTER::VectorField;
    using Position = Feature::Position;

    explicit MemoryFeatures(std::vector<Field> fields = {}) : fields_(std::move(fields)) {}

    /// The values are those of all fields.
    Feature & add(std::vector<ZMT::RASTER::FieldValue> values = {}) {
        Feature & feature = features.emplace_back();
        feature.id = static_cast<std::int64_t>(features.size());
        feature.values = std::move(values);
        return feature;
    }
    Feature & addLine(const Feature::Line & line, std::vector<ZMT::RASTER::FieldValue> values = {}) {
        Feature & feature = add(std::move(values));
        feature.lines.push_back(line);
        return feature;
    }
    Feature & addArea(const Feature::Area & area, std::vector<ZMT::RASTER::FieldValue> values = {}) {
        Feature & feature = add(std::move(values));
        feature.areas.push_back(area);
        return feature;
    }
    Feature & addPoint(const Position & point, std::vector<ZMT::RASTER::FieldValue> values = {}) {
        Feature & feature = add(std::move(values));
        feature.points.push_back(point);
        return feature;
    }
    static Feature::Line rectangle(double west, double south, double east, double north) {
        return {{west, 0.0, south}, {east, 0.0, south}, {east, 0.0, north}, {west, 0.0, north}};
    }

    const std::string & name() const override { return name_; }
    const std::vector<Field> & fields() const override { return fields_; }
    std::uint64_t size() const override { return features.size(); }
    Kinds kinds() const override { return {true, true, true}; }
    std::optional<ZMT::RASTER::GeoExtent> extent() const override {
        std::optional<ZMT::RASTER::GeoExtent> extent;
        for (const Feature & feature : features) {
            const auto own = extentOf(feature);
            if (!own) continue;
            if (!extent) extent = own;
            grow(*extent, own->minX, own->minY);
            grow(*extent, own->maxX, own->maxY);
        }
        return extent;
    }
    void read(const Query & query, const std::function<bool(const Feature &)> & visit) const override {
        queries.push_back(query);
        if (fails) throw NBX::InputException(L"cannot be read", name_);
        for (const Feature & feature : features) {
            const auto own = extentOf(feature);
            if (!own || own->minX > query.box.maxX || own->maxX < query.box.minX ||
                own->minY > query.box.maxY || own->maxY < query.box.minY)
                continue;
            Feature given = feature;
            given.values.clear();
            for (const unsigned field : query.fields)
                given.values.push_back(feature.values.at(field));
            if (!visit(given)) return;
        }
    }

    std::vector<Feature> features;
    bool fails = false;
    mutable std::vector<Query> queries;

private:
    static void grow(ZMT::RASTER::GeoExtent & extent, double x, double z) {
        extent.minX = std::min(extent.minX, x);
        extent.maxX = std::max(extent.maxX, x);
        extent.minY = std::min(extent.minY, z);
        extent.maxY = std::max(extent.maxY, z);
    }
    static std::optional<ZMT::RASTER::GeoExtent> extentOf(const Feature & feature) {
        std::optional<ZMT::RASTER::GeoExtent> extent;
        const auto add = [&](const std::vector<Position> & positions) {
            for (const Position & p : positions) {
                if (!extent) extent = {p.x, p.z, p.x, p.z};
                grow(*extent, p.x, p.z);
            }
        };
        add(feature.points);
        for (const auto & line : feature.lines)
            add(line);
        for (const auto & area : feature.areas)
            for (const auto & ring : area)
                add(ring);
        return extent;
    }

    std::string name_ = "memory";
    std::vector<Field> fields_;
};
