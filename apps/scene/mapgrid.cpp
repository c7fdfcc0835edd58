// A grid is a few lines in memory. Those of the map are straight; those of the globe go through many places,
// which the projection library brings to the map.

#include "mapgrid.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

#include "landscape/landscape.h"
#include "roundnumbers.h"

#include <zmt/core/vector/vectorstylesheet.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

using ZMT::RASTER::CoordinateSystem;
using ZMT::RASTER::GeoExtent;
using ZMT::RASTER::VectorFeature;

constexpr double s_linesAlong = 8.0;
constexpr int s_placesOfLine = 128;
constexpr int s_borderPlaces = 32; ///< along a side of the area, to find its longitudes and latitudes
constexpr const char * s_gridStyle =
    "color=#000000d0, width=1.5, label=name, label-size=11, label-color=#101820, halo=1.5";

class GridLines : public ZMT::RASTER::FeatureSource {
public:
    GridLines(MapGrid::Kind kind, std::string name) : kind_(kind), name_(std::move(name)) {}

    void add(const VectorFeature::Line & line, const std::string & name) {
        if (line.size() < 2) return;
        VectorFeature feature;
        feature.id = std::int64_t(features_.size());
        feature.lines = {line};
        feature.values = {name};
        features_.push_back(feature);
        boxes_.push_back(boxOf(line));
    }
    MapGrid::Kind kind() const { return kind_; }

    const std::string & name() const override { return name_; }
    const std::vector<ZMT::RASTER::VectorField> & fields() const override { return fields_; }
    std::uint64_t size() const override { return features_.size(); }
    std::optional<GeoExtent> extent() const override {
        if (boxes_.empty()) return std::nullopt;
        GeoExtent all = boxes_.front();
        for (const GeoExtent & box : boxes_)
            all = {std::min(all.minX, box.minX), std::min(all.minY, box.minY), std::max(all.maxX, box.maxX),
                   std::max(all.maxY, box.maxY)};
        return all;
    }
    Kinds kinds() const override { return {.lines = true}; }
    void read(const Query & query, const std::function<bool(const VectorFeature &)> & visit) const override {
        for (std::size_t i = 0; i < features_.size(); ++i) {
            const GeoExtent & box = boxes_[i];
            if (box.minX > query.box.maxX || box.maxX < query.box.minX || box.minY > query.box.maxY ||
                box.maxY < query.box.minY)
                continue;
            VectorFeature feature = features_[i];
            if (query.fields.empty()) feature.values.clear();
            if (!visit(feature)) return;
        }
    }

private:
    static GeoExtent boxOf(const VectorFeature::Line & line) {
        GeoExtent box{line[0].x, line[0].z, line[0].x, line[0].z};
        for (const auto & p : line)
            box = {std::min(box.minX, p.x), std::min(box.minY, p.z), std::max(box.maxX, p.x),
                   std::max(box.maxY, p.z)};
        return box;
    }

    MapGrid::Kind kind_;
    std::string name_;
    std::vector<ZMT::RASTER::VectorField> fields_ = {{"name", ZMT::RASTER::VectorField::Type::Text}};
    std::vector<VectorFeature> features_;
    std::vector<GeoExtent> boxes_;
};

template <class F> void forRoundNumbers(double low, double high, double step, const F & each) {
    for (double n = std::ceil(low / step); n * step <= high; n += 1.0)
        each(n * step);
}

std::string gridNumber(double number, const char * format) {
    char text[60];
    std::snprintf(text, sizeof text, format, number + 0.0); // no -0
    return text;
}

double stepOf(const GeoExtent & area) {
    return roundNumberFrom(std::max(area.maxX - area.minX, area.maxY - area.minY) / s_linesAlong);
}

void addMapLines(GridLines & grid, const GeoExtent & area, double step) {
    forRoundNumbers(area.minX, area.maxX, step, [&](double x) {
        grid.add({{x, 0.0, area.minY}, {x, 0.0, area.maxY}}, gridNumber(x, "E %.12g"));
    });
    forRoundNumbers(area.minY, area.maxY, step, [&](double y) {
        grid.add({{area.minX, 0.0, y}, {area.maxX, 0.0, y}}, gridNumber(y, "N %.12g"));
    });
}

/// Above ten degrees whole parts of a circle.
double degreeStepOf(const GeoExtent & degrees) {
    const double step = stepOf(degrees);
    if (step <= 10.0) return step;
    const double least = std::max(degrees.maxX - degrees.minX, degrees.maxY - degrees.minY) / s_linesAlong;
    for (const double part : {15.0, 30.0})
        if (least <= part) return part;
    return 45.0;
}

