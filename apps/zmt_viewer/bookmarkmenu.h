#pragma once

#include <string>

#include <QObject>

#include "scene/flight.h"

class BookmarkPanel;
class FlightPlayer;
class FlightRecorder;
class QAction;
class QDockWidget;
class QMenu;
class QProgressDialog;
class ViewerWindow;

/// The bookmarks of a window: their panel, which shows once there are some, and a menu with keys for them.
/// Flies to one or through all of them, and saves that flight.
class BookmarkMenu : public QObject {
    Q_OBJECT
public:
    /// The window owns it, and has its menus.
    explicit BookmarkMenu(ViewerWindow & window);

    /// Whether there is anything to look at.
    void setEnabled(bool isEnabled);
    BookmarkPanel * panel() const { return panel_; }
    FlightPlayer * player() const { return player_; }
    FlightRecorder * recorder() const { return recorder_; }

    /// The present view, with its picture.
    void add();
    void flyTo(int number);
    void flyThroughAll();
    /// Through all of them.
    Flight flight() const;
    /// As `FlightRecorder::start`; progress and failures are shown.
    void saveFlight(const std::string & path);

private:
    void flyToNext(int steps);
    void chooseFlight();
    void endFlight(const QString & problem);

    ViewerWindow & window_;
    BookmarkPanel * panel_;
    FlightPlayer * player_;
    FlightRecorder * recorder_;
    QDockWidget * dock_;
    QMenu * menu_;
    QProgressDialog * progress_ = nullptr;
    std::string saving_; ///< what is being recorded
};
