#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <QObject>
#include <QSize>
#include <QTimer>

#include <nbx/data/atomicfilewriter.h>

#include "landscape/arrivals.h"
#include "landscape/commandoptions.h"
#include "landscape/landscapeoptions.h"
#include "landscape/viewpoint.h"
#include "measuretool.h"

class ViewerWindow;

/// What a command line wants of the window besides showing files.
struct WindowTask {
    std::vector<View> bookmarks;
    std::vector<MeasureTool::Point> line; ///< to measure, in map coordinates; y is not read
    std::string screenshot, flight;       ///< what is saved before the program ends; one of them at most
    unsigned frames = 0;                  ///< of the flight; 0 for the usual number
    bool allowsIncomplete = false;

    /// Whether the window is there for that alone.
    bool saves() const { return !screenshot.empty() || !flight.empty(); }
};

void addTaskOptions(CLI::App & app, WindowTask & task);
/// Throws `UsageError`, and `DataError` for what cannot be written. `inputs` are not to be replaced.
void checkTask(const WindowTask & task, const std::vector<NamedFile> & inputs);

/// Does that once the first picture of the window is complete. Where something is saved it then ends the
/// application, with what became of it, and also when it fails; otherwise failures are told.
class WindowTaskRunner : public QObject {
    Q_OBJECT
public:
    /// Throws `NBX::IOException`: a file that cannot be written is noticed before the long work.
    WindowTaskRunner(ViewerWindow & window, const WindowTask & task);

private:
    void look();
    bool isSettled();
    void goOn();
    void goToBookmark();
    void showLine();
    void saveScreenshot();
    void closePanels();
    void saveFlight();
    void endFlight(const QString & problem);
    void fail(const std::string & message);

    ViewerWindow & window_;
    const WindowTask task_;
    std::unique_ptr<NBX::AtomicFileWriter> out_; ///< of a screenshot
    QTimer timer_;
    Arrivals arrivals_;
    int waited_ = 0;            ///< for this picture, in milliseconds
    std::size_t bookmarks_ = 0; ///< that were shown
    bool hasClosedPanels_ = false;
    QSize size_;                       ///< of the window without the bookmarks' panel; none without bookmarks
    bool hasLine_ = false;             ///< it was shown
    std::array<double, 6> start_ = {}; ///< the view behind the bookmarks
};
