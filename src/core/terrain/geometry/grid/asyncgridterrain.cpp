// The tiles share what they need of the file, but not the root: so no circle of references keeps a terrain
// alive.

#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <set>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/file.h>
#include <nbx/data/locator.h>
#include <nbx/object/callback.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/misc/externallinksolver.h>
#include <zmt/core/terrain/geometry/grid/gridterraincreation.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintileindexbuffer.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/raster/gdal/projectionfile.h>

#include "asyncgridterrainrequests.h"
#include "asyncgridterraintile.h"
#include "nbx/object/heldreports.h"

namespace ZMT::CORE::GRID {

NBX_STORED_CLASS_IMPL(AsyncGridTerrain, GridTerrain)

using TerrainFileFormat::FileHeader;

namespace {

/// Copies go on in pieces of this many bytes.
constexpr std::uint64_t s_copiedAtOnce = 0xa00000;
/// No coordinate system takes more bytes.
constexpr std::uint64_t s_largestProjection = 1U << 20U;
/// Trees are searched for what nobody walks over every so many seconds.
constexpr double s_sweepInterval = 1.0;
/// Frames that are further apart are those of a picture that stood still.
constexpr double s_longestFrame = 1.0;

std::string utf8(const std::wstring & text) {
    return NBX::StringUtils::WString2Utf8String(text);
}

std::wstring wide(const std::string & text) {
    return NBX::StringUtils::Utf8String2WString(text);
}

bool isUrl(const std::wstring & name) {
    return !NBX::Locator(utf8(name)).isFile();
}

/// Gives the bytes of the whole file to `sink`, piece by piece.
template <class Sink> void copyAll(AsyncFile & file, Sink && sink) {
    for (std::uint64_t done = 0; done < file.size();) {
        std::wstring problem;
        const std::uint64_t size = std::min(s_copiedAtOnce, file.size() - done);
        const NBX::SO<NBX::DataResource> piece = file.readNow(done, size, &problem);
        if (!piece) throw NBX::IOError(L"terrain could not be read: " + problem, file.url());
        sink(*piece);
        done += size;
    }
}

bool readHeader(AsyncFile & file, FileHeader & header, std::wstring & problem) {
    problem = L"is no streaming terrain, or was cut off; get it anew";
    if (!file.isOpen() || file.size() < sizeof header) return false;
    const NBX::SO<NBX::DataResource> bytes = file.readNow(0, sizeof header, &problem);
    if (!bytes) return false;
    std::memcpy(static_cast<void *>(&header), bytes->pointer(), sizeof header);
    return header.isSound(file.size());
}

/// Whether a server answers that nothing is there, or nothing in it, or does not say: some forbid all that
/// they do not have.
bool saysNothingIsThere(const std::wstring & problem) {
    // What was answered then was the answer to another question.
    if (problem.find(L"is asked again in") != std::wstring::npos) return false;
    for (const wchar_t * status : {L"403", L"404", L"410", L"416"})
        if (problem.find(std::wstring(L"answered ") + status) != std::wstring::npos) return true;
    return false;
}

/// What stands beside a file on a web server; empty where there is nothing, which is usual, and, reported,
/// where it could not be read.
std::string fetchedProjection(const std::wstring & url) {
    const std::size_t end = std::min(url.find_first_of(L"?#"), url.size());
    const std::string name = NBX::File::replaceExtensionName(utf8(url.substr(0, end)), "prj");
    std::wstring problem, advice = L"try again";
    NBX::SO<NBX::DataResource> bytes;
    {
        std::vector<NBX::ErrorReport> unheard;
        const NBX::HeldReports held(unheard);
        const NBX::SO<AsyncFile> file = AsyncFile::create(wide(name) + url.substr(end), false, &problem);
        if (file && file->size() > s_largestProjection) {
            problem = L"is too large for one";
            advice = L"put the one there that was built with the terrain";
        } else if (file) {
            bytes = file->readNow(0, file->size(), &problem);
        }
    }
    if (bytes) return {static_cast<const char *>(bytes->pointer()), bytes->size()};
    if (!saysNothingIsThere(problem))
        NBX_REPORT(2, L"projection",
                   L"the coordinate system beside the terrain cannot be read, and counts as none: "
                       << problem << L": " << wide(name) << L"; " << advice);
    return {};
}

/// Where the file of a scene lies now; empty when nobody knows.
std::wstring found(const std::wstring & name) {
    const std::string path = utf8(name);
    if (isUrl(name) || NBX::File::exists(path)) return name;
    const std::string folder = NBX::File::currentWorkingDir(-1);
    // The name may hold characters that match others.
    const std::string wanted = NBX::File::fileName(path);
    const std::vector<std::string> entries = NBX::File::matchingEntries(folder, wanted);
    if (std::find(entries.begin(), entries.end(), wanted) != entries.end())
        return wide(NBX::File::absolutePath(wanted, folder));
    std::wstring picked = name;
    return UTIL::ExternalLinkSolver::pickFileCallback(0, picked) ? picked : std::wstring();
}

} // namespace

struct AsyncGridTerrain::Impl : NBX::SharedObj {
    NBX_TEMPLATE_CLASS(Impl, NBX::SharedObj)
public:
    Impl(const NBX::SO<AsyncGridTerrainFile> & terrainFile, const NBX::SO<AsyncGridTerrainTile> & root,
         bool temporary)
        : terrain(terrainFile), rootTile(root), gridBounds(terrain->header.gridBounds()),
          geoBounds(gridBounds.transform(terrain->grid2geo)), isTemporary(temporary) {
        all().insert(this);
    }
    ~Impl() override {
        all().erase(this);
        rootTile->unloadChildren();
    }

