#include <zmt/core/vector/trackplayer.h>

#include <algorithm>
#include <cmath>

#include <nbx/engine/clock.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(TrackPlayer, NBX::Manager)

namespace {

using Span = VectorTrack::Span;

double lengthOf(const std::vector<Span> & spans) {
    double length = 0.0;
    for (const Span & span : spans)
        length += span.end - span.begin;
    return length;
}

} // namespace

TrackPlayer::TrackPlayer(const NBX::SO<const VectorTrack> & track, NBX::Clock * clock)
    : NBX::Manager(clock), track_(track) {
    NBX_CHECK(track, L"no track");
    if (!track_) track_ = new VectorTrack({});
    time_ = track_->start();
}

void TrackPlayer::play() {
    if (isPlaying_ || track_->isEmpty()) return;
    if (time_ >= track_->end()) time_ = track_->start();
    isPlaying_ = true;
    lastTick_ = clock()->now();
    activate();
    notify();
}

void TrackPlayer::pause() {
    if (!isPlaying_) return;
    // The clock may be the last one to hold it.
    const NBX::SO<TrackPlayer> held(this);
    isPlaying_ = false;
    deactivate();
    notify();
}

void TrackPlayer::setSpeed(double speed) {
    const bool isSpeed = std::isfinite(speed) && speed > 0.0;
    NBX_CHECK(isSpeed, L"invalid speed of a track: " << speed);
    if (isSpeed) speed_ = speed;
}

void TrackPlayer::seek(double time) {
    NBX_CHECK(!std::isnan(time), L"no time of a track");
    if (std::isnan(time)) return;
    time_ = std::clamp(time, track_->start(), track_->end());
    notify();
}

void TrackPlayer::tick(const NBX::NBXTime & now) {
    if (!isPlaying_) return;
    const double seconds = std::max(0.0, now - lastTick_);
    lastTick_ = now;
    time_ = advanced(seconds * speed_);
    if (time_ >= track_->end() && !repeats())
        pause();
    else
        notify();
}

NBX::NBXTime TrackPlayer::nextTick(const NBX::NBXTime & lastTick) const {
    return isPlaying_ ? NBX::Manager::nextTick(lastTick) : NBX::Clock::never();
}

/// Single points take no time, so that nothing but them would be repeated without end.
bool TrackPlayer::repeats() const {
    return isLooping_ && lengthOf(track_->spans()) > 0.0;
}

/// The time after so many seconds of the track, of which gaps take none.
double TrackPlayer::advanced(double seconds) const {
    const std::vector<Span> & spans = track_->spans();
    const double length = lengthOf(spans);
    const bool repeats = this->repeats();
    if (!repeats && !(seconds < length)) return track_->end();
    if (repeats) seconds = std::isfinite(seconds) ? std::fmod(seconds, length) : 0.0;
    auto span = std::find_if(spans.begin(), spans.end(), [this](const Span & s) { return s.end > time_; });
    double time = time_;
    for (;;) {
        if (span == spans.end()) {
            if (!repeats) return track_->end();
            span = spans.begin();
            time = span->begin;
        }
        time = std::max(time, span->begin);
        if (seconds < span->end - time) return time + seconds;
        seconds -= span->end - time;
        ++span;
    }
}

void TrackPlayer::notify() const {
    // It may be replaced while it is called.
    const std::function<void()> observer = observer_;
    if (observer) observer();
}

} // namespace ZMT::CORE
