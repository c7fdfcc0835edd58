#include "viewerprogram.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <QApplication>
#include <QTimer>

#include "../zmt/commands.h"
#include "landscapeview.h"
#include "viewerwindow.h"

#include <zmt/core/terrain/geometry/terrainpainterglsettings.h>

namespace {

using ZMT::CORE::TerrainPainterGLSettings;

enum ExitStatus { ES_Success = 0, ES_Data = 1, ES_Usage = 2 };

constexpr int s_pollMilliseconds = 50;
constexpr int s_longestScreenshot = 120'000;

struct ViewerOptions {
    std::vector<std::string> files;
    LandscapeOptions landscape;
    std::string view = "overview";
    std::string size = "1280x800";
    double geometryError = 3.0;
    double textureError = 2.0;
    std::string screenshot;
};

/// One line on the standard error stream, whatever `message` holds.
void writeError(std::string message) {
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::fprintf(stderr, "zmt: %s\n", message.c_str());
}

int usageError(const std::string & message) {
    writeError(message + " (see 'zmt view --help')");
    return ES_Usage;
}

void addOptions(CLI::App & app, ViewerOptions & options) {
    app.set_version_flag("--version", ZMT_VERSION);
    app.add_option("FILE", options.files,
                   "Height raster, and images to lie on it; without one the window is empty");
    addLandscapeOptions(app, options.landscape);
    addViewOptions(app, options.view, options.size);
    app.add_option("--geometry-error", options.geometryError, "Allowed error of the geometry, in pixels")
        ->capture_default_str();
    app.add_option("--texture-error", options.textureError, "Allowed size of a texel, in pixels")
        ->capture_default_str();
    app.add_option("--screenshot", options.screenshot,
                   "Save the window as a PNG file when the picture is complete, and end");
}

void checkOptions(const ViewerOptions & options) {
    if (!(options.geometryError >= 0.0) || !(options.textureError >= 0.0))
        throw UsageError("--geometry-error and --texture-error must not be negative");
    if (!options.screenshot.empty() && options.files.empty()) throw UsageError("--screenshot needs a FILE");
    parseView(options.view);
    parsePictureSize(options.size);
}

bool hasDisplay() {
    return std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY") || std::getenv("QT_QPA_PLATFORM");
}

/// Saves the window when it is complete; ends the program with what became of it.
class Screenshot {
public:
    Screenshot(ViewerWindow & window, const std::string & path) : window_(window), path_(path) {
        QObject::connect(&timer_, &QTimer::timeout, &window, [this] { look(); });
        timer_.start(s_pollMilliseconds);
    }

private:
    void look() {
        waited_ += s_pollMilliseconds;
        if (!window_.lastError().isEmpty()) return fail(window_.lastError().toStdString());
        if (waited_ > s_longestScreenshot) return fail("the picture did not become complete");
        if (!window_.view()->isComplete()) return;
        if (!window_.grab().save(QString::fromStdString(path_), "PNG"))
            return fail(path_ + ": cannot be written");
        QCoreApplication::exit(ES_Success);
    }
    void fail(const std::string & message) {
        timer_.stop();
        writeError(message);
        QCoreApplication::exit(ES_Data);
    }

    ViewerWindow & window_;
    std::string path_;
    QTimer timer_;
    int waited_ = 0;
};

int showWindow(const ViewerOptions & options, int argc, char ** argv) {
    if (!hasDisplay()) {
        writeError("no display; the window needs one, 'zmt render' does not");
        return ES_Data;
    }
    prepareWindowSystem();
    QApplication application(argc, argv);
    QApplication::setApplicationName("zmt");
    TerrainPainterGLSettings::setGeometryError(options.geometryError);
    TerrainPainterGLSettings::setTextureError(options.textureError);

    ViewerWindow window(options.landscape, parseView(options.view));
    const PictureSize size = parsePictureSize(options.size);
    window.resize(int(size.width), int(size.height));
    window.show();
    window.open(options.files);
    std::unique_ptr<Screenshot> screenshot;
    if (!options.screenshot.empty()) screenshot = std::make_unique<Screenshot>(window, options.screenshot);
    return QApplication::exec();
}

} // namespace

void prepareWindowSystem() {
    if (!std::getenv("QT_XCB_GL_INTEGRATION")) qputenv("QT_XCB_GL_INTEGRATION", "xcb_egl");
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
}

int runViewer(int argc, char ** argv) {
    CLI::App app("Shows a landscape in a window.", "zmt view");
    ViewerOptions options;
    options.landscape.method = "chunked";
    addOptions(app, options);
    try {
        app.parse(argc, argv);
        // Only the tree has normals.
        if (options.landscape.lighting == "vertex" && app.get_option("--method")->count() == 0)
            options.landscape.method = "tree";
        checkOptions(options);
        return showWindow(options, 1, argv);
    } catch (const CLI::ParseError & error) {
        return error.get_exit_code() == 0 ? app.exit(error) : usageError(error.what());
    } catch (const UsageError & error) {
        return usageError(error.what());
    } catch (const std::exception & error) {
        writeError(error.what());
        return ES_Data;
    }
}
