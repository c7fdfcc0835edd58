// Windows are the nodes of a quadtree over the extent of the source. One with few features has them all. Of
// one with many the largest features are known, as far as it was read, and the windows below it are read
// where it is seen from near: so the number of features follows the picture, whatever the size of the source.

#include "labelwindows.h"

#include <algorithm>
#include <cmath>
#include <cwctype>
#include <numeric>
#include <optional>
#include <utility>

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/vector/labelanchor.h>

namespace ZMT::CORE {

namespace {

constexpr unsigned s_deepest = 24;
constexpr double s_keepingFactor = 4.0;

using RASTER::GeoExtent;

GeoExtent quarterOf(const GeoExtent & box, unsigned quarter) {
    const double x = std::midpoint(box.minX, box.maxX), y = std::midpoint(box.minY, box.maxY);
    return {quarter % 2 == 0 ? box.minX : x, quarter < 2 ? box.minY : y, quarter % 2 == 0 ? x : box.maxX,
            quarter < 2 ? y : box.maxY};
}

/// Empty for one that shows nothing.
std::wstring shownText(const std::string & utf8) {
    std::wstring text = NBX::StringUtils::Utf8String2WString(utf8);
    const auto isInk = [](wchar_t c) {
        return !std::iswspace(std::wint_t(c)) && !std::iswcntrl(std::wint_t(c));
    };
    if (std::none_of(text.begin(), text.end(), isInk)) return {};
    if (text.size() <= ScreenLabels::maxCharacters) return text;
    text.resize(ScreenLabels::maxCharacters - 1);
    return text + L'\u2026';
}

} // namespace

bool LabelCandidate::isBefore(const LabelCandidate & a, const LabelCandidate & b) {
    if (a.layer != b.layer) return a.layer < b.layer;
    const double left = a.extent * (a.isShown ? s_keepingFactor : 1.0);
    const double right = b.extent * (b.isShown ? s_keepingFactor : 1.0);
    if (left != right) return left > right;
    if (a.isShown != b.isShown) return a.isShown;
    return a.feature < b.feature;
}

struct LabelWindows::Window {
    GeoExtent box;
    unsigned level;
    bool isRead = false, isDivided = false;
    std::uint64_t round = 0; ///< the last one in which it was in view
    std::vector<Candidate> candidates;
    std::array<std::unique_ptr<Window>, 4> parts; ///< null before they are wanted

