// Streamed files are opened in the event loop; everything else is read and built on a thread, whose progress
// is handed to the window's. What a load made belongs to the window when it has ended.

#include "landscapeloader.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#include <QTimer>

#include "landscape/errors.h"
#include "landscape/terraininput.h"

#include <zmt/core/misc/patience.h>
#include <zmt/raster/gdal/geofile.h>

struct LandscapeLoader::Result {
    LandscapeOptions options;
    StreamedFiles streamed; ///< opened, and released, on the thread of the window
    std::shared_ptr<Landscape> landscape;
    std::vector<GroundLayer> images; ///< for a landscape that was there before, as the next
    std::vector<CityLayer> cities;
    std::vector<NBX::SO<Overlays::Overlay>> overlays;
    NBX::SO<Overlays::Overlay> contours; ///< others than before, where the interval is another one
    std::optional<Tracks> tracks;        ///< all of them; none where there are no others
    QString error;
};

struct LandscapeLoader::Task {
    std::vector<std::string> files;
    std::shared_ptr<Landscape> shown;
    VectorUse use;
};

namespace {

using ZMT::RASTER::GeoFile;
using FileKind = ZMT::RASTER::GeoFileKind;

/// Those that are there, the latest last, which shows the progress; they end in any order.
std::vector<NBX::ProgressDisplay *> s_loaders;
NBX::ProgressDisplay * s_displayBelow = nullptr; ///< that before the first of them

/// Of what may be added to a landscape.
std::size_t layersOf(const LandscapeOptions & options) {
    return options.images.size() + options.overlays.size() + options.cities.files.size();
}

/// Throws for what can be nothing of a landscape.
FileKind kindOf(const std::string & file, std::uint64_t key) {
    if (isStreamingTextureFile(file, key)) return FileKind::Image;
    const FileKind kind = GeoFile::kindOf(file);
    if (kind == FileKind::Unknown) openHeights(file); // says why it is nothing
    return kind;
}

/// A file of what moved may be played, too.
void addTrack(TrackOptions & tracks, const std::string & file) {
    const auto & known = tracks.files;
    if (std::find(known.begin(), known.end(), file) == known.end() && Tracks::isTrack(file))
        tracks.files.push_back(file);
}

} // namespace

LandscapeLoader::LandscapeLoader() {
    NBX::ProgressDisplay * const before = NBX::Progress::setDisplay(this);
    if (s_loaders.empty()) s_displayBelow = before;
    s_loaders.push_back(this);
}

LandscapeLoader::~LandscapeLoader() {
    cancel();
    if (thread_.joinable()) thread_.join();
    std::erase(s_loaders, static_cast<NBX::ProgressDisplay *>(this));
    NBX::Progress::setDisplay(s_loaders.empty() ? s_displayBelow : s_loaders.back());
}

LandscapeOptions LandscapeLoader::withFiles(LandscapeOptions options, const std::vector<std::string> & files,
                                            VectorUse use, const StreamedFiles & streamed) {
    bool hasNewTerrain = false, isFirst = options.terrain.empty(); // but for cities
    std::vector<std::string> images, vectors, cities;
    for (const std::string & file : files) {
        if (isUrl(file) ? bool(streamed.city(file)) : ZMT::CORE::CityModels::isFile(file)) {
            cities.push_back(file);
            continue;
        }
        const FileKind kind = !isUrl(file) ? kindOf(file, options.key)
                              : isFirst    ? FileKind::Heights
                                           : FileKind::Image;
        isFirst = false;
        const bool isTerrain = !hasNewTerrain && kind == FileKind::Heights;
        hasNewTerrain |= isTerrain;
        if (!isTerrain) {
            (kind == FileKind::Vectors ? vectors : images).push_back(file);
            continue;
        }
        if (!options.terrain.empty()) {
            options.images.clear();
            options.breakLines.clear();
            options.draped.clear();
            options.vectors.clear();
            options.overlays.clear();
            options.tracks = {};
            options.flood.reset();
            options.contours.reset();
            options.cities.files.clear();
        }
        options.terrain = file;
    }
    if (options.terrain.empty() && !(images.empty() && vectors.empty()))
        throw DataError(shownName(images.empty() ? vectors.front() : images.front()) +
                        ": is no terrain; open the height raster that it lies on first");
    options.images.insert(options.images.end(), images.begin(), images.end());
    if (use == VectorUse::Shape)
        options.vectors.insert(options.vectors.end(), vectors.begin(), vectors.end());
    else
        for (const std::string & file : vectors) {
            options.overlays.push_back({file, "", ""});
            addTrack(options.tracks, file);
        }
    options.cities.files.insert(options.cities.files.end(), cities.begin(), cities.end());
    return options;
}

bool LandscapeLoader::includeTerrain(const LandscapeOptions & options,
                                     const std::vector<std::string> & files) {
    const auto isTerrain = [&](const std::string & file) {
        if (isUrl(file)) return options.terrain.empty();
        try {
            return !ZMT::CORE::CityModels::isFile(file) && kindOf(file, options.key) == FileKind::Heights;
        } catch (const std::exception &) {
            return false; // which the load will tell
        }
    };
    return std::any_of(files.begin(), files.end(), isTerrain);
}

