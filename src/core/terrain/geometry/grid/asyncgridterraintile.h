#pragma once

#include <array>
#include <optional>
#include <string>

#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

#include "core/terrain/geometry/grid/model/blockretry.h"
#include "core/terrain/geometry/grid/model/terrainfileformat.h"
#include "core/terrain/texture/streaming/streamingtextureformat.h"

namespace ZMT::CORE::GRID {

class AsyncGridTerrainTileData;

/// What the tiles of a terrain share.
struct AsyncGridTerrainFile : NBX::SharedObj {
    NBX_CLASS(AsyncGridTerrainFile, NBX::SharedObj)
public:
    AsyncGridTerrainFile(const NBX::SO<AsyncFile> & source, const TerrainFileFormat::FileHeader & header);
    ~AsyncGridTerrainFile() override;

    const NBX::SO<AsyncFile> file;
    const TerrainFileFormat::FileHeader header;
    const NBX::Matrix4x4Base<double> grid2geo, geo2grid;
    const NBX::SO<GridTerrainTileIndexBuffer> indexBuffer;

    /// The head of the light map, once it was read.
    std::optional<StreamingTextureFormat::StreamHeader> lightMap;

    /// Seconds in which frames of the terrain were painted: pauses do not make its tiles old.
    double walkTime = 0.0;
    /// Somebody has asked for a child of the root since the last frame.
    bool isWalked = false;
};

/// A tile that has a block in the file. Until that is read, the tile knows its reference and its place alone.
///
/// Empty: neither request nor heights. Requested: a request is alive. Loaded: the heights are alive, as long
/// as the memory manager keeps them. Failed: nothing is asked for until the time to try again.
class AsyncGridTerrainTile : public GridTerrainTile {
    NBX_CLASS(AsyncGridTerrainTile, GridTerrainTile)
public:
    /// What nobody walked over for so many seconds is dropped.
    static constexpr double s_unwalked = 10.0;

    /// `limits` contains all samples of the tile, if the file is sound. Without a `parent`, the root, which
    /// keeps its heights.
    AsyncGridTerrainTile(const NBX::SO<AsyncGridTerrainFile> & terrain,
                         const NBX::SO<GridTerrainTile> & parent, const TerrainFileFormat::TilePlace & place,
                         const TileRef & ref, const TerrainFileFormat::GridBox & limits);
    ~AsyncGridTerrainTile() override;

    NBX::SO<GridTerrainTile> parent() const override;
    unsigned gridLevel() const override;
    int level() const override;
    int detailLevel() const override;
    bool hasChildren(bool loadedOnly) const override;
    NBX::SO<GridTerrainTile> child(unsigned index, bool onlyExisting) override;
    ChildIndex childIndex(const NBX::SO<GridTerrainTile> & tile) const override;
    Matrix grid2geoTf() const override;
    Matrix grid2visTf() const override;
    Matrix geo2gridTf() const override;
    Matrix vis2gridTf() const override;
    const NBX::Bounds & gridBoundingBox() const override;
    NBX::SO<GridTerrainTileData> tileData() const override;
    NBX::SO<GridTerrainTileData> requestTileData(double priority, bool blocking, bool * failed) override;
    void unloadChildren() override;
    void unloadChild(unsigned index) override;
    void unloadData() override;
    bool hasUndefValues() const override;
    NBX::SO<GridTerrainTileIndexBuffer> indexBuffer() const override;
    NBX::SO<GridTerrainTileVertexBuffer> vertexBuffer() override;

    const TileRef & tileRef() const { return ref_; }
    const NBX::SO<AsyncGridTerrainFile> & terrain() const { return terrain_; }
    /// Why the last read failed; empty when it did not.
    const std::wstring & failure() const { return failure_; }
    /// Whether that still matters: the next try has not brought the block, and somebody may want it.
    bool isStillFailing() const;
    /// When it may be tried again, by the clock of the requests.
    double retryTime() const { return retryTime_; }

    /// Notes that `request` was cancelled, or has failed.
    void requestEnded(const NBX::SO<AsyncFile::Request> & request, bool hasFailed) const;
    /// Drops the trees below that nobody walked over since the walk time `time`, those of its parts included.
    void dropUnwalked(double time);

private:
    NBX::SO<AsyncGridTerrainTileData> usedData() const;
    NBX::SO<AsyncFile::Request> ask(double priority) const;
    NBX::SO<AsyncGridTerrainTileData> take(bool blocking) const;
    NBX::SO<AsyncGridTerrainTileData> use(const NBX::SO<NBX::DataResource> & block) const;
    void failRead(const std::wstring & reason) const;
    void failBlock(const std::wstring & reason) const;
    void fail(const std::wstring & reason, double pause) const;
    void release(const NBX::SO<AsyncFile::Request> & request) const;
    NBX::SO<GridTerrainTile> newChild(unsigned index);

    NBX::SO<AsyncGridTerrainFile> terrain_;
    NBX::WO<GridTerrainTile> parent_;
    TerrainFileFormat::TilePlace place_;
    TileRef ref_;
    TerrainFileFormat::GridBox limits_;
    std::array<NBX::SO<GridTerrainTile>, 4> children_;
    std::array<double, 4> walkTimes_{}; ///< when somebody last asked for the child
    bool isRoot_;
    NBX::WO<GridTerrainTileVertexBuffer> vertexBuffer_;

    // What reading changes.
    mutable NBX::WO<AsyncFile::Request> request_;
    mutable NBX::WO<AsyncGridTerrainTileData> data_;
    mutable NBX::SO<AsyncGridTerrainTileData> kept_; ///< of the root alone
    mutable std::array<TileRef, 4> childRefs_{};
    mutable TerrainFileFormat::GridBox box_{};
    mutable NBX::Bounds bounds_;
    mutable int undefFlag_ = -1; ///< -1 unknown, else 0 or 1
    mutable BlockRetry retry_;
    mutable double retryTime_ = 0.0;
    mutable std::wstring failure_;
};

} // namespace ZMT::CORE::GRID
