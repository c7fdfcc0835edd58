// Options and their checks, then the application and its window. Without a window system Qt ends the process,
// so its first message is caught to tell why.

#include "viewerprogram.h"

#include <chrono>
#include <clocale>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <QApplication>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/picture.h"
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
#include "windowtask.h"

#include <zmt/core/terrain/frame/terrainpainterglsettings.h>

namespace {

using ZMT::CORE::TerrainPainterGLSettings;

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
    WindowTask task;
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
    addTaskOptions(app, options.task);
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
    if (options.task.saves() && options.files.empty() && options.landscape.cities.files.empty())
        throw UsageError(std::string(options.task.flight.empty() ? "--screenshot" : "--flight") +
                         " needs a FILE or a --city");
    std::vector<NamedFile> inputs = inputFiles(options.landscape);
    for (const std::string & path : options.files)
        inputs.push_back({"FILE", path});
    checkTask(options.task, inputs);
}

bool hasDisplay() {
    return std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY") || std::getenv("QT_QPA_PLATFORM");
}

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
    const WindowTaskRunner runner(window, options.task);
    window.resize(int(options.size.width), int(options.size.height));
    // What is saved looks the same for everybody.
    WindowMemory memory(window, options.task.saves() ? "" : WindowState::userFile());
    memory.apply(options.isSizeGiven);
    if (options.task.saves()) window.theme()->set("light");
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
        for (View & bookmark : options.task.bookmarks)
            bookmark.isLonLat = options.view.isLonLat;
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
