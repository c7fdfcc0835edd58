// Signs follow each picture that was drawn; panels and entries show the look of the landscape, and what the
// user changes of it there goes to the landscape first and is then noted as an edit.

#include "mapmenu.h"

#include <cmath>
#include <exception>
#include <iterator>
#include <utility>

#include <QDateTime>
#include <QDockWidget>
#include <QEvent>
#include <QInputDialog>
#include <QMenu>
#include <QMenuBar>
#include <QStatusBar>

#include "landscape/errors.h"
#include "landscapeview.h"
#include "map/northarrow.h"
#include "map/scalebar.h"
#include "map/sunpanel.h"
#include "map/tintpanel.h"
#include "scene/mapscale.h"
#include "scene/roundnumbers.h"
#include "viewerwindow.h"

#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

constexpr int s_signMargin = 12; ///< from the border of the picture
constexpr double s_usualContours = 40.0, s_largestInterval = 1e5;
constexpr int s_decimals = 3; ///< of intervals

/// As fields of the panel have it.
double roundedDegrees(double degrees) {
    return std::round(degrees * 1e4) / 1e4;
}

/// Now, over the middle of the ground, where that is known.
SunMoment presentMoment(const Landscape & landscape) {
    SunMoment moment;
    const qint64 minute = QDateTime::currentSecsSinceEpoch() / 60;
    moment.time = 60.0 * double(minute);
    const auto & raster = *landscape.grid().rasterData();
    const auto system = ZMT::RASTER::CoordinateSystem::of(landscape.reference());
    const auto place =
        system
            ? system->toLonLat({(raster.minX() + raster.maxX()) / 2.0, (raster.minY() + raster.maxY()) / 2.0})
            : std::nullopt;
    if (!place) return moment;
    moment.longitude = roundedDegrees(place->longitude);
    moment.latitude = roundedDegrees(place->latitude);
    moment.zone = SunPanel::usualZone(moment.longitude);
    return moment;
}

/// The lowest and the highest of the ground.
std::pair<double, double> heightsOf(const Landscape & landscape) {
    const ZMT::CORE::GridData & grid = landscape.grid();
    return {grid.boundingBox().getLLF().y + grid.origin().y, grid.boundingBox().getURB().y + grid.origin().y};
}

} // namespace

MapMenu::MapMenu(ViewerWindow & window)
    : QObject(&window), window_(window), bar_(new ScaleBar(window.view())),
      arrow_(new NorthArrow(window.view())), menu_(new QMenu(tr("M&ap"), &window)), sun_(new SunPanel),
      tints_(new TintPanel) {
    window.menuBar()->insertMenu(window.menuBar()->actions().value(2), menu_);
    QAction * north =
        menu_->addAction(tr("&North up"), tr("Shift+R"), window.view(), &LandscapeView::turnNorth);
    arrow_->setToolTip(tr("North; a click, or %1, turns it up").arg(north->shortcut().toString()));
    signs_ = menu_->addAction(tr("&Scale bar and north arrow"));
    signs_->setCheckable(true);
    signs_->setChecked(true);

    makeGrids();
    contours_ = menu_->addAction(tr("&Contour lines..."), Qt::Key_C, this, &MapMenu::chooseContours);
    makeTints();
    makeSun();

    window.view()->installEventFilter(this);
    connect(arrow_, &NorthArrow::clicked, window.view(), &LandscapeView::turnNorth);
    connect(signs_, &QAction::toggled, this, &MapMenu::showSigns);
    connect(window.view(), &LandscapeView::frameDrawn, this, &MapMenu::showSigns);
}

MapMenu::~MapMenu() = default;

void MapMenu::makeGrids() {
    const struct {
        QString words, key;
        MapGrid::Kind kind;
    } entries[] = {{tr("Map &grid"), tr("Shift+G"), MapGrid::Kind::Map},
                   {tr("Grid of &longitude and latitude"), tr("Shift+L"), MapGrid::Kind::Degrees}};
    for (std::size_t i = 0; i < std::size(grids_); ++i) {
        grids_[i] = menu_->addAction(entries[i].words);
        grids_[i]->setShortcut(entries[i].key);
        grids_[i]->setCheckable(true);
        connect(grids_[i], &QAction::triggered, this,
                [this, kind = entries[i].kind](bool isOn) { takeGrid(isOn ? kind : MapGrid::Kind::None); });
    }
}

void MapMenu::takeGrid(MapGrid::Kind kind) {
    if (!window_.view()->landscape()) return;
    LandscapeLook look = window_.look();
    look.grid = kind;
    window_.setLook(look);
    if (MapGrid::of(*window_.view()->landscape()) != kind)
        window_.statusBar()->showMessage(tr("Nobody knows the coordinate system of the terrain"));
    window_.noteEdit(tr("map grid"));
}