    /// Those that live.
    static std::set<Impl *> & all() {
        static std::set<Impl *> & instance = *new std::set<Impl *>;
        return instance;
    }

    /// Keeps the root, and lets go of what nobody walks over.
    void beginFrame(double now) {
        rootTile->tileData();
        const double passed = std::clamp(now - lastFrame, 0.0, s_longestFrame);
        lastFrame = now;
        if (!terrain->isWalked) return;
        terrain->isWalked = false;
        terrain->walkTime += passed;
        if (terrain->walkTime < lastSweep + s_sweepInterval) return;
        lastSweep = terrain->walkTime;
        rootTile->dropUnwalked(terrain->walkTime - AsyncGridTerrainTile::s_unwalked);
    }
    bool isEmbedded() const { return isTemporary || terrain->file->url().empty(); }

    const NBX::SO<AsyncGridTerrainFile> terrain;
    const NBX::SO<AsyncGridTerrainTile> rootTile;
    const NBX::Bounds gridBounds, geoBounds;
    const bool isTemporary; ///< the file goes with the terrain, and so is embedded where that is stored
    double lastFrame = 0.0, lastSweep = 0.0;
};

AsyncGridTerrain::AsyncGridTerrain() = default;
AsyncGridTerrain::~AsyncGridTerrain() = default;

NBX::SO<AsyncGridTerrain> AsyncGridTerrain::load(const std::wstring & path, bool deleteWhenClosed,
                                                 std::wstring * problem) {
    const NBX::SO<AsyncFile> file = AsyncFile::create(path, deleteWhenClosed, problem);
    return file ? load(file, deleteWhenClosed, problem) : nullptr;
}

NBX::SO<AsyncGridTerrain> AsyncGridTerrain::load(const NBX::SO<AsyncFile> & file, bool isTemporary,
                                                 std::wstring * problem) {
    NBX_CHECK(file, L"no file");
    if (!file) return nullptr;
    FileHeader header;
    std::wstring text;
    if (!readHeader(*file, header, text)) {
        if (problem) *problem = text;
        return nullptr;
    }
    const NBX::SO<AsyncGridTerrainFile> terrain(new AsyncGridTerrainFile(file, header));
    const TerrainFileFormat::GridBox limits{{0, 0, 1},
                                            {header.sizeX, header.sizeY, TerrainFileFormat::maxHeight}};
    const NBX::SO<AsyncGridTerrainTile> root(new AsyncGridTerrainTile(
        terrain, nullptr, {header.tileLevel, header.treeDepth, 0, 0}, header.root, limits));
    if (!root->requestTileData(AsyncFile::topPriority, true, nullptr)) {
        if (problem) *problem = L"the first tile cannot be read: " + root->failure();
        return nullptr;
    }
    const NBX::SO<AsyncGridTerrain> result(new AsyncGridTerrain);
    result->impl_ = new Impl(terrain, root, isTemporary);
    return result;
}

bool AsyncGridTerrain::create(const std::wstring & path, const NBX::SO<GridTerrain> & oldTerrain,
                              const NBX::SO<RASTER::RasterBand> & band, unsigned level, bool createShading,
                              bool storesNormals, double ambientLight, const Point & lightDirection) {
    GridTerrainCreation creation;
    creation.oldTerrain = oldTerrain;
    creation.level = level;
    creation.createShading = createShading;
    creation.storesNormals = storesNormals;
    creation.ambientLight = ambientLight;
    creation.lightDirection = lightDirection;
    return creation.run(path, band);
}

NBX::SO<AsyncGridTerrain> AsyncGridTerrain::createAndLoadTemp(const NBX::SO<GridTerrain> & oldTerrain,
                                                              const NBX::SO<RASTER::RasterBand> & band,
                                                              unsigned level, bool createShading,
                                                              bool storesNormals, double ambientLight,
                                                              const Point & lightDirection) {
    const std::string path = NBX::File::temporaryFileName("terrain-");
    NBX::SO<AsyncGridTerrain> result;
    if (create(wide(path), oldTerrain, band, level, createShading, storesNormals, ambientLight,
               lightDirection))
        result = load(wide(path), true);
    if (!result) NBX::File::remove(path);
    return result;
}

void AsyncGridTerrain::beginFrame(const TerrainPainterFrameManager::Info &) {
    AsyncGridTerrainRequests::instance().beginFrame();
    const double now = AsyncGridTerrainRequests::now();
    for (Impl * impl : Impl::all())
        impl->beginFrame(now);
}

void AsyncGridTerrain::endFrame(const TerrainPainterFrameManager::Info &) {}

std::vector<AsyncGridTerrain::ReadFailure> AsyncGridTerrain::readFailures() {
    std::vector<ReadFailure> result;
    const double now = AsyncGridTerrainRequests::now();
    for (const AsyncGridTerrainTile * tile : AsyncGridTerrainRequests::instance().failed())
        if (tile->isStillFailing())
            result.push_back({tile->terrain()->file->url(), tile->tileRef().offset,
                              tile->tileRef().storedSize, tile->failure(),
                              std::max(0.0, tile->retryTime() - now)});
    return result;
}

std::wstring AsyncGridTerrain::fileName() const {
    return impl_ ? impl_->terrain->file->url() : std::wstring();
}

NBX::SO<AsyncFile> AsyncGridTerrain::file() const {
    return impl_ ? impl_->terrain->file : nullptr;
}

bool AsyncGridTerrain::serializable() const {
    return impl_ && (!impl_->isEmbedded() || impl_->terrain->file->size() <= maxEmbeddedBytes);
}

std::string AsyncGridTerrain::wkt() const {
    const std::wstring name = fileName();
    if (name.empty()) return {};
    return isUrl(name) ? fetchedProjection(name) : RASTER::ProjectionFile::read(utf8(name)).wkt;
}

bool AsyncGridTerrain::extract(const std::wstring & path) const {
    NBX_CHECK(impl_, L"no impl");
    if (!impl_) return false;
    try {
        NBX::AtomicFileWriter writer(utf8(path));
        copyAll(*impl_->terrain->file,
                [&writer](const NBX::DataResource & piece) { writer.write(piece.pointer(), piece.size()); });
        RASTER::ProjectionFile(utf8(path), wkt()).commitWith([&writer] { writer.commit(); });
        return true;
    } catch (const NBX::Exception & e) {
        NBX_FAILURE(L"cannot extract the terrain: " << wide(e.what()));
        return false;
    }
}

namespace {

/// The first sample of `data` that none `isBetter` than, in grid space.
template <class IsBetter>
NBX::Vector3Base<double> bestSample(const GridTerrainTileData & data, IsBetter isBetter) {
    std::uint16_t best = 0;
    unsigned bestX = 0, bestY = 0;
    for (unsigned y = 0; y < data.cells(); ++y)
        for (unsigned x = 0; x < data.cells(); ++x) {
            const std::uint16_t value = data.value(x, y);
            if (value == 0 || (best != 0 && !isBetter(value, best))) continue;
            best = value;
            bestX = x;
            bestY = y;
        }
    const double step = data.step();
    return {(data.tileX() + bestX) * step, (data.tileY() + bestY) * step, double(best)};
}

/// `p` in geo coordinates; at negative infinity where its height is none.
NBX::Vector3Base<double> geoPoint(const AsyncGridTerrainFile & terrain, const NBX::Vector3Base<double> & p) {
    NBX::Vector3Base<double> result = terrain.grid2geo * p;
    if (p.z == 0.0) result.y = -std::numeric_limits<double>::infinity();
    return result;
}

} // namespace

AsyncGridTerrain::Point AsyncGridTerrain::lowestPoint() const {
    const NBX::SO<GridTerrainTileData> data = impl_ ? impl_->rootTile->tileData() : nullptr;
    if (!data) return {0.0, -std::numeric_limits<double>::infinity(), 0.0};
    return geoPoint(*impl_->terrain, bestSample(*data, std::less<>()));
}

AsyncGridTerrain::Point AsyncGridTerrain::highestPoint() const {
    const NBX::SO<GridTerrainTileData> data = impl_ ? impl_->rootTile->tileData() : nullptr;
    if (!data) return {0.0, -std::numeric_limits<double>::infinity(), 0.0};
    return geoPoint(*impl_->terrain, bestSample(*data, std::greater<>()));
}

unsigned AsyncGridTerrain::gridLevel() const {
    return impl_ ? impl_->terrain->header.tileLevel : 0;
}

NBX::SO<GridTerrainTile> AsyncGridTerrain::rootTile() const {
    return impl_ ? impl_->rootTile : nullptr;
}

const GridTerrain::Matrix & AsyncGridTerrain::grid2geoTf() const {
    static const Matrix identity;
    return impl_ ? impl_->terrain->grid2geo : identity;
}

const GridTerrain::Matrix & AsyncGridTerrain::geo2gridTf() const {
    static const Matrix identity;
    return impl_ ? impl_->terrain->geo2grid : identity;
}

const NBX::Bounds & AsyncGridTerrain::gridBoundingBox() const {
    static const NBX::Bounds undefined;
    return impl_ ? impl_->gridBounds : undefined;
}

const NBX::Bounds & AsyncGridTerrain::geoBoundingBox() const {
    static const NBX::Bounds undefined;
    return impl_ ? impl_->geoBounds : undefined;
}

void AsyncGridTerrain::preRender(NBX::EngineGL * engine, bool colors) const {
    if (!impl_) return;
    impl_->terrain->indexBuffer->bind(engine);
    GridTerrainTileVertexBuffer::enable(colors);
}

void AsyncGridTerrain::postRender(NBX::EngineGL * engine, bool colors) const {
    if (!impl_) return;
    GridTerrainTileVertexBuffer::disable(colors);
    impl_->terrain->indexBuffer->unbind(engine);
}

NBX::SO<AsyncGridTerrainFile> AsyncGridTerrain::terrainFile() const {
    return impl_ ? impl_->terrain : nullptr;
}

void AsyncGridTerrain::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<GridTerrain>(m, this);
    if (m.isReading())
        restore(m);
    else
        store(m);
}

