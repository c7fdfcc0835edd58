#include <zmt/raster/gdal/vector/trackfile.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include <ogrsf_frmts.h>

#include "raster/gdal/gdalsupport.h"
#include <nbx/object/exception.h>
#include <zmt/raster/gdal/coordinatesystem.h>
#include <zmt/raster/vector/isotime.h>

namespace ZMT::RASTER {

namespace {

constexpr double s_noTime = std::numeric_limits<double>::quiet_NaN();

/// Numbers of fields; -1 for one that the layer has not.
struct Fields {
    explicit Fields(OGRLayer & layer)
        : track(layer.GetLayerDefn()->GetFieldIndex("track_fid")),
          segment(layer.GetLayerDefn()->GetFieldIndex("track_seg_id")),
          height(layer.GetLayerDefn()->GetFieldIndex("ele")),
          time(layer.GetLayerDefn()->GetFieldIndex("time")) {}

    int track, segment, height, time;
};

double timeOf(const OGRFeature & feature, int field) {
    if (field < 0 || !feature.IsFieldSetAndNotNull(field)) return s_noTime;
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, zone = 0;
    float second = 0.0F;
    if (!feature.GetFieldAsDateTime(field, &year, &month, &day, &hour, &minute, &second, &zone))
        return IsoTime::parse(feature.GetFieldAsString(field)).value_or(s_noTime);
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(unsigned(month)),
                                           std::chrono::day(unsigned(day))};
    if (!date.ok()) return s_noTime;
    const double days = double(std::chrono::sys_days(date).time_since_epoch().count());
    // The zone counts quarters of an hour, 100 is UTC, and less than 2 is not known.
    const double ahead = zone > 1 ? (zone - 100) * 900.0 : 0.0;
    // Milliseconds are what survives in single precision.
    const double seconds = std::round(double(second) * 1000.0) / 1000.0;
    return days * 86400.0 + hour * 3600.0 + minute * 60.0 + seconds - ahead;
}

/// Brings places to a system.
class Placing {
public:
    explicit Placing(const std::string & wkt) {
        if (!wkt.empty()) system_.emplace(wkt);
    }
    std::optional<MapPlace> place(const OGRPoint & point) const {
        const MapPlace place{point.getX(), point.getY()};
        if (!std::isfinite(place.x) || !std::isfinite(place.y)) return {};
        return system_ ? system_->fromLonLat({place.x, place.y}) : place;
    }

private:
    std::optional<CoordinateSystem> system_;
};

class Collector {
public:
    Collector(OGRLayer & layer, const std::string & wkt) : fields_(layer), placing_(wkt) {}

    void add(const OGRFeature & feature) {
        const OGRGeometry * geometry = feature.GetGeometryRef();
        const auto * point = dynamic_cast<const OGRPoint *>(geometry);
        const auto place = point ? placing_.place(*point) : std::nullopt;
        if (!place) {
            ++tracks_.withoutPlace;
            return;
        }
        beginPiece(feature);
        tracks_.pieces.back().push_back(
            {timeOf(feature, fields_.time), {place->x, heightOf(feature), place->y}});
    }
    TrackFile::Tracks take() { return std::move(tracks_); }

private:
    void beginPiece(const OGRFeature & feature) {
        const auto track = fields_.track < 0 ? 0 : feature.GetFieldAsInteger64(fields_.track);
        const auto segment = fields_.segment < 0 ? 0 : feature.GetFieldAsInteger64(fields_.segment);
        if (tracks_.pieces.empty() || track != track_ || segment != segment_) tracks_.pieces.emplace_back();
        track_ = track;
        segment_ = segment;
    }
    double heightOf(const OGRFeature & feature) const {
        const double height = fields_.height < 0 ? 0.0 : feature.GetFieldAsDouble(fields_.height);
        return std::isfinite(height) ? height : 0.0;
    }

    const Fields fields_;
    const Placing placing_;
    TrackFile::Tracks tracks_;
    GIntBig track_ = 0, segment_ = 0;
};

} // namespace

TrackFile::Tracks TrackFile::read(const std::string & path, const std::string & wkt) {
    GdalErrorTrap trap;
    const GdalDataset dataset =
        openDataset(path, GDAL_OF_VECTOR,
                    L"is no file of tracks that can be read, or is damaged; choose a GPX file", trap);
    OGRLayer * layer = dataset->GetLayerByName("track_points");
    if (!layer) throw NBX::InputException(L"is no GPX file; choose one, which has tracks with times", path);
    Collector collector(*layer, wkt);
    layer->ResetReading();
    std::uint64_t points = 0;
    for (const OGRFeatureUniquePtr & feature : *layer) {
        if (++points > maxPoints)
            throw NBX::InputException(L"has more than " + std::to_wstring(maxPoints) +
                                          L" points of tracks; choose a smaller file",
                                      path);
        collector.add(*feature);
    }
    if (trap.failed()) throw NBX::InputException(L"is damaged; get the file anew", path, 0, trap.text());
    Tracks tracks = collector.take();
    if (tracks.pieces.empty())
        throw NBX::InputException(L"has no points of tracks; choose a file with a recorded track", path);
    return tracks;
}

} // namespace ZMT::RASTER