void MapMenu::chooseContours() {
    const auto & landscape = window_.view()->landscape();
    if (!landscape || !landscape->hasTerrain()) return;
    const auto [lowest, highest] = heightsOf(*landscape);
    const double range = highest - lowest;
    const double usual = range > 0.0 ? roundNumberFrom(range / s_usualContours) : 1.0;
    bool isAccepted = false;
    const double interval = QInputDialog::getDouble(
        &window_, tr("Contour lines"), tr("Metres from one to the next, 0 for none:"),
        landscape->contours().value_or(usual), 0.0, s_largestInterval, s_decimals, &isAccepted);
    if (isAccepted) window_.setContours(interval > 0.0 ? std::optional(interval) : std::nullopt);
}

/// Its entry shows it, with the keys going there, and hides it.
void MapMenu::addPanel(const QString & name, const QString & words, QWidget * panel, const QString & key) {
    QDockWidget * dock = window_.addPanel(name, QString(words).remove('&'), panel, Qt::LeftDockWidgetArea);
    dock->hide();
    QAction * toggle = dock->toggleViewAction();
    toggle->setText(words);
    toggle->setShortcut(key);
    menu_->addAction(toggle);
    connect(toggle, &QAction::triggered, panel, [panel](bool isShown) {
        if (isShown) panel->setFocus();
    });
}

void MapMenu::makeSun() {
    addPanel("sunPanel", tr("S&un"), sun_, tr("T"));
    connect(sun_, &SunPanel::changed, this, &MapMenu::takeSun);
}

void MapMenu::makeTints() {
    addPanel("tintPanel", tr("C&olours of heights"), tints_, tr("Shift+C"));
    connect(tints_, &TintPanel::changed, this, &MapMenu::takeTints);
    connect(tints_, &TintPanel::failed, this,
            [this](const QString & message) { window_.showFailure(tr("The table of colours"), message); });
}

void MapMenu::takeTints() {
    const auto & landscape = window_.view()->landscape();
    if (!landscape) return;
    landscape->setTints(tints_->tints());
    window_.view()->redraw();
    window_.noteEdit(tr("colours of heights"));
}

void MapMenu::takeSun() {
    const auto & landscape = window_.view()->landscape();
    if (!landscape) return;
    try {
        landscape->setSun(sun_->moment());
    } catch (const std::exception & error) {
        window_.showFailure(tr("The light cannot be made"), QString::fromStdString(messageOf(error)));
        return showLook();
    }
    window_.view()->redraw();
    window_.noteEdit(tr("sun"));
}

void MapMenu::showLook() {
    const auto & landscape = window_.view()->landscape();
    if (!landscape) return;
    const MapGrid::Kind grid = MapGrid::of(*landscape);
    grids_[0]->setChecked(grid == MapGrid::Kind::Map);
    grids_[1]->setChecked(grid == MapGrid::Kind::Degrees);
    const auto [lowest, highest] = heightsOf(*landscape);
    tints_->setTints(landscape->tints(), lowest, highest);
    tints_->setEnabled(landscape->hasTerrain());
    sun_->setMoment(landscape->sun());
    sun_->setProblem(!landscape->hasTerrain()  ? tr("There is no ground to shine on")
                     : !landscape->canSetSun() ? tr("The light of this terrain is baked into its file")
                                               : QString());
}

void MapMenu::setEnabled(bool isEnabled) {
    const std::shared_ptr<Landscape> landscape = isEnabled ? window_.view()->landscape() : nullptr;
    for (QAction * action : menu_->actions())
        action->setEnabled(isEnabled);
    for (QAction * action : {grids_[0], grids_[1], contours_})
        action->setEnabled(landscape && landscape->hasTerrain());
    for (QWidget * panel : {static_cast<QWidget *>(sun_), static_cast<QWidget *>(tints_)})
        panel->setEnabled(isEnabled);
    scale_ = landscape ? std::make_unique<MapScale>(landscape->reference()) : nullptr;
    if (landscape && landscape != known_.lock()) sun_->setClock(presentMoment(*landscape));
    if (landscape) known_ = landscape;
    if (landscape) showLook();
    showSigns();
}

bool MapMenu::eventFilter(QObject * watched, QEvent * event) {
    if (event->type() == QEvent::Resize) placeSigns();
    return QObject::eventFilter(watched, event);
}

void MapMenu::showSigns() {
    const LandscapeView & view = *window_.view();
    const bool isOn = scale_ && view.landscape() && signs_->isChecked();
    bar_->setScale(isOn ? scale_->metresPerPixel(view.flight(), view.height()) : std::nullopt);
    arrow_->setHeading(view.flight().heading());
    arrow_->setVisible(isOn);
    window_.view()->setRoomBesideFigures(isOn ? arrow_->width() + s_signMargin : 0);
    placeSigns();
}

void MapMenu::placeSigns() {
    const QSize size = window_.view()->size();
    bar_->move(s_signMargin, size.height() - s_signMargin - bar_->height());
    arrow_->move(size.width() - s_signMargin - arrow_->width(), s_signMargin);
}
