#include "overlayoptions.h"

#include <cstdint>

#include "errors.h"
#include "streamedfiles.h"

#include <nbx/data/file.h>

namespace {

constexpr std::uint64_t s_largestStyleFile = 1 << 20;

} // namespace

OverlayOptions parseOverlay(const std::string & text) {
    const std::size_t comma = text.rfind(',');
    const bool isName = comma == std::string::npos || (!isUrl(text) && NBX::File::exists(text));
    const OverlayOptions overlay = isName ? OverlayOptions{text, "", ""}
                                          : OverlayOptions{text.substr(0, comma), text.substr(comma + 1), ""};
    if (overlay.file.empty() || (!isName && overlay.layer.empty()))
        throw UsageError("--overlay must be FILE, URL, or one of these with a layer: FILE,LAYER: " + text);
    return overlay;
}

void OverlayList::addFile(const std::string & text) {
    overlays_.push_back(parseOverlay(text));
}

void OverlayList::addStyle(const std::string & text) {
    if (overlays_.empty())
        throw UsageError("--style belongs to the --overlay before it; give that first: " + text);
    OverlayOptions & overlay = overlays_.back();
    if (!overlay.style.empty())
        throw UsageError("--style is given twice for " + shownName(overlay.file) +
                         "; put rules into one style file: " + text);
    if (text.empty())
        throw UsageError("--style must be a style file, or a specification such as color=#d04030,width=2");
    overlay.style = text;
}

bool isStyleFile(const std::string & style) {
    return style.find('=') == std::string::npos || NBX::File::isFile(style);
}

std::string readStyle(const std::string & style) {
    if (!isStyleFile(style)) return style;
    NBX::File::checkReadable(style);
    const std::vector<std::uint8_t> bytes = NBX::File::contents(style, s_largestStyleFile + 1);
    if (bytes.size() > s_largestStyleFile)
        throw DataError(style +
                        ": is too large for a style file; give one of lines such as default: color=#d04030");
    return {bytes.begin(), bytes.end()};
}
