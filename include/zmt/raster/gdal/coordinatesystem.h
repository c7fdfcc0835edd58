#pragma once

#include <memory>
#include <optional>
#include <string>

#include <zmt/raster/georeference.h>

namespace ZMT::RASTER {

/// A place on the globe, in degrees of WGS 84.
struct LonLat {
    double longitude, latitude;
};

/// A place on the map, in the unit of its system.
struct MapPlace {
    double x, y;
};

/// A place on the map, and where the ground goes from there: what a metre to the east, and one to the north,
/// are on the map. They hold the meridian's convergence and the scale of the map.
struct MapAxes {
    MapPlace place;
    MapPlace east, north; ///< differences, for a metre each
};

/// A coordinate system by one of its names, and places of the globe in it. One thread at a time uses an
/// object.
class CoordinateSystem {
public:
    /// What `text` names: "EPSG:32645", the number alone, or WKT; other definitions that PROJ knows, too.
    /// Neither files nor servers are asked. Throws `NBX::InputException` for what names none.
    static GeoReference parse(const std::string & text);

    /// The short name of the system `wkt` in a register, such as "EPSG:32645"; empty where it has none.
    static std::string code(const std::string & wkt);

    /// The zone of the universal transverse Mercator system, on WGS 84, in which a place lies.
    static GeoReference utm(const LonLat & place);
    /// Whether coordinates in both mean the same: the systems have one short name or one text. What has none
    /// is the same as anything, since nobody knows.
    static bool areSame(const GeoReference & a, const GeoReference & b);

    /// That of `reference`; null where it is not known, or has no way to the globe.
    static std::unique_ptr<CoordinateSystem> of(const GeoReference & reference);

    /// For people: name, short name and unit, such as "WGS 84 / UTM zone 45N (EPSG:32645), metre"; "none".
    static std::string describe(const GeoReference & reference);

    /// Throws `NBX::InputException` where `wkt` is no system, an empty one included.
    explicit CoordinateSystem(const std::string & wkt);
    ~CoordinateSystem();
    CoordinateSystem(const CoordinateSystem &) = delete;
    CoordinateSystem & operator=(const CoordinateSystem &) = delete;

    /// Nothing for a place that the other side has none for.
    std::optional<MapPlace> fromLonLat(const LonLat & place) const;
    std::optional<LonLat> toLonLat(const MapPlace & place) const;
    /// For metres on the ellipsoid of WGS 84. Nothing within a kilometre of a pole, where there is no north
    /// to go by, and for a place that the system has no coordinates for, there or close by.
    std::optional<MapAxes> axesAt(const LonLat & place) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace ZMT::RASTER