bool LandscapeLoader::start(const LandscapeOptions & options, const std::vector<std::string> & files,
                            const std::shared_ptr<Landscape> & shown, VectorUse use) {
    if (isRunning()) return false;
    isCanceled_ = false;
    isOpening_ = true;
    const auto result = std::make_shared<Result>();
    result->options = options;
    // The window shows first that something goes on.
    QTimer::singleShot(0, this, [this, result, task = Task{files, shown, use}] { open(result, task); });
    return true;
}

/// A server that does not answer is waited for as long as nobody cancels.
void LandscapeLoader::open(const std::shared_ptr<Result> & result, const Task & task) {
    try {
        const ZMT::CORE::Patience patience([this] { return isCanceled_.load(); });
        result->streamed = StreamedFiles(result->options, task.files);
    } catch (const std::exception & error) {
        result->error = QString::fromStdString(messageOf(error));
    }
    isOpening_ = false;
    if (isCanceled_) return finish(*result);
    thread_ = std::thread([this, result, task] {
        load(*result, task);
        QMetaObject::invokeMethod(
            this, [this, result] { finish(*result); }, Qt::QueuedConnection);
    });
}

void LandscapeLoader::load(Result & result, const Task & task) {
    if (!result.error.isEmpty()) return;
    try {
        const std::size_t images = result.options.images.size();
        const std::size_t cities = result.options.cities.files.size();
        const std::size_t overlays = result.options.overlays.size();
        const std::size_t before = layersOf(result.options), tracks = result.options.tracks.files.size();
        result.options = withFiles(result.options, task.files, task.use, result.streamed);
        const LandscapeOptions & options = result.options;
        const auto & shown = task.shown;
        const bool isMoreAlone = layersOf(options) == before + task.files.size();
        if (!shown || !shown->hasTerrain() || !isMoreAlone) {
            result.landscape = std::make_shared<Landscape>(options, result.streamed);
            return;
        }
        for (std::size_t i = images; i < options.images.size(); ++i)
            result.images.push_back(
                shown->readImage(options.images[i], options.look.lookOf(i), result.streamed));
        for (std::size_t i = cities; i < options.cities.files.size(); ++i)
            result.cities.push_back(
                shown->readCity(options.cities.files[i], options.cities, result.streamed));
        for (std::size_t i = overlays; i < options.overlays.size(); ++i) {
            const auto read = shown->readOverlay(options.overlays[i], result.streamed);
            result.overlays.insert(result.overlays.end(), read.begin(), read.end());
        }
        if (options.contours && options.contours != shown->contours())
            result.contours = shown->readContours(*options.contours);
        if (options.tracks.files.size() > tracks) result.tracks = shown->readTracks(options.tracks);
        result.landscape = shown;
    } catch (const std::exception & error) {
        result.error = QString::fromStdString(messageOf(error));
    }
}

/// What runs later shows its progress here as well, and is not meant.
void LandscapeLoader::cancel() {
    isCanceled_ = isRunning();
}

/// As `open`: no picture waits for a server.
void LandscapeLoader::openPagingFiles(const std::vector<CityLayer> & cities) {
    const ZMT::CORE::Patience patience([this] { return isCanceled_.load(); });
    isOpening_ = true;
    for (const CityLayer & city : cities)
        city.openPagingFiles();
    isOpening_ = false;
}

void LandscapeLoader::finish(const Result & result) {
    if (thread_.joinable()) thread_.join();
    if (!isCanceled_ && result.landscape) {
        openPagingFiles(result.landscape->cities());
        openPagingFiles(result.cities);
    }
    if (isCanceled_.exchange(false)) {
        emit canceled();
    } else if (result.landscape) {
        for (const GroundLayer & image : result.images)
            result.landscape->addImage(image);
        for (const CityLayer & city : result.cities)
            result.landscape->addCity(city);
        if (!result.overlays.empty()) result.landscape->addOverlays(result.overlays);
        if (result.landscape->hasTerrain() && result.landscape->contours() != result.options.contours)
            result.landscape->setContours(result.options.contours, result.contours);
        if (result.tracks) result.landscape->setTracks(*result.tracks);
        emit loaded(result.landscape, result.options);
    } else {
        emit failed(result.error);
    }
}

void LandscapeLoader::begin(const NBX::Progress & progress) {
    update(progress);
}

bool LandscapeLoader::update(const NBX::Progress & progress) {
    const double total = progress.totalValue();
    const double share = total > 0.0 ? std::clamp(progress.currentValue() / total, 0.0, 1.0) : 0.0;
    const QString title = QString::fromStdString(progress.title());
    const QString text = QString::fromStdString(progress.text());
    QMetaObject::invokeMethod(
        this, [this, title, text, share] { emit progressed(title, text, share); }, Qt::QueuedConnection);
    return !isCanceled_;
}

void LandscapeLoader::end(const NBX::Progress &) {}
