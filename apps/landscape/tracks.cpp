#include "tracks.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <exception>
#include <fstream>
#include <string_view>
#include <utility>

#include "errors.h"
#include "program/stage.h"
#include "step.h"
#include "streamedfiles.h"

#include <zmt/raster/gdal/vector/trackfile.h>
#include <zmt/raster/vector/isotime.h>

namespace {

using NBX::SO;
using ZMT::CORE::MovingFeatures;
using ZMT::CORE::VectorStyleSheet;
using ZMT::CORE::VectorTrack;
using ZMT::RASTER::VectorFeature;

const char * const s_wayStyle = "color=#e02020,width=3";
const char * const s_markRimStyle = "color=#ffffff,symbol=circle,size=16";
const char * const s_markStyle = "color=#e02020,symbol=circle,size=11";

/// So that large files of other kinds are not opened once more.
bool beginsAsGpx(const std::string & path) {
    std::array<char, 4096> bytes{};
    std::ifstream file(path, std::ios::binary);
    file.read(bytes.data(), bytes.size());
    return std::string_view(bytes.data(), std::size_t(file.gcount())).find("<gpx") != std::string_view::npos;
}

/// Seconds after the start; none for what is no such number.
std::optional<double> secondsIn(const std::string & text) {
    if (text.empty() || text[0] != '+') return {};
    double seconds = 0.0;
    const char * end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + 1, end, seconds);
    const bool isNumber = error == std::errc() && rest == end && std::isfinite(seconds) && seconds >= 0.0;
    return isNumber ? std::optional(seconds) : std::nullopt;
}

void tellLosses(const std::string & path, const VectorTrack & track, std::uint64_t withoutPlace) {
    const VectorTrack::Counts & counts = track.counts();
    const auto tell = [&](std::uint64_t points, const char * what) {
        if (points > 0) writeError("warning: " + path + ": " + std::to_string(points) + what);
    };
    tell(counts.withoutTime, " points have no time and are left out");
    tell(counts.withoutPlace + withoutPlace, " points have no place here and are left out");
    tell(counts.unordered, " points are not in the order of their times, and are sorted");
}

} // namespace

void checkTrackOptions(const TrackOptions & options) {
    if (options.time.empty()) return;
    if (options.files.empty()) throw UsageError("--time is that of a --track; give one, or leave it out");
    if (!secondsIn(options.time) && !ZMT::RASTER::IsoTime::parse(options.time))
        throw UsageError("--time must be a time such as 2024-05-01T12:30:00Z, or +SECONDS after the start: " +
                         options.time);
}

Tracks::Tracks(const TrackOptions & options, const ZMT::RASTER::GeoReference & reference) {
    std::vector<ZMT::RASTER::TrackPiece> pieces;
    for (const std::string & path : options.files) {
        const Stage stage(L"read");
        Step step("reading " + path);
        const auto read = ZMT::RASTER::TrackFile::read(path, reference.wkt);
        tracks_.emplace_back(new VectorTrack(read.pieces));
        tellLosses(path, *tracks_.back(), read.withoutPlace);
        if (tracks_.back()->isEmpty())
            throw DataError(path + ": no point has a time; show its lines by --overlay instead");
        pieces.insert(pieces.end(), read.pieces.begin(), read.pieces.end());
        step.finish();
    }
    if (tracks_.empty()) return;
    all_ = tracks_.size() == 1 ? tracks_.front() : NBX::SO<VectorTrack>(new VectorTrack(pieces));
    const auto seconds = secondsIn(options.time);
    time_ = options.time.empty() ? end()
            : seconds            ? start() + *seconds
                                 : ZMT::RASTER::IsoTime::parse(options.time).value_or(end());
}

bool Tracks::isTrack(const std::string & path) {
    if (!beginsAsGpx(path)) return false;
    try {
        const auto read = ZMT::RASTER::TrackFile::read(path);
        return std::any_of(read.pieces.begin(), read.pieces.end(), [](const auto & piece) {
            return std::any_of(piece.begin(), piece.end(),
                               [](const auto & point) { return std::isfinite(point.time); });
        });
    } catch (const std::exception &) {
        return false;
    }
}

void Tracks::showOn(DynamicLayer & layer) {
    if (shownTime_ == time_) return;
    shownTime_ = time_;
    const auto group = [](const char * style) {
        return MovingFeatures::Group{{}, VectorStyleSheet::parse(style)};
    };
    DynamicLayer::Groups groups = {group(s_wayStyle), group(s_markRimStyle), group(s_markStyle)};
    std::optional<VectorTrack::Position> firstMark;
    for (const SO<VectorTrack> & track : tracks_) {
        VectorFeature way, mark;
        way.lines = track->passed(time_);
        groups[0].features.push_back(way);
        const auto place = track->placeAt(time_);
        if (!place) continue;
        if (!firstMark) firstMark = place->position;
        mark.points = {place->position};
        groups[1].features.push_back(mark);
        groups[2].features.push_back(mark);
    }
    layer.show(DynamicLayer::Part::Tracks, std::move(groups), firstMark);
}