    Window(const GeoExtent & box, unsigned level) : box(box), level(level) {}
};

LabelWindows::LabelWindows(unsigned number, ScreenLabels::Layer layer)
    : number_(number), layer_(std::move(layer)) {
    NBX_CHECK(layer_.source && layer_.labelOf, L"a layer of labels without source or function");
    if (!layer_.source || !layer_.labelOf) return;
    const std::optional<GeoExtent> extent = layer_.source->extent();
    if (extent) root_ = std::make_unique<Window>(*extent, 0);
}

LabelWindows::~LabelWindows() = default;

/// Null for a feature without a label. One that is known from another window, where less of it was read, is
/// brought to where it is larger.
LabelWindows::Candidate LabelWindows::candidateOf(const RASTER::VectorFeature & feature) {
    std::optional<ScreenLabels::Label> label = layer_.labelOf(feature);
    if (!label || label->style.isDraped()) return nullptr;
    if (!std::isfinite(label->style.size.value) || !(label->style.size.value > 0.0)) return nullptr;
    const std::optional<LabelAnchor> anchor = LabelAnchor::of(feature);
    std::wstring text = anchor ? shownText(label->text) : std::wstring();
    if (text.empty()) return nullptr;
    Candidate & known = known_[feature.id];
    if (known && !(anchor->extent > known->extent)) return known;
    if (!known) known = std::make_shared<LabelCandidate>();
    known->layer = number_;
    known->feature = feature.id;
    known->text = std::move(text);
    known->style = std::move(label->style);
    known->map = anchor->position;
    known->extent = anchor->extent;
    known->groundSeen = known->viewSeen = 0;
    return known;
}

void LabelWindows::keep(Window & window, std::vector<Candidate> & found, bool isCut) const {
    const bool hasRoom = window.box.minX < window.box.maxX || window.box.minY < window.box.maxY;
    window.isDivided = (isCut || found.size() > mostCandidates) && hasRoom && window.level < s_deepest;
    const auto isLarger = [](const Candidate & a, const Candidate & b) {
        return a->extent != b->extent ? a->extent > b->extent : a->feature < b->feature;
    };
    const std::size_t most = window.isDivided ? mostOfDivided : mostCandidates;
    if (found.size() > most) {
        std::nth_element(found.begin(), found.begin() + std::ptrdiff_t(most), found.end(), isLarger);
        found.resize(most);
        found.shrink_to_fit();
    }
    window.candidates = std::move(found);
}

void LabelWindows::read(Window & window) {
    window.isRead = true;
    ++state_;
    std::vector<Candidate> found;
    std::size_t visited = 0;
    bool isCut = false;
    try {
        layer_.source->read({window.box, 0.0, layer_.fields}, [&](const RASTER::VectorFeature & feature) {
            isCut = ++visited > mostFeatures;
            if (isCut) return false;
            if (const Candidate candidate = candidateOf(feature)) found.push_back(candidate);
            return true;
        });
    } catch (const NBX::Exception & exception) {
        ++unread_;
        if (!isFailureTold_) NBX_FAILURE(NBX::StringUtils::Utf8String2WString(exception.what()));
        isFailureTold_ = true;
    }
    keep(window, found, isCut);
    found.clear();
    std::erase_if(known_, [](const auto & entry) { return entry.second.use_count() == 1; });
}

/// Appends those of the windows that are in view.
void LabelWindows::look(const PixelsOf & pixelsOf, const std::vector<Window *> & windows,
                        std::vector<Seen> & seen) {
    for (Window * window : windows) {
        const double pixels = pixelsOf(window->box);
        if (pixels > 0.0) seen.push_back({window, pixels});
    }
}

std::vector<LabelWindows::Window *> LabelWindows::partsOf(Window & window) {
    std::vector<Window *> parts;
    parts.reserve(window.parts.size());
    for (unsigned quarter = 0; quarter < 4; ++quarter) {
        std::unique_ptr<Window> & part = window.parts[quarter];
        if (!part) part = std::make_unique<Window>(quarterOf(window.box, quarter), window.level + 1);
        parts.push_back(part.get());
    }
    return parts;
}

/// False for a window that has to wait.
bool LabelWindows::take(Window & window, unsigned & windows, std::uint64_t number, Collection & collection) {
    window.round = round_;
    if (!window.isRead) {
        if (windows == 0) {
            collection.isComplete = false;
            return false;
        }
        read(window);
        --windows;
    }
    for (const Candidate & candidate : window.candidates)
        if (std::exchange(candidate->collected, number) != number) collection.candidates.push_back(candidate);
    return true;
}

LabelWindows::Collection LabelWindows::collect(const PixelsOf & pixelsOf, unsigned & windows,
                                               std::uint64_t number) {
    Collection collection;
    ++round_;
    std::size_t count = 0;
    std::vector<Seen> level;
    if (root_ && layer_.isShown) look(pixelsOf, {root_.get()}, level);
    while (!level.empty()) {
        std::vector<Seen> next;
        for (const Seen & seen : level) {
            if (count >= ScreenLabels::maxCandidates) break;
            if (!take(*seen.window, windows, number, collection)) continue;
            if (seen.window->isDivided && seen.pixels >= leastWidth)
                look(pixelsOf, partsOf(*seen.window), next);
            else
                count += seen.window->candidates.size();
        }
        std::stable_sort(next.begin(), next.end(),
                         [](const Seen & a, const Seen & b) { return a.pixels > b.pixels; });
        level.swap(next);
    }
    if (known_.size() > mostKept) forget();
    return collection;
}

/// Lets go of windows that are out of view. What shows is kept by its picture.
void LabelWindows::forget() {
    std::vector<Window *> windows{root_.get()};
    while (!windows.empty()) {
        Window * window = windows.back();
        windows.pop_back();
        for (std::unique_ptr<Window> & part : window->parts) {
            if (part && part->round != round_) part.reset();
            if (part) windows.push_back(part.get());
        }
    }
    std::erase_if(known_, [](const auto & entry) { return entry.second.use_count() == 1; });
}

} // namespace ZMT::CORE
