#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <nbx/object/so.h>
#include <nbx/text/textshape.h>
#include <zmt/core/vector/screenlabels.h>
#include <zmt/raster/geoextent.h>

namespace ZMT::CORE {

/// A feature that has a name, and what is known of its place and its label.
struct LabelCandidate {
    using Point = ScreenLabels::Point;

    unsigned layer = 0;
    std::int64_t feature = 0;
    Point map; ///< the anchor, in geo coordinates
    double extent = 0.0;
    std::wstring text;
    VectorStyle::Label style;

    Point place;                     ///< on the ground, in the scene; its height is not finite without ground
    std::uint64_t groundSeen = 0;    ///< the state of the ground at which `place` was found; 0 for none
    NBX::SO<NBX::TextShape> shape;   ///< null before it is laid out
    ScreenLabels::Rectangle outline; ///< of the label about its anchor, with the halo; empty without ink
    std::uint64_t viewSeen = 0;      ///< the last view in which it was looked for ridges; 0 for none
    bool isHidden = false;           ///< in that view
    bool isShown = false;            ///< in the last picture
    std::uint64_t collected = 0;     ///< the last list in which it stands

    /// What comes first in the order of importance: layer, then size. Features that show count four times.
    static bool isBefore(const LabelCandidate & a, const LabelCandidate & b);
};

/// The features of a layer that have names, read by windows: a square of the map each, which is divided into
/// four where it has too many.
class LabelWindows {
public:
    using Candidate = std::shared_ptr<LabelCandidate>;

    LabelWindows(unsigned number, ScreenLabels::Layer layer);
    ~LabelWindows();

    ScreenLabels::Layer & layer() { return layer_; }
    const ScreenLabels::Layer & layer() const { return layer_; }

    /// How many pixels a window is wide in the picture; 0 for one that is out of view.
    using PixelsOf = std::function<double(const RASTER::GeoExtent &)>;
    struct Collection {
        std::vector<Candidate> candidates; ///< each once
        bool isComplete = true;            ///< nothing that is in view waits to be read
    };
    /// What is to be looked at, coarse windows first. Reads `windows` at most, and takes those from that
    /// number. `number` differs from call to call, and is not 0.
    Collection collect(const PixelsOf & pixelsOf, unsigned & windows, std::uint64_t number);
    /// Differs once `collect` may give other candidates than those of the call before.
    std::uint64_t state() const { return state_; }
    /// Windows that could not be read.
    std::uint64_t unread() const { return unread_; }

    /// Features that are kept.
    std::size_t size() const { return known_.size(); }

    /// Of a window; with more features that have names, the most important ones are kept, and it is divided.
    static constexpr std::size_t mostCandidates = 2000, mostOfDivided = 500;
    /// A window is read no further.
    static constexpr std::size_t mostFeatures = 20'000;
    /// What is kept of windows that are out of view.
    static constexpr std::size_t mostKept = 25'000;
    /// Of windows that are divided, in pixels.
    static constexpr double leastWidth = 256.0;

private:
    struct Window;
    struct Seen {
        Window * window;
        double pixels;
    };

    static void look(const PixelsOf & pixelsOf, const std::vector<Window *> & windows,
                     std::vector<Seen> & seen);
    static std::vector<Window *> partsOf(Window & window);
    bool take(Window & window, unsigned & windows, std::uint64_t number, Collection & collection);
    void read(Window & window);
    Candidate candidateOf(const RASTER::VectorFeature & feature);
    void keep(Window & window, std::vector<Candidate> & found, bool isCut) const;
    void forget();

    const unsigned number_;
    ScreenLabels::Layer layer_;
    std::unique_ptr<Window> root_; ///< null where nothing lies
    std::unordered_map<std::int64_t, Candidate> known_;
    std::uint64_t state_ = 0, unread_ = 0, round_ = 0;
    bool isFailureTold_ = false;
};

} // namespace ZMT::CORE
