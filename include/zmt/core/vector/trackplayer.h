#pragma once

#include <functional>

#include <nbx/engine/manager.h>
#include <nbx/object/classpattern.h>
#include <nbx/object/so.h>
#include <zmt/core/vector/vectortrack.h>

namespace ZMT::CORE {

/// Lets the time of a track go on with its clock, which calls it while it plays. Gaps are skipped.
class TrackPlayer : public NBX::Manager {
    NBX_CLASS(TrackPlayer, NBX::Manager)
public:
    /// At the start of the track, and paused. A null track is reported, and an empty one stands in. Null is
    /// the clock of the process.
    explicit TrackPlayer(const NBX::SO<const VectorTrack> & track, NBX::Clock * clock = nullptr);

    const NBX::SO<const VectorTrack> & track() const { return track_; }

    /// Goes on from where it is, from the start at the end. Nothing happens on an empty track.
    void play();
    void pause();
    bool isPlaying() const { return isPlaying_; }

    /// Seconds of the track in one second, 1 at first. What is not finite and above 0 is reported, and
    /// ignored.
    void setSpeed(double speed);
    double speed() const { return speed_; }
    /// Whether it begins again at the end, in the place of pausing there, as at first.
    void setLooping(bool isLooping) { isLooping_ = isLooping; }
    bool isLooping() const { return isLooping_; }

    /// A time of the track. It may lie in a gap after `seek`.
    double time() const { return time_; }
    /// A time before the start is the start, one behind the end the end; one that is not a number is
    /// reported, and ignored.
    void seek(double time);
    std::optional<VectorTrack::Place> place() const { return track_->placeAt(time_); }

    /// Called whenever the time, or whether it plays, has changed; may call the player.
    void setObserver(std::function<void()> observer) { observer_ = std::move(observer); }

    void tick(const NBX::NBXTime & now) override;
    NBX::NBXTime nextTick(const NBX::NBXTime & lastTick) const override;

private:
    bool repeats() const;
    double advanced(double seconds) const;
    void notify() const;

    NBX::SO<const VectorTrack> track_;
    std::function<void()> observer_;
    double time_, speed_ = 1.0;
    double lastTick_ = 0.0; ///< of the clock; means something while it plays
    bool isPlaying_ = false, isLooping_ = false;
};

} // namespace ZMT::CORE