void AsyncGridTerrain::store(NBX::SerializationManager & m) {
    if (!impl_) {
        NBX_REPORT(0, L"m_impl != 0", L"no impl");
        return;
    }
    std::wstring url = fileName();
    if (!impl_->isEmbedded()) return NBX::attributeWithDefault(m, "url", url, L"");
    std::uint64_t size = impl_->terrain->file->size();
    if (size > maxEmbeddedBytes) throw NBX::IOError(L"terrain is too big to embed", url);
    std::vector<std::uint8_t> bytes;
    bytes.reserve(size);
    copyAll(*impl_->terrain->file, [&bytes](const NBX::DataResource & piece) {
        const auto * first = static_cast<const std::uint8_t *>(piece.pointer());
        bytes.insert(bytes.end(), first, first + piece.size());
    });
    NBX::attributeWithDefault(m, "size", size, 0);
    m.rawAttribute("data", bytes.data(), size);
}

void AsyncGridTerrain::restore(NBX::SerializationManager & m) {
    impl_ = nullptr;
    std::wstring url;
    NBX::attributeWithDefault(m, "url", url, L"");
    if (!url.empty()) {
        const std::wstring path = found(url);
        if (path.empty()) throw NBX::FileNotFoundException(L"file not found", utf8(url));
        return loadFrom(path, false);
    }
    std::uint64_t size = 0;
    NBX::attributeWithDefault(m, "size", size, 0);
    if (size > m.bytesLeft()) throw NBX::IOError(L"terrain could not be loaded");
    std::vector<std::uint8_t> bytes(size);
    if (!m.rawAttribute("data", bytes.data(), size)) throw NBX::IOError(L"terrain could not be loaded");
    const std::string path = NBX::File::temporaryFileName("terrain-");
    try {
        NBX::File(path, NBX::WM_Create).write(bytes.data(), size);
        loadFrom(wide(path), true);
    } catch (...) {
        NBX::File::remove(path);
        throw;
    }
}

void AsyncGridTerrain::loadFrom(const std::wstring & path, bool isEmbedded) {
    std::wstring problem;
    const NBX::SO<AsyncGridTerrain> loaded = load(path, isEmbedded, &problem);
    if (!loaded) throw NBX::IOError(L"terrain could not be loaded", path + L": " + problem);
    impl_ = loaded->impl_;
}

namespace {

using FrameCallback = NBX::FunctionCallback1<const TerrainPainterFrameManager::Info &>;

[[maybe_unused]] const bool s_isRegistered =
    TerrainPainterFrameManager::RegisterBeginFrameCallback(
        new FrameCallback(&AsyncGridTerrain::beginFrame)) &&
    TerrainPainterFrameManager::RegisterEndFrameCallback(new FrameCallback(&AsyncGridTerrain::endFrame));

} // namespace

} // namespace ZMT::CORE::GRID
