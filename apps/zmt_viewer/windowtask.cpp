// A timer waits until the picture is complete, and again after each step: the bookmarks one after the other,
// which have small pictures, then the line, then what is saved.

#include "windowtask.h"

#include <cmath>
#include <exception>
#include <utility>

#include <QBuffer>
#include <QCoreApplication>
#include <QDockWidget>
#include <QStringList>

#include "bookmarkmenu.h"
#include "flightrecorder.h"
#include "landscape/errors.h"
#include "landscape/picture.h"
#include "landscape/readfailures.h"
#include "landscape/streamedfiles.h"
#include "landscapeview.h"
#include "viewerwindow.h"

#include <nbx/image/imagewriter.h>

namespace {

constexpr int s_pollMilliseconds = 50;
constexpr int s_pictureQuality = 90;
constexpr int s_longestPicture = 120'000;

View parseBookmark(const std::string & text) {
    try {
        return parseView(text);
    } catch (const UsageError & error) {
        const std::string message = error.what();
        throw UsageError(message.rfind("--view", 0) == 0 ? "--bookmark" + message.substr(6) : message);
    }
}

std::vector<MeasureTool::Point> parseLine(const std::string & text) {
    const QStringList words = QString::fromStdString(text).split(',');
    std::vector<double> numbers;
    numbers.reserve(std::size_t(words.size()));
    for (const QString & word : words) {
        bool isNumber = false;
        numbers.push_back(word.toDouble(&isNumber));
        if (!isNumber || !(std::abs(numbers.back()) <= 1e12)) numbers.clear();
        if (numbers.empty()) break;
    }
    if (numbers.size() < 4 || numbers.size() % 2 != 0)
        throw UsageError("--measure must be X,Y,X,Y or more pairs, each number at most 1e12: " + text);
    std::vector<MeasureTool::Point> line;
    line.reserve(numbers.size() / 2);
    for (std::size_t i = 0; i < numbers.size(); i += 2)
        line.emplace_back(numbers[i], 0.0, numbers[i + 1]);
    return line;
}

} // namespace

void addTaskOptions(CLI::App & app, WindowTask & task) {
    addParsedList(app, "--bookmark", task.bookmarks, parseBookmark,
                  "A bookmark of that view, in the words of --view; may be repeated, and comes behind those "
                  "of a scene");
    addParsedOption(app, "--measure", task.line, parseLine,
                    "Measure along a line, X,Y,X,Y and so on in map coordinates, and show its profile");
    app.add_option("--screenshot", task.screenshot,
                   "Save the window when the picture is complete, and end: JPEG where the name ends in jpg "
                   "or jpeg, else PNG");
    app.add_option("--flight", task.flight,
                   "Save the flight through the bookmarks, and end: as a film where the name ends in mp4, "
                   "webm, mkv or mov, as one picture of all frames where it ends in png, else as numbered "
                   "pictures in a new folder");
    app.add_option("--frames", task.frames,
                   "Pictures of --flight, evenly from its start to its end; without it 25 for each second, "
                   "or 9 in one picture")
        ->check(CLI::Range(1U, FlightRecorder::s_mostFrames));
    app.add_flag("--allow-incomplete", task.allowsIncomplete,
                 "Save the window also where parts of streamed files cannot be read");
}

void checkTask(const WindowTask & task, const std::vector<NamedFile> & inputs) {
    if (!task.screenshot.empty() && !task.flight.empty())
        throw UsageError("--screenshot and --flight each end the window; choose one");
    if (task.frames > 0 && task.flight.empty()) throw UsageError("--frames needs a --flight");
    if (task.allowsIncomplete && task.screenshot.empty())
        throw UsageError("--allow-incomplete needs a --screenshot");
    checkOutputs(inputs, {{"--screenshot", task.screenshot}, {"--flight", task.flight}});
    checkPictureName("--screenshot", task.screenshot);
    if (task.flight.empty()) return;
    FlightRecorder::checkPath(task.flight);
    if (FlightRecorder::isStrip(task.flight) && task.frames > FlightRecorder::s_mostStripFrames)
        throw UsageError("--frames: one picture has at most " +
                         std::to_string(FlightRecorder::s_mostStripFrames) + " of them");
}

