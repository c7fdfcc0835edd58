#include "readfailures.h"

#include "errors.h"
#include "streamedfiles.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include <nbx/data/locator.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

namespace {

using NBX::StringUtils;

/// Servers answer in several lines, of which the first says it.
std::string firstLine(const std::wstring & text) {
    const std::string all = NBX::Locator::shownIn(StringUtils::WString2Utf8String(text));
    return all.substr(0, all.find_first_of("\r\n"));
}

template <class Failure>
void append(std::vector<ReadFailure> & result, const std::vector<Failure> & failures) {
    for (const Failure & failure : failures)
        result.push_back({shownName(StringUtils::WString2Utf8String(failure.url)), failure.offset,
                          failure.size, firstLine(failure.reason), failure.secondsToRetry});
}

} // namespace

std::vector<ReadFailure> readFailures() {
    std::vector<ReadFailure> result;
    append(result, ZMT::CORE::GRID::AsyncGridTerrain::readFailures());
    append(result, ZMT::CORE::AsyncQuadtreeTerrainTexture::readFailures());
    for (const auto & failure : ZMT::CORE::TTTMemoryController::getInstance()->failures())
        result.push_back({shownName(StringUtils::WString2Utf8String(failure.file)), failure.offset,
                          failure.bytes, firstLine(failure.reason), failure.retrySeconds, true});
    std::sort(result.begin(), result.end(), [](const ReadFailure & a, const ReadFailure & b) {
        return std::tie(a.file, a.offset) < std::tie(b.file, b.offset);
    });
    return result;
}

std::string summaryOf(const std::vector<ReadFailure> & failures) {
    if (failures.empty()) return {};
    auto soonest = failures.end();
    for (auto at = failures.begin(); at != failures.end(); ++at)
        if (!at->waitsForRequest() &&
            (soonest == failures.end() || at->secondsToRetry < soonest->secondsToRetry))
            soonest = at;
    const std::string count = failures.size() == 1
                                  ? "1 part cannot be read"
                                  : std::to_string(failures.size()) + " parts cannot be read";
    const std::string retry =
        soonest == failures.end() ? "tried again on request"
        : soonest->secondsToRetry > 0.0
            ? "next try in " + std::to_string(std::lround(std::ceil(soonest->secondsToRetry))) + " s"
            : "tried again now";
    return count + ": " + failures.front().reason + "; " + retry;
}

void giveUpPicture(unsigned missingTiles, const std::string & terrain, bool allowsIncomplete) {
    const auto failures = readFailures();
    std::string text = failures.empty() ? shownName(terrain) + ": nothing more arrives"
                                        : failures.front().file + ": " + failures.front().reason;
    text += missingTiles == 0 ? "; the picture is not complete"
            : missingTiles == 1
                ? "; 1 tile that the picture needs is missing"
                : "; " + std::to_string(missingTiles) + " tiles that the picture needs are missing";
    if (!allowsIncomplete) throw DataError(text + "; try again later, or give --allow-incomplete");
    writeError("warning: " + text);
}