/// The longitudes and latitudes of an area, as x and y, without a step at 180 degrees: those of the whole
/// globe lie about its middle.
std::optional<GeoExtent> degreesOf(const GeoExtent & area, const CoordinateSystem & system) {
    const auto centre = system.toLonLat({(area.minX + area.maxX) / 2.0, (area.minY + area.maxY) / 2.0});
    std::optional<double> middle = centre ? std::optional(centre->longitude) : std::nullopt;
    std::optional<GeoExtent> degrees;
    for (int i = 0; i <= s_borderPlaces; ++i)
        for (int j = 0; j <= s_borderPlaces; ++j) {
            const double x = std::lerp(area.minX, area.maxX, double(i) / s_borderPlaces);
            const double y = std::lerp(area.minY, area.maxY, double(j) / s_borderPlaces);
            const auto place = system.toLonLat({x, y});
            if (!place) continue;
            if (!middle) middle = place->longitude;
            const double longitude = *middle + std::remainder(place->longitude - *middle, 360.0);
            const GeoExtent known =
                degrees.value_or(GeoExtent{longitude, place->latitude, longitude, place->latitude});
            degrees = GeoExtent{std::min(known.minX, longitude), std::min(known.minY, place->latitude),
                                std::max(known.maxX, longitude), std::max(known.maxY, place->latitude)};
        }
    return degrees;
}

std::string longitudeName(double longitude) {
    const double turned = std::remainder(longitude, 360.0);
    return gridNumber(std::abs(turned), "%.8g°") + (turned < 0.0 ? " W" : turned > 0.0 ? " E" : "");
}

std::string latitudeName(double latitude) {
    return gridNumber(std::abs(latitude), "%.8g°") + (latitude < 0.0 ? " S" : latitude > 0.0 ? " N" : "");
}

void addDegreeLines(GridLines & grid, const GeoExtent & degrees, double step,
                    const CoordinateSystem & system) {
    const auto line = [&](double fromX, double fromY, double toX, double toY) {
        VectorFeature::Line places;
        for (int i = 0; i <= s_placesOfLine; ++i) {
            const double share = double(i) / s_placesOfLine;
            const auto place =
                system.fromLonLat({std::lerp(fromX, toX, share), std::lerp(fromY, toY, share)});
            if (place) places.push_back({place->x, 0.0, place->y});
        }
        return places;
    };
    forRoundNumbers(degrees.minX, degrees.maxX, step, [&](double longitude) {
        grid.add(line(longitude, degrees.minY, longitude, degrees.maxY), longitudeName(longitude));
    });
    forRoundNumbers(degrees.minY, degrees.maxY, step, [&](double latitude) {
        grid.add(line(degrees.minX, latitude, degrees.maxX, latitude), latitudeName(latitude));
    });
}

const GridLines * gridOf(const Overlays::Overlay & overlay) {
    return dynamic_cast<const GridLines *>(overlay.source().get());
}

} // namespace

std::shared_ptr<const ZMT::RASTER::FeatureSource> MapGrid::lines(const GeoExtent & area,
                                                                 const ZMT::RASTER::GeoReference & reference,
                                                                 Kind kind, double & step) {
    if (kind == Kind::None || !(area.minX < area.maxX) || !(area.minY < area.maxY)) return nullptr;
    if (kind == Kind::Map) {
        step = stepOf(area);
        const auto grid = std::make_shared<GridLines>(kind, "map grid, " + roundLengthText(step));
        addMapLines(*grid, area, step);
        return grid;
    }
    const auto system = CoordinateSystem::of(reference);
    const auto degrees = system ? degreesOf(area, *system) : std::nullopt;
    if (!degrees) return nullptr;
    step = degreeStepOf(*degrees);
    const auto grid = std::make_shared<GridLines>(kind, "map grid, " + gridNumber(step, "%.6g°"));
    addDegreeLines(*grid, *degrees, step, *system);
    return grid;
}

MapGrid::Kind MapGrid::of(const Landscape & landscape) {
    for (const auto & overlay : landscape.overlays().list())
        if (const GridLines * grid = gridOf(*overlay)) return grid->kind();
    return Kind::None;
}

void MapGrid::show(Landscape & landscape, Kind kind) {
    if (!landscape.hasTerrain() || of(landscape) == kind) return;
    landscape.highlight(nullptr);
    const auto overlays = landscape.overlays().list();
    const auto before = std::find_if(overlays.begin(), overlays.end(),
                                     [](const auto & overlay) { return gridOf(*overlay) != nullptr; });
    const auto & raster = *landscape.grid().rasterData();
    double step = 0.0;
    const auto grid = lines({raster.minX(), raster.minY(), raster.maxX(), raster.maxY()},
                            landscape.reference(), kind, step);
    NBX::SO<Overlays::Overlay> overlay;
    if (grid) overlay = new Overlays::Overlay(grid, ZMT::CORE::VectorStyleSheet::parse(s_gridStyle));
    if (before != overlays.end())
        landscape.overlays().replace(before->get(), overlay);
    else if (overlay)
        landscape.addOverlays({overlay});
}