WindowTaskRunner::WindowTaskRunner(ViewerWindow & window, const WindowTask & task)
    : QObject(&window), window_(window), task_(task) {
    if (!task.screenshot.empty()) out_ = std::make_unique<NBX::AtomicFileWriter>(task.screenshot);
    connect(&timer_, &QTimer::timeout, this, &WindowTaskRunner::look);
    connect(window.bookmarks()->recorder(), &FlightRecorder::ended, this, &WindowTaskRunner::endFlight);
    if (task.saves() || !task.bookmarks.empty() || !task.line.empty()) timer_.start(s_pollMilliseconds);
}

void WindowTaskRunner::look() {
    try {
        if (isSettled()) {
            waited_ = 0;
            goOn();
        }
    } catch (const std::exception & error) {
        fail(messageOf(error));
    }
}

/// Throws `DataError` where it will never be.
bool WindowTaskRunner::isSettled() {
    // A city whose textures cannot be read is whole, and blurred.
    const auto & landscape = window_.view()->landscape();
    const bool lacksCities =
        landscape && !std::as_const(*landscape).cities().empty() && !readFailures().empty();
    if (!window_.lastError().isEmpty() && !lacksCities) throw DataError(window_.lastError().toStdString());
    if (window_.loader()->isRunning()) return false;
    waited_ += s_pollMilliseconds;
    if (waited_ > s_longestPicture) throw DataError("the picture did not become complete");
    const bool isComplete = window_.view()->isComplete();
    if (isComplete && !lacksCities) return true;
    if (!isComplete && !(landscape && landscape->isReadWhileShown() && arrivals_.haveEnded())) return false;
    giveUpPicture(window_.view()->frames().missingTiles, window_.shownFile(), task_.allowsIncomplete);
    return true;
}

void WindowTaskRunner::goOn() {
    if (bookmarks_ <= task_.bookmarks.size() && !task_.bookmarks.empty()) return goToBookmark();
    if (!hasLine_ && !task_.line.empty()) return showLine();
    if (!hasClosedPanels_ && !task_.flight.empty()) return closePanels();
    timer_.stop();
    if (!task_.screenshot.empty()) saveScreenshot();
    if (!task_.flight.empty()) saveFlight();
}

/// Keeps the one that is shown, and goes to the next one, or back behind the last.
void WindowTaskRunner::goToBookmark() {
    LandscapeView & view = *window_.view();
    if (bookmarks_ == 0) {
        start_ = view.viewCoordinates();
        size_ = window_.size();
    } else {
        window_.bookmarks()->add();
    }
    if (bookmarks_ < task_.bookmarks.size())
        view.lookFrom(task_.bookmarks[bookmarks_]);
    else
        view.setViewCoordinates(start_, false);
    ++bookmarks_;
}

void WindowTaskRunner::showLine() {
    hasLine_ = true;
    window_.measuring()->measureAlong(task_.line);
}

void WindowTaskRunner::saveScreenshot() {
    for (const CityLayer & city : std::as_const(*window_.view()->landscape()).cities())
        checkOutputs(city.pagingFiles(), {{"--screenshot", task_.screenshot}});
    QBuffer picture;
    if (!window_.grab().save(&picture, NBX::ImageWriter::isJPEG(task_.screenshot) ? "JPEG" : "PNG",
                             s_pictureQuality))
        throw DataError("the picture could not be encoded");
    out_->write(picture.data().constData(), std::uint64_t(picture.size()));
    out_->commit();
    QCoreApplication::exit(ES_Success);
}

/// Frames have the size of the view, and that of bookmarks may have made a small window wider.
void WindowTaskRunner::closePanels() {
    hasClosedPanels_ = true;
    for (QDockWidget * dock : window_.findChildren<QDockWidget *>())
        dock->hide();
    QCoreApplication::processEvents();
    if (size_.isValid()) window_.resize(size_);
}

void WindowTaskRunner::saveFlight() {
    const Flight flight = window_.bookmarks()->flight();
    window_.bookmarks()->recorder()->start(flight, task_.flight,
                                           FlightRecorder::rate(flight, task_.flight, task_.frames));
}

void WindowTaskRunner::endFlight(const QString & problem) {
    if (task_.flight.empty()) return;
    if (!problem.isEmpty()) return fail(problem.toStdString());
    QCoreApplication::exit(ES_Success);
}

void WindowTaskRunner::fail(const std::string & message) {
    timer_.stop();
    writeError(message);
    if (task_.saves()) QCoreApplication::exit(ES_Data);
}
