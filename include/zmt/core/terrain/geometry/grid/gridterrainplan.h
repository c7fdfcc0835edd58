#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/gridterraincreation.h>
#include <zmt/raster/rasterband.h>

namespace ZMT::CORE::GRID {

struct TerrainPlanFile;

/// A terrain that is written in parts, by as many processes as there are, on one machine or on several. First
/// a plan is written, which reads the raster once. Then each process writes a part by it, in any order and
/// side by side. Last the parts are joined: the file has the very bytes that `GridTerrainCreation` writes.
///
/// What fails throws `NBX::Exception`, for the most part `NBX::InputException`, with a line that says which
/// file is meant and what to do. All files are written aside and have their names when they are complete.
/// Each call belongs to the thread that makes it, which shows the progress.
class GridTerrainPlan {
public:
    /// Where the heights come from. A plan keeps it for those who write the parts.
    struct Origin {
        std::vector<std::string> rasters; ///< names that all who write parts understand
        std::string oldTerrain;           ///< empty without one
        /// Tells what has these names now from what will replace it, such as by sizes and times of files.
        /// It may be empty: some cells are compared as well.
        std::function<std::string()> stamp;
        std::string system{}; ///< WKT that the rasters were laid in; empty: their own choice
    };
    /// Who has a share: `part` of `parts`, from 1 on.
    struct Share {
        unsigned part = 1, parts = 1;
    };

    /// Reads the raster, and writes the plan to `path`. False when the user cancelled.
    static bool write(const std::string & path, const GridTerrainCreation & how,
                      const NBX::SO<RASTER::RasterBand> & band, const Origin & origin);

    /// What a file is, as far as its first bytes tell.
    enum Kind { K_Neither, K_Plan, K_Part };
    static Kind kindOf(const std::string & path);

    /// What a part says of itself.
    struct Part {
        Share share;
        std::uint64_t plan = 0; ///< `id` of the plan by which it was written
    };
    static Part describePart(const std::string & path);

    /// Reads all but the heights.
    explicit GridTerrainPlan(const std::string & path);
    ~GridTerrainPlan();
    GridTerrainPlan(const GridTerrainPlan &) = delete;
    GridTerrainPlan & operator=(const GridTerrainPlan &) = delete;

    const std::vector<std::string> & rasters() const;
    const std::string & oldTerrain() const;
    const std::string & system() const;
    /// A number that no other plan has.
    std::uint64_t id() const;
    /// Cells along a side of a tile are 2^level; so many levels of tiles lie above each other.
    unsigned level() const;
    unsigned levels() const;
    /// WKT of what the terrain will lie in; empty where that is not known.
    const std::string & wkt() const;

    /// Writes a part to `path`, with so many threads; 0 stands for one for each core. `band` and `oldTerrain`
    /// are those of which the plan was made, and so is `stamp`, which is asked before and behind; it throws
    /// where they are not. A share may have nothing to do. False when the user cancelled.
    bool writePart(const std::string & path, const Share & share, const NBX::SO<RASTER::RasterBand> & band,
                   const NBX::SO<GridTerrain> & oldTerrain, const std::function<std::string()> & stamp,
                   unsigned threads) const;

    /// Writes the terrain `path` of all its parts, in any order, with light map and coordinate system. Needs
    /// neither the raster nor an old terrain. False when the user cancelled.
    bool join(const std::vector<std::string> & parts, const std::string & path, unsigned threads) const;

private:
    std::string path_;
    std::unique_ptr<const TerrainPlanFile> plan_;
};

} // namespace ZMT::CORE::GRID
