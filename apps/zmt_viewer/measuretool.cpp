// Panel, menu and keys change the line; everything else follows from it in `measure`, which asks the
// landscape for heights and shows the line on it.

#include "measuretool.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include <QBuffer>
#include <QDockWidget>
#include <QFileDialog>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QMenuBar>
#include <QStatusBar>
#include <QVBoxLayout>

#include "landscape/errors.h"
#include "landscapeview.h"
#include "map/profileplot.h"
#include "scene/groundmeasure.h"
#include "viewerwindow.h"

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/file.h>

namespace {

constexpr double s_samplesOfCell = 8.0, s_areaCellsOfCell = 2.0;
constexpr int s_profileWidth = 1600, s_profileHeight = 500; ///< of a picture
constexpr int s_toldMilliseconds = 8000;

GroundHeight heightOf(const Landscape & landscape) {
    return [terrain = landscape.terrain()](double x, double y) {
        const double height = terrain->calculateHeight({x, 0.0, y}, true);
        return terrain->isUndefinedHeightValue(height) ? -HUGE_VAL : height;
    };
}

double cellOf(const Landscape & landscape) {
    const auto & raster = *landscape.grid().rasterData();
    return std::min(raster.cellSizeX(), raster.cellSizeY());
}

QString lengthText(double metres) {
    const QLocale locale = QLocale::c();
    return metres < 10'000.0 ? QObject::tr("%1 m").arg(locale.toString(metres, 'f', 1))
                             : QObject::tr("%1 km").arg(locale.toString(metres / 1000.0, 'f', 3));
}

QString areaText(double squareMetres) {
    const QLocale locale = QLocale::c();
    return squareMetres < 1e6 ? QObject::tr("%1 m²").arg(locale.toString(squareMetres, 'f', 0))
                              : QObject::tr("%1 km²").arg(locale.toString(squareMetres / 1e6, 'f', 4));
}

} // namespace

MeasureTool::MeasureTool(ViewerWindow & window)
    : QObject(&window), window_(window), text_(new QLabel), plot_(new ProfilePlot),
      menu_(new QMenu(tr("&Measure"), &window)) {
    auto * content = new QWidget;
    auto * column = new QVBoxLayout(content);
    column->addWidget(text_);
    column->addWidget(plot_, 1);
    text_->setObjectName("measured");
    text_->setWordWrap(true);
    text_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    dock_ = window.addPanel("measurePanel", tr("Measure"), content, Qt::BottomDockWidgetArea);
    dock_->hide();
    window.findChild<QMenu *>("view")->addAction(dock_->toggleViewAction());

    window.menuBar()->insertMenu(window.findChild<QMenu *>("bookmarks")->menuAction(), menu_);
    isOn_ = menu_->addAction(tr("&Measure"));
    isOn_->setCheckable(true);
    isOn_->setShortcut(Qt::Key_M);
    menu_->addAction(tr("Add the &place under the mouse"), Qt::Key_Insert, this, &MeasureTool::addUnderMouse);
    menu_->addAction(tr("&Take the last one back"), Qt::Key_Backspace, this, &MeasureTool::removeLast);
    menu_->addAction(tr("&Clear"), tr("Shift+M"), this, &MeasureTool::clear);
    menu_->addAction(tr("&Save the profile..."), tr("Ctrl+Shift+P"), this, &MeasureTool::chooseProfile);
    connect(isOn_, &QAction::toggled, this, [this](bool isOn) {
        if (isOn) dock_->show();
        window_.view()->setCursor(isOn ? Qt::CrossCursor : Qt::ArrowCursor);
    });
    connect(window.view(), &LandscapeView::clicked, this, [this](const QPointF & place) {
        if (isOn_->isChecked()) addAt(place);
    });
    connect(plot_, &ProfilePlot::pointed, this, &MeasureTool::showSample);
    measure();
}

void MeasureTool::setEnabled(bool isEnabled) {
    for (QAction * action : menu_->actions())
        action->setEnabled(isEnabled);
    if (!isEnabled) isOn_->setChecked(false);
    // Coordinates of one terrain mean nothing on the next, and one that comes back shows its line no more.
    clear();
}

void MeasureTool::addAt(const QPointF & place) {
    if (const auto ground = window_.view()->groundAt(place)) add(*ground);
}

