// Options and their checks, then the application and its window, then the screenshot, which waits by a timer
// until the picture is complete. Without a window system Qt ends the process, so its first message is caught
// to tell why.

#include "viewerprogram.h"

#include <chrono>
#include <clocale>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <QApplication>
#include <QBuffer>
#include <QTimer>

#include "landscape/arrivals.h"
#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/picture.h"
#include "landscape/readfailures.h"
#include "landscape/streamedfiles.h"
#include "landscapeview.h"
#include "program/defaults.h"
#include "program/samplefiles.h"
#include "program/stage.h"
#include "scene/scene.h"
#include "theme.h"
#include "viewerwindow.h"
#include "windowcontextgl.h"
#include "windowmemory.h"

#include <nbx/data/atomicfilewriter.h>
#include <nbx/image/imagewriter.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>

namespace {

using ZMT::CORE::TerrainPainterGLSettings;

constexpr int s_pollMilliseconds = 50;
constexpr int s_pictureQuality = 90;
constexpr int s_longestScreenshot = 120'000;
constexpr std::chrono::milliseconds s_longestEnd(500);

struct ViewerOptions {
    std::vector<std::string> files;
    LandscapeOptions landscape;
    View view;
    PictureSize size{1280, 800};
    bool isSizeGiven = false;
    AllowedErrors errors;
    MemoryBudgets memory;
    bool wireframe = false;
    bool patches = false;
    std::string screenshot;
    bool allowIncomplete = false;
    bool profile = false;
};

int usageError(const std::string & message) {
    writeError(message + " (see 'zmt view --help')");
    return ES_Usage;
}

void addOptions(CLI::App & app, ViewerOptions & options) {
    app.set_version_flag("--version", ZMT_VERSION);
    app.add_option(
        "FILE", options.files,
        "Height raster or streaming terrain, and images to lie on it, which may be URLs; or cities; without "
        "any a sample is shown; or one scene, which the window saved");
    addCityOptions(app, options.landscape.cities);
    addLandscapeOptions(app, options.landscape);
    addViewOptions(app, options.view, options.size);
    addErrorOptions(app, options.errors);
    addMemoryOptions(app, options.memory);
    app.add_flag("--wireframe", options.wireframe, "Draw edges");
    app.add_flag("--patches", options.patches, "Give each patch a colour, to show the level of detail");
    addPictureNotes(app);
    app.add_option("--screenshot", options.screenshot,
                   "Save the window when the picture is complete, and end: JPEG where the name ends in jpg "
                   "or jpeg, else PNG");
    app.add_flag("--allow-incomplete", options.allowIncomplete,
                 "Save the window also where parts of streamed files cannot be read");
    app.add_flag("--profile", options.profile,
                 "Tell at the end, on the standard error stream, how long the window drew and waited");
}

void checkOptions(const ViewerOptions & options) {
    checkErrors(options.errors);
    checkMemoryBudgets(options.memory);
    // What a file is that lies beside cities is not known yet.
    LandscapeOptions bare = options.landscape;
    if (!options.files.empty()) bare.cities.files.clear();
    checkLandscape(bare);
    for (const std::string & file : options.files) {
        if (isSceneFile(file)) {
            if (options.files.size() == 1 && mainFile(options.landscape).empty()) continue;
            throw UsageError(file + " is a scene, which is opened by itself; leave other files out");
        }
        if (isUrl(file) && &file != &options.files.front()) continue; // an image
        if (!isUrl(file) && ZMT::CORE::CityModels::isFile(file)) continue;
        LandscapeOptions landscape = options.landscape;
        landscape.terrain = file;
        checkLandscape(landscape);
    }
    if (!options.screenshot.empty() && options.files.empty() && options.landscape.cities.files.empty())
        throw UsageError("--screenshot needs a FILE or a --city");
    if (options.allowIncomplete && options.screenshot.empty())
        throw UsageError("--allow-incomplete needs a --screenshot");
    std::vector<NamedFile> inputs = inputFiles(options.landscape);
    for (const std::string & path : options.files)
        inputs.push_back({"FILE", path});
    checkOutputs(inputs, {{"--screenshot", options.screenshot}});
    checkPictureName("--screenshot", options.screenshot);
}

bool hasDisplay() {
    return std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY") || std::getenv("QT_QPA_PLATFORM");
}

/// Saves the window when it is complete; ends the program with what became of it.
class Screenshot {
public:
    /// Throws `NBX::IOException`: a file that cannot be written is noticed before the long work.
    Screenshot(ViewerWindow & window, const std::string & path, bool allowsIncomplete)
        : window_(window), allowsIncomplete_(allowsIncomplete), path_(path),
          format_(NBX::ImageWriter::isJPEG(path) ? "JPEG" : "PNG"), out_(path) {
        QObject::connect(&timer_, &QTimer::timeout, &window, [this] { look(); });
        timer_.start(s_pollMilliseconds);
    }

private:
    void look() {
        // A city whose textures cannot be read is whole, and blurred.
        const auto & landscape = window_.view()->landscape();
        const bool lacksCities =
            landscape && !std::as_const(*landscape).cities().empty() && !readFailures().empty();
        if (!window_.lastError().isEmpty() && !lacksCities) return fail(window_.lastError().toStdString());
        if (window_.loader()->isRunning()) return;
        waited_ += s_pollMilliseconds;
        if (waited_ > s_longestScreenshot) return fail("the picture did not become complete");
        if (window_.view()->isComplete()) return lacksCities ? saveIncomplete() : save();
        if (landscape && landscape->isReadWhileShown() && arrivals_.haveEnded()) saveIncomplete();
    }
    void saveIncomplete() {
        try {
            giveUpPicture(window_.view()->frames().missingTiles, window_.shownFile(), allowsIncomplete_);
        } catch (const DataError & error) {
            return fail(error.what());
        }
        save();
    }
    void save() {
        try {
            for (const CityLayer & city : std::as_const(*window_.view()->landscape()).cities())
                checkOutputs(city.pagingFiles(), {{"--screenshot", path_}});
            QBuffer picture;
            if (!window_.grab().save(&picture, format_, s_pictureQuality))
                return fail("the picture could not be encoded");
            out_.write(picture.data().constData(), std::uint64_t(picture.size()));
            out_.commit();
            QCoreApplication::exit(ES_Success);
        } catch (const std::exception & error) {
            fail(error.what());
        }
    }
    void fail(const std::string & message) {
        timer_.stop();
        writeError(message);
        QCoreApplication::exit(ES_Data);
    }

