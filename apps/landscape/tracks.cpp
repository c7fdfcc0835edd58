// Files are read one by one, and what they lack is told and noted. What is drawn changes with the time and
// with their looks: a way and a mark for each, in colours with an opacity of their own.

#include "tracks.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
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

const char * const s_wayColor = "#e02020";
const char * const s_wayStyle = "width=3";
const char * const s_markRimColor = "#ffffff";
const char * const s_markRimStyle = "symbol=circle,size=16";
const char * const s_markStyle = "symbol=circle,size=11";

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

/// Told, and as lines.
std::string tellLosses(const std::string & path, const VectorTrack & track, std::uint64_t withoutPlace) {
    const VectorTrack::Counts & counts = track.counts();
    std::string lines;
    const auto tell = [&](std::uint64_t points, const char * what) {
        if (points == 0) return;
        const std::string line = std::to_string(points) + what;
        writeError("warning: " + path + ": " + line);
        lines.append(lines.empty() ? "" : "\n").append(line);
    };
    tell(counts.withoutTime, " points have no time and are left out");
    tell(counts.withoutPlace + withoutPlace, " points have no place here and are left out");
    tell(counts.unordered, " points are not in the order of their times, and are sorted");
    return lines;
}

/// A style with a colour that has an opacity of its own.
MovingFeatures::Group groupOf(const char * color, const char * rest, double opacity) {
    char style[80];
    std::snprintf(style, sizeof style, "color=%s%02x,%s", color, unsigned(std::lround(opacity * 255.0)),
                  rest);
    return {{}, VectorStyleSheet::parse(style)};
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
        losses_.push_back(tellLosses(path, *tracks_.back(), read.withoutPlace));
        files_.push_back(path);
        looks_.emplace_back();
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

void Tracks::setLooks(const std::vector<Look> & looks) {
    for (std::size_t i = 0; i < std::min(looks.size(), looks_.size()); ++i)
        looks_[i] = looks[i];
    shownTime_.reset();
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
    DynamicLayer::Groups ways, marks;
    std::optional<VectorTrack::Position> firstMark;
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        if (!looks_[i].isShown) continue;
        VectorFeature way, mark;
        way.lines = tracks_[i]->passed(time_);
        ways.push_back(groupOf(s_wayColor, s_wayStyle, looks_[i].opacity));
        ways.back().features = {way};
        const auto place = tracks_[i]->placeAt(time_);
        if (!place) continue;
        if (!firstMark) firstMark = place->position;
        mark.points = {place->position};
        marks.push_back(groupOf(s_markRimColor, s_markRimStyle, looks_[i].opacity));
        marks.back().features = {mark};
        marks.push_back(groupOf(s_wayColor, s_markStyle, looks_[i].opacity));
        marks.back().features = {mark};
    }
    ways.insert(ways.end(), marks.begin(), marks.end());
    layer.show(DynamicLayer::Part::Tracks, std::move(ways), firstMark);
}
