#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <QObject>
#include <QString>

#include <nbx/object/progress.h>

#include "landscape/landscape.h"

/// What lines and areas among files become.
enum class VectorUse {
    Shape,   ///< areas are draped, and lines become edges of the terrain
    Overlay, ///< they are drawn on the ground, which stays as it is
};

/// Reads and builds landscapes on a thread of its own, and shows the progress of the process. Belongs to the
/// thread of the window, where its signals arrive.
class LandscapeLoader : public QObject, private NBX::ProgressDisplay {
    Q_OBJECT
public:
    LandscapeLoader();
    /// Cancels, and waits for the thread.
    ~LandscapeLoader() override;

    /// Opens streamed files in the event loop, which meanwhile takes what the user does, then loads, on the
    /// thread, `options` with `files` added: the first raster of one band becomes the terrain, in the place
    /// of another one and all that lies on it; other rasters are images, lines and areas are for `use`, of
    /// which overlays with times are tracks as well, and cities are told by their content. Images, overlays
    /// and cities alone are added to `shown`, which was made of `options`, whatever their contour lines, and
    /// has a terrain, when they have been read; it must not be drawn meanwhile. Only one load runs at a time;
    /// false, and nothing else, while one does.
    bool start(const LandscapeOptions & options, const std::vector<std::string> & files,
               const std::shared_ptr<Landscape> & shown = nullptr, VectorUse use = VectorUse::Overlay);
    /// Wishes that the load ends; one of the last three signals follows.
    void cancel();
    bool isRunning() const { return isOpening_ || thread_.joinable(); }

    /// What `options` become with `files`. Throws what the raster layer throws, and `DataError` where there
    /// is no terrain for an image.
    static LandscapeOptions withFiles(LandscapeOptions options, const std::vector<std::string> & files,
                                      VectorUse use = VectorUse::Overlay,
                                      const StreamedFiles & streamed = {});

    /// Whether one of `files` becomes the terrain in the place of what `options` show. No server is asked: a
    /// URL is taken for one where there is none yet. False for what cannot be read.
    static bool includeTerrain(const LandscapeOptions & options, const std::vector<std::string> & files);

signals:
    /// `share` runs from 0 to 1.
    void progressed(const QString & title, const QString & text, double share);
    void loaded(const std::shared_ptr<Landscape> & landscape, const LandscapeOptions & options);
    void failed(const QString & message);
    void canceled();

private:
    // Called on any thread.
    void begin(const NBX::Progress & progress) override;
    bool update(const NBX::Progress & progress) override;
    void end(const NBX::Progress & progress) override;

    struct Result;
    struct Task;
    void open(const std::shared_ptr<Result> & result, const Task & task);
    static void load(Result & result, const Task & task);
    void openPagingFiles(const std::vector<CityLayer> & cities);
    void finish(const Result & result);

    std::thread thread_;
    std::atomic<bool> isCanceled_{false};
    bool isOpening_ = false;
};