    ViewerWindow & window_;
    const bool allowsIncomplete_;
    const std::string path_;
    const char * format_;
    NBX::AtomicFileWriter out_;
    QTimer timer_;
    Arrivals arrivals_;
    int waited_ = 0;
};

/// Qt ends the process where it can make no window. The first thing that it says is the reason.
void tellWhyThereIsNoWindow(QtMsgType type, const QMessageLogContext &, const QString & message) {
    static QString reason;
    if (reason.isEmpty()) reason = message;
    if (type != QtFatalMsg) return;
    writeError("no window can be made: " + reason.toStdString() + "; 'zmt render' needs none");
    std::_Exit(ES_Data);
}

std::unique_ptr<QApplication> makeApplication(int & argc, char ** argv) {
    prepareWindowSystem();
    const QtMessageHandler before = qInstallMessageHandler(tellWhyThereIsNoWindow);
    auto application = std::make_unique<QApplication>(argc, argv);
    const bool isSupported = WindowContextGL::isSupported();
    qInstallMessageHandler(before);
    if (!isSupported) throw DataError("the display has no OpenGL for windows; 'zmt render' needs no display");
    // Qt sets the user's; numbers on the command line and in files have points.
    std::setlocale(LC_NUMERIC, "C");
    QApplication::setApplicationName("zmt");
    return application;
}

/// What is under way in foreign libraries, such as the look-up of a name, cannot be ended, and does not hold
/// up the end of the program. What was written is complete.
void endSoon(int status) {
    std::thread([status] {
        std::this_thread::sleep_for(s_longestEnd);
        std::_Exit(status);
    }).detach();
}

int showWindow(const ViewerOptions & options, int argc, char ** argv, RunProfile & profile) {
    if (!hasDisplay()) throw DataError("no display; the window needs one, 'zmt render' does not");
    giveMemoryBack();
    const auto application = makeApplication(argc, argv);
    applyMemoryBudgets(options.memory);
    TerrainPainterGLSettings::setGeometryError(options.errors.geometry);
    TerrainPainterGLSettings::setTextureError(options.errors.texture);

    ViewerWindow window(options.landscape, options.view);
    std::optional<Screenshot> screenshot;
    if (!options.screenshot.empty()) screenshot.emplace(window, options.screenshot, options.allowIncomplete);
    window.resize(int(options.size.width), int(options.size.height));
    // A screenshot looks the same for everybody.
    WindowMemory memory(window, screenshot ? "" : WindowState::userFile());
    memory.apply(options.isSizeGiven);
    if (screenshot) window.theme()->set("light");
    window.setWireframe(options.wireframe);
    window.setPatches(options.patches);
    window.show();
    if (options.files.empty() && mainFile(options.landscape).empty())
        window.openSample(SampleFiles::find());
    else
        window.open(options.files, VectorUse::Shape);
    const int status = QApplication::exec();
    memory.save();
    if (options.profile) profile.tell();
    endSoon(status);
    return status;
}

} // namespace

void prepareWindowSystem() {
    if (!std::getenv("QT_XCB_GL_INTEGRATION")) qputenv("QT_XCB_GL_INTEGRATION", "xcb_egl");
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
}

int runViewer(int argc, char ** argv) {
    CLI::App app("Shows a landscape in a window.", "zmt view");
    RunProfile profile(L"wait");
    ViewerOptions options;
    addOptions(app, options);
    Defaults defaults;
    const auto arguments = defaults.added(app, std::vector<std::string>(argv, argv + argc));
    try {
        // It takes them from the end, without the program's name.
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend() - 1));
        options.isSizeGiven = app.count("--size") > 0;
        checkOptions(options);
        return showWindow(options, 1, argv, profile);
    } catch (const CLI::ParseError & error) {
        return error.get_exit_code() == 0 ? app.exit(error)
                                          : usageError(error.what() + defaults.originIn(error.what()));
    } catch (const UsageError & error) {
        return usageError(error.what() + defaults.originIn(error.what()));
    } catch (const std::exception & error) {
        writeError(messageOf(error));
        return ES_Data;
    }
}
