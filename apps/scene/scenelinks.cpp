#include "scenelinks.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <utility>

#include "landscape/errors.h"
#include "landscape/streamedfiles.h"

#include <nbx/data/file.h>
#include <nbx/data/locator.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/externallinksolver.h>

namespace {

using NBX::StringUtils;
using ZMT::UTIL::ExternalLinkSolver;
namespace fs = std::filesystem;

bool isThere(const std::string & path) {
    std::error_code error;
    return fs::exists(path, error);
}

/// Names of the raster library, such as of a file in an archive, and URLs, are not looked for.
bool isLookedFor(const std::string & file) {
    return !file.empty() && !isUrl(file) && !file.starts_with("/vsi");
}

std::string folderOf(const std::string & path) {
    return fs::path(path).parent_path().string();
}

/// Where files are that are not where they were.
class LinkFinder {
public:
    LinkFinder(const std::string & oldFolder, const std::string & folder)
        : moved_{{fs::path(oldFolder).lexically_normal().string(), folder}} {}

    /// Empty for a file that nobody knows.
    std::string find(LinkKind kind, const std::string & path) {
        for (const auto & [from, to] : moved_)
            if (const std::string there = movedFrom(path, from, to); isThere(there)) return there;
        if (isThere(path)) return path;
        std::wstring picked = StringUtils::Utf8String2WString(path);
        if (!ExternalLinkSolver::pickFileCallback(int(kind), picked)) return "";
        const std::string chosen = NBX::File::absolutePath(StringUtils::WString2Utf8String(picked));
        if (!isThere(chosen)) return "";
        moved_.emplace_back(folderOf(path), folderOf(chosen));
        return chosen;
    }

private:
    /// As it is seen from the folder.
    static std::string movedFrom(const std::string & path, const std::string & from, const std::string & to) {
        const fs::path seen = fs::path(path).lexically_relative(from);
        return seen.empty() ? path : (fs::path(to) / seen).lexically_normal().string();
    }

    std::vector<std::pair<std::string, std::string>> moved_; ///< folders, the scene's first
};

template <class T> void eraseAt(std::vector<T> & list, std::size_t number) {
    if (number < list.size()) list.erase(list.begin() + std::ptrdiff_t(number));
}

/// A single entry of a list of looks holds for all images.
template <class T> void eraseLook(std::vector<T> & looks, std::size_t image) {
    if (looks.size() > 1) eraseAt(looks, image);
}

/// Those without a name.
void eraseEmpty(LandscapeOptions & options) {
    for (std::size_t i = options.images.size(); i-- > 0;) {
        if (!options.images[i].empty()) continue;
        eraseAt(options.images, i);
        eraseLook(options.look.bands, i);
        eraseLook(options.look.stretches, i);
        eraseLook(options.look.gammas, i);
        eraseLook(options.look.opacities, i);
    }
    for (auto * files : {&options.breakLines, &options.draped, &options.vectors, &options.cities.files,
                         &options.tracks.files})
        std::erase(*files, "");
    if (options.tracks.files.empty()) options.tracks.time.clear();
    std::erase_if(options.overlays, [](const OverlayOptions & overlay) { return overlay.file.empty(); });
}

} // namespace

void forEachLink(LandscapeOptions & options,
                 const std::function<void(LinkKind kind, std::string & file)> & each) {
    const auto all = [&each](LinkKind kind, std::vector<std::string> & files) {
        for (std::string & file : files)
            each(kind, file);
    };
    if (!options.terrain.empty()) each(LinkKind::Terrain, options.terrain);
    all(LinkKind::Image, options.images);
    all(LinkKind::Vectors, options.breakLines);
    all(LinkKind::Vectors, options.draped);
    all(LinkKind::Vectors, options.vectors);
    all(LinkKind::City, options.cities.files);
    all(LinkKind::Track, options.tracks.files);
    for (OverlayOptions & overlay : options.overlays) {
        each(LinkKind::Vectors, overlay.file);
        if (!overlay.style.empty() && isStyleFile(overlay.style)) each(LinkKind::Style, overlay.style);
    }
}

void settleLinks(LandscapeOptions & options) {
    forEachLink(options, [](LinkKind, std::string & file) {
        const NBX::Locator locator(file);
        if (!isUrl(file) && isThere(locator.text())) file = NBX::File::absolutePath(locator.text());
        file = NBX::Locator::withoutLoginsIn(file);
    });
}

std::vector<std::string> findLinks(LandscapeOptions & options, const std::string & oldFolder,
                                   const std::string & folder) {
    LinkFinder finder(oldFolder, folder);
    std::map<std::string, std::string> known; // one file may be several layers
    std::vector<std::string> missing;
    forEachLink(options, [&](LinkKind kind, std::string & file) {
        if (!isLookedFor(file)) return;
        const auto [entry, isNew] = known.try_emplace(file);
        if (isNew) entry->second = finder.find(kind, file);
        if (entry->second.empty() && kind == LinkKind::Terrain)
            throw DataError(shownName(file) + ": the terrain of the scene is not there");
        if (entry->second.empty() && isNew) missing.push_back(file);
        file = entry->second;
    });
    eraseEmpty(options);
    return missing;
}
