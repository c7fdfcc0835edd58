#include "bookmarkmenu.h"

#include <exception>
#include <vector>

#include <QBuffer>
#include <QDockWidget>
#include <QFileDialog>
#include <QMenu>
#include <QMenuBar>
#include <QProgressDialog>
#include <QStatusBar>

#include "bookmarkpanel.h"
#include "flightplayer.h"
#include "flightrecorder.h"
#include "landscape/errors.h"
#include "landscapeview.h"
#include "trackbar.h"
#include "viewerwindow.h"

namespace {

constexpr int s_bookmarkWidth = 192, s_bookmarkHeight = 120; ///< of pictures, twice as fine as they show
constexpr int s_bookmarkQuality = 80;
constexpr int s_savedMilliseconds = 8000;

/// What fits into a small picture of it, without borders.
std::vector<std::uint8_t> bookmarkPicture(const QImage & image) {
    if (image.isNull()) return {};
    const QSize size(s_bookmarkWidth, s_bookmarkHeight);
    const QImage scaled = image.scaled(size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    const QRect middle(QPoint((scaled.width() - size.width()) / 2, (scaled.height() - size.height()) / 2),
                       size);
    QBuffer bytes;
    scaled.copy(middle).save(&bytes, "JPEG", s_bookmarkQuality);
    return {bytes.data().begin(), bytes.data().end()};
}

} // namespace

BookmarkMenu::BookmarkMenu(ViewerWindow & window)
    : QObject(&window), window_(window), panel_(new BookmarkPanel), player_(new FlightPlayer(*window.view())),
      recorder_(new FlightRecorder(*window.view())),
      dock_(window.addPanel("bookmarkPanel", tr("Bookmarks"), panel_, Qt::LeftDockWidgetArea)),
      menu_(new QMenu(tr("&Bookmarks"), &window)) {
    dock_->hide();
    window.findChild<QMenu *>("view")->addAction(dock_->toggleViewAction());

    menu_->setObjectName("bookmarks");
    window.menuBar()->insertMenu(window.findChild<QMenu *>("track")->menuAction(), menu_);
    menu_->addAction(tr("&Add this view"), Qt::Key_B, this, &BookmarkMenu::add);
    menu_->addAction(tr("Fly to the &next"), Qt::Key_BracketRight, this, [this] { flyToNext(1); });
    menu_->addAction(tr("Fly to the &previous"), Qt::Key_BracketLeft, this, [this] { flyToNext(-1); });
    menu_->addAction(tr("Fly &through all"), tr("Shift+B"), this, &BookmarkMenu::flyThroughAll);
    menu_->addAction(tr("&Save the flight..."), tr("Ctrl+Shift+E"), this, &BookmarkMenu::chooseFlight);

    connect(panel_, &BookmarkPanel::addWanted, this, &BookmarkMenu::add);
    connect(panel_, &BookmarkPanel::chosen, this, &BookmarkMenu::flyTo);
    connect(panel_, &BookmarkPanel::flightWanted, this, &BookmarkMenu::flyThroughAll);
    connect(recorder_, &FlightRecorder::ended, this, &BookmarkMenu::endFlight);
    connect(recorder_, &FlightRecorder::progressed, this, [this](int done, int all) {
        if (!progress_) return;
        progress_->setMaximum(all + 1); // behind the last the film is made
        progress_->setValue(done);
    });
}

void BookmarkMenu::setEnabled(bool isEnabled) {
    for (QAction * action : menu_->actions())
        action->setEnabled(isEnabled);
    panel_->setEnabled(isEnabled);
    if (!isEnabled) recorder_->cancel();
}

void BookmarkMenu::add() {
    if (!window_.view()->landscape()) return;
    panel_->add({FlightPlayer::positionOf(*window_.view()), bookmarkPicture(window_.view()->image())});
    dock_->show();
}

void BookmarkMenu::flyTo(int number) {
    if (number < 0 || !window_.view()->landscape()) return;
    player_->play(Flight(
        {FlightPlayer::positionOf(*window_.view()), panel_->bookmarks().at(std::size_t(number)).position}));
}

void BookmarkMenu::flyToNext(int steps) {
    flyTo(panel_->select(steps));
}

Flight BookmarkMenu::flight() const {
    std::vector<Flight::Position> positions;
    positions.reserve(panel_->bookmarks().size());
    for (const Bookmark & bookmark : panel_->bookmarks())
        positions.push_back(bookmark.position);
    return Flight(positions);
}

void BookmarkMenu::flyThroughAll() {
    player_->play(flight());
}

void BookmarkMenu::chooseFlight() {
    const QString folder = tr("Pictures in a new folder (*);;Nine frames in one picture (*.png)");
    const QString films = tr("Films (*.mp4 *.webm *.mkv *.mov)");
    const bool hasFilms = !FlightRecorder::filmProgram().isEmpty();
    const QString chosen =
        QFileDialog::getSaveFileName(&window_, tr("Save the flight"), hasFilms ? "flight.mp4" : "flight",
                                     hasFilms ? films + ";;" + folder : folder);
    if (!chosen.isEmpty()) saveFlight(chosen.toStdString());
}

void BookmarkMenu::saveFlight(const std::string & path) {
    if (recorder_->isRunning()) return;
    player_->stop();
    window_.tracks()->pause(); // or pictures would depend on how long they take
    try {
        checkOutputs(inputFiles(window_.scene().landscape), {{"the flight", path}});
        progress_ = new QProgressDialog(tr("Saving the flight"), tr("Cancel"), 0, 1, &window_);
        progress_->setWindowModality(Qt::WindowModal);
        progress_->setMinimumDuration(0); // nothing is changed or stored meanwhile
        progress_->setAutoClose(false);
        progress_->setAutoReset(false);
        connect(progress_, &QProgressDialog::canceled, recorder_, &FlightRecorder::cancel);
        saving_ = path;
        recorder_->start(flight(), path, FlightRecorder::rate(flight(), path));
    } catch (const std::exception & error) {
        endFlight(QString::fromStdString(messageOf(error)));
    }
}

void BookmarkMenu::endFlight(const QString & problem) {
    if (progress_) {
        progress_->disconnect();
        progress_->hide();
        progress_->deleteLater();
    }
    progress_ = nullptr;
    if (problem == FlightRecorder::cancelled())
        window_.statusBar()->showMessage(tr("The flight was not saved"), s_savedMilliseconds);
    else if (!problem.isEmpty())
        window_.showFailure(tr("The flight was not saved"), problem);
    else
        window_.statusBar()->showMessage(tr("Saved %1").arg(QString::fromStdString(saving_)),
                                         s_savedMilliseconds);
}
