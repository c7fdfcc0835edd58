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

/// A coordinate system by one of its names, and places of the globe in it. One thread at a time uses an
/// object.
class CoordinateSystem {
public:
    /// What `text` names: "EPSG:32645", the number alone, or WKT; other definitions that PROJ knows, too.
    /// Neither files nor servers are asked. Throws `NBX::InputException` for what names none.
    static GeoReference parse(const std::string & text);

    /// The short name of the system `wkt` in a register, such as "EPSG:32645"; empty where it has none.
    static std::string code(const std::string & wkt);

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

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace ZMT::RASTER
