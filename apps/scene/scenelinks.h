#pragma once

#include <functional>
#include <string>
#include <vector>

#include "landscape/landscapeoptions.h"

// The files that a scene is made of, which may have moved since it was stored.

/// What a link leads to, for the application's `ExternalLinkSolver`; the library itself asks for 0.
enum class LinkKind { Terrain = 1, Image, Vectors, City, Style, Track };

/// Calls `each` for all files and URLs that `options` name.
void forEachLink(LandscapeOptions & options,
                 const std::function<void(LinkKind kind, std::string & file)> & each);

/// Makes paths of files that are there absolute, and takes logins out of URLs: as links are stored.
void settleLinks(LandscapeOptions & options);

/// Finds the files of a scene that lay in `oldFolder` when it was stored, and lies in `folder` now: where the
/// scene's own folder has them as before, else where they were, else beside others that have moved, else
/// where `ExternalLinkSolver` says. URLs stay. What nobody knows is taken out of `options`, and is the
/// result; for a terrain that throws `DataError`.
std::vector<std::string> findLinks(LandscapeOptions & options, const std::string & oldFolder,
                                   const std::string & folder);