/// Or in the middle, where the mouse is elsewhere.
void MeasureTool::addUnderMouse() {
    isOn_->setChecked(true);
    const LandscapeView & view = *window_.view();
    addAt(view.pointer().value_or(QPointF(view.rect().center())));
}

void MeasureTool::add(const Point & place) {
    line_.push_back(place);
    measure();
}

void MeasureTool::measureAlong(const std::vector<Point> & places) {
    const auto & landscape = window_.view()->landscape();
    isOn_->setChecked(true);
    line_ = places;
    if (landscape && landscape->hasTerrain())
        for (Point & place : line_)
            if (const double height = heightOf(*landscape)(place.x, place.z); std::isfinite(height))
                place.y = height;
    measure();
}

void MeasureTool::removeLast() {
    if (!line_.empty()) line_.pop_back();
    measure();
}

void MeasureTool::clear() {
    line_.clear();
    measure();
}

/// Of what is in memory of ground that streams.
void MeasureTool::measure() {
    const auto & landscape = window_.view()->landscape();
    GroundProfile profile;
    area_ = groundArea_ = 0.0;
    if (landscape && landscape->hasTerrain()) {
        const double cell = cellOf(*landscape);
        const GroundHeight heightAt = heightOf(*landscape);
        profile = profileAlong(line_, cell / s_samplesOfCell, heightAt);
        area_ = planArea(line_);
        groundArea_ = groundArea(line_, cell / s_areaCellsOfCell, heightAt);
        landscape->showLine(line_);
        window_.view()->redraw();
    }
    plot_->setProfile(profile);
    text_->setText(words());
}

QString MeasureTool::words() const {
    const GroundProfile & profile = plot_->profile();
    if (line_.size() < 2)
        return tr("Click on the ground to make a line, or press Ins at the place under the mouse");
    QString text = tr("%1 on the map   %2 along the ground")
                       .arg(lengthText(profile.length), lengthText(profile.groundLength));
    if (profile.hasHeights)
        text += tr("   %1 up   %2 down   from %3 to %4")
                    .arg(lengthText(profile.ascent), lengthText(profile.descent), lengthText(profile.lowest),
                         lengthText(profile.highest));
    if (line_.size() > 2)
        text += tr("   closed: %1 on the map   %2 of ground").arg(areaText(area_), areaText(groundArea_));
    if (profile.hasGaps) text += tr("   (ground is missing)");
    if (window_.view()->landscape()->isStreamed()) text += tr("   (of the heights in memory)");
    return text;
}

void MeasureTool::showSample(int number) {
    if (number < 0) return window_.statusBar()->clearMessage();
    const GroundProfile::Sample & sample = plot_->profile().samples.at(std::size_t(number));
    if (!std::isfinite(sample.height)) return window_.statusBar()->clearMessage();
    window_.statusBar()->showMessage(
        tr("%1 along the line, height %2").arg(lengthText(sample.distance), lengthText(sample.height)));
}

void MeasureTool::chooseProfile() {
    if (line_.size() < 2) return;
    const QString chosen = QFileDialog::getSaveFileName(&window_, tr("Save the profile"), "profile.csv",
                                                        tr("Tables (*.csv);;Pictures (*.png)"));
    if (!chosen.isEmpty()) saveProfile(chosen.toStdString());
}

bool MeasureTool::saveProfile(const std::string & path) {
    try {
        const QString suffix = QString::fromStdString(NBX::File::extensionName(path)).toLower();
        if (suffix != "csv" && suffix != "png")
            throw DataError(path + ": a profile is a table, .csv, or a picture, .png");
        checkOutputs(inputFiles(window_.scene().landscape), {{"the profile", path}});
        const std::string table = profileText(plot_->profile());
        QBuffer bytes;
        if (suffix == "csv") bytes.setData(table.data(), int(table.size()));
        if (suffix == "png" && !plot_->picture({s_profileWidth, s_profileHeight}).save(&bytes, "PNG"))
            throw DataError(path + ": the picture could not be encoded");
        NBX::AtomicFileWriter out(path);
        out.write(bytes.data().constData(), std::uint64_t(bytes.data().size()));
        out.commit();
    } catch (const std::exception & error) {
        window_.showFailure(tr("The profile was not saved"), QString::fromStdString(messageOf(error)));
        return false;
    }
    window_.statusBar()->showMessage(tr("Saved %1").arg(QString::fromStdString(path)), s_toldMilliseconds);
    return true;
}
