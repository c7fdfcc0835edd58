#include "flood.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "errors.h"

#include <nbx/object/exception.h>
#include <zmt/core/vector/floodarea.h>
#include <zmt/core/vector/vectorstylesheet.h>

namespace {

using ZMT::CORE::VectorStyleSheet;

[[noreturn]] void refuse(const std::string & text, const std::string & why) {
    throw UsageError("--flood must be HEIGHT or HEIGHT,COLOR" + why + ": " + text);
}

} // namespace

FloodOptions parseFlood(const std::string & text) {
    const std::size_t comma = std::min(text.find(','), text.size());
    FloodOptions options{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + comma, options.height);
    if (error != std::errc() || end != text.data() + comma || !std::isfinite(options.height))
        refuse(text, "");
    if (comma == text.size()) return options;
    const std::string color = text.substr(comma + 1);
    if (color.find_first_of(",=") != std::string::npos) refuse(text, "");
    try {
        const auto style = VectorStyleSheet::parse("fill=" + color).styleOf(0, VectorStyleSheet::Kind::Area);
        if (!style.fill) refuse(text, "");
        options.color = *style.fill;
    } catch (const NBX::Exception & problem) {
        refuse(text, std::string("; ") + problem.what());
    }
    return options;
}

Flood::Flood(const std::optional<FloodOptions> & options, const ZMT::CORE::GridData & grid)
    : isOn_(options.has_value()), grid_(&grid), lowest_(grid.boundingBox().getLLF().y + grid.origin().y),
      highest_(grid.boundingBox().getURB().y + grid.origin().y) {
    options_.height = lowest_;
    if (options) options_ = *options;
}

std::optional<FloodOptions> Flood::options() const {
    return isOn_ ? std::optional(options_) : std::nullopt;
}

void Flood::showOn(DynamicLayer & layer) {
    const auto wanted = isOn_ && grid_ ? std::optional(options_) : std::nullopt;
    if (wanted == shown_) return;
    if (!wanted)
        corners_.clear();
    else if (!shown_ || shown_->height != wanted->height)
        corners_ = ZMT::CORE::FloodArea::below(*grid_, wanted->height);
    shown_ = wanted;
    layer.show(DynamicLayer::Part::Flood, corners_, options_.color);
}
