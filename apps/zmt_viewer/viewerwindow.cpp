// Panel, actions and keys are made first and connected to the view; below that a load runs from `open` to
// `showLoaded`, or to `goBack`, which shows again what was there before.

#include "viewerwindow.h"

#include <algorithm>
#include <exception>

#include <QAction>
#include <QClipboard>
#include <QCloseEvent>
#include <QDockWidget>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QGuiApplication>
#include <QInputDialog>
#include <QLabel>
#include <QLocale>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressDialog>
#include <QScrollArea>
#include <QScrollBar>
#include <QStatusBar>
#include <QVBoxLayout>

#include "bookmarkmenu.h"
#include "bookmarkpanel.h"
#include "controlpanel.h"
#include "filenotices.h"
#include "helpsheet.h"
#include "landscape/errors.h"
#include "landscape/picture.h"
#include "landscape/readfailures.h"
#include "landscapeview.h"
#include "layerpanel.h"
#include "mapmenu.h"
#include "measuretool.h"
#include "scenekeeper.h"
#include "theme.h"
#include "trackbar.h"

#include <nbx/data/locator.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/patience.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

using ZMT::CORE::GeoTransformation;
using ZMT::CORE::PatchInspectorGL;
using ZMT::CORE::TerrainPainterGLSettings;
using ZMT::CORE::GRID::AsyncGridTerrain;
using ZMT::CORE::GRID::GridTerrain;

using Point = NBX::Vector3Base<double>;

constexpr int s_progressSteps = 1000;
constexpr int s_progressDelay = 300;
constexpr int s_messageMilliseconds = 8000;
constexpr int s_refinementMilliseconds = 200, s_askMilliseconds = 100;
constexpr std::size_t s_layerKeys = 9;
constexpr int s_hintMargin = 12, s_scaleBarRoom = 38; ///< that of its letters besides

/// `content` in a frame that may be smaller.
QScrollArea * scrolled(QWidget * content) {
    auto * area = new QScrollArea;
    area->setFrameShape(QFrame::NoFrame);
    area->setWidgetResizable(true);
    area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    const int width = std::max(content->minimumWidth(), content->minimumSizeHint().width());
    area->setMinimumWidth(width + area->verticalScrollBar()->sizeHint().width());
    area->setWidget(content);
    return area;
}

std::vector<std::string> localFiles(const QMimeData * data) {
    std::vector<std::string> files;
    for (const QUrl & url : data->urls())
        if (url.isLocalFile()) files.push_back(url.toLocalFile().toStdString());
    return files;
}

/// The model, and the file that it came from.
QString nameOf(const ZMT::CORE::CityModels::Model & model) {
    return QString::fromStdString(oneLine(model.name + " of " + model.source));
}

/// What an edit of it is called.
QString editNameOf(LayerEntry::Kind kind) {
    using Kind = LayerEntry::Kind;
    return kind == Kind::City      ? ViewerWindow::tr("city")
           : kind == Kind::Track   ? ViewerWindow::tr("track")
           : kind == Kind::Flood   ? ViewerWindow::tr("flood")
           : kind == Kind::Overlay ? ViewerWindow::tr("overlays")
                                   : ViewerWindow::tr("layers");
}

/// Whether the last read of some part of this file failed.
bool cannotBeRead(const std::string & file) {
    const auto failures = readFailures();
    return std::any_of(failures.begin(), failures.end(),
                       [&](const ReadFailure & failure) { return failure.file == file; });
}

} // namespace

ViewerWindow::ViewerWindow(const LandscapeOptions & options, const View & view)
    : given_(options), options_(options), startView_(view), isLonLat_(view.isLonLat),
      view_(new LandscapeView), panel_(new ControlPanel), tracks_(new TrackBar), hint_(new QLabel(view_)),
      place_(new QLabel), notices_(new FileNotices) {
    PatchInspectorGL::registerAll(false);
    setCentralWidget(view_);
    setAcceptDrops(true);
    makeHint();
    // A small window shows the beginning of what does not fit.
    place_->setMinimumWidth(1);
    // Names of models come from files.
    place_->setTextFormat(Qt::PlainText);
    statusBar()->addPermanentWidget(notices_);
    statusBar()->addPermanentWidget(place_);
    makePanel();
    addToolBar(Qt::BottomToolBarArea, tracks_);
    connect(tracks_, &TrackBar::moved, view_, &LandscapeView::redraw);
    makeActions();
    bookmarks_ = new BookmarkMenu(*this);
    measuring_ = new MeasureTool(*this);
    map_ = new MapMenu(*this);
    scenes_ = new SceneKeeper(*this);
    theme_ = new Theme(*this);
    makeLayerKeys();
    setBusy(false);
    showTitle();
    connect(view_, &LandscapeView::pointed, this, &ViewerWindow::showPlace);
    connect(view_, &LandscapeView::pointedNowhere, this, [this] {
        ground_.reset();
        showFeatures({});
        showGround();
    });
    refinement_.setSingleShot(true);
    connect(&refinement_, &QTimer::timeout, this, &ViewerWindow::refineHeight);
    connect(notices_, &FileNotices::reloadWanted, this, &ViewerWindow::reload);
    connect(notices_, &FileNotices::tryAgainWanted, this, [] {
        const ZMT::CORE::Patience patience(GridTerrain::patienceOfPeople);
        ZMT::CORE::TTTMemoryController::getInstance()->tryAgain();
    });
    connect(view_, &LandscapeView::frameDrawn, this, &ViewerWindow::showReports);
    connect(&loader_, &LandscapeLoader::progressed, this, &ViewerWindow::showProgress);
    connect(&loader_, &LandscapeLoader::loaded, this, &ViewerWindow::showLoaded);
    connect(&loader_, &LandscapeLoader::failed, this, [this](const QString & message) {
        goBack();
        showFailure(tr("The file cannot be shown"), message);
    });
    connect(&loader_, &LandscapeLoader::canceled, this, [this] {
        goBack();
        statusBar()->showMessage(tr("Loading was cancelled"), s_messageMilliseconds);
    });
}

ViewerWindow::~ViewerWindow() = default;

QDockWidget * ViewerWindow::addPanel(const QString & name, const QString & title, QWidget * content,
                                     Qt::DockWidgetArea area) {
    auto * dock = new QDockWidget(title);
    dock->setObjectName(name);
    dock->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetClosable);
    // So that panels that stand below each other do not make the window higher.
    dock->setWidget(area == Qt::BottomDockWidgetArea ? content : scrolled(content));
    addDockWidget(area, dock);
    return dock;
}

void ViewerWindow::makeHint() {
    hint_->setObjectName("hint");
    hint_->setTextFormat(Qt::PlainText);
    hint_->setAttribute(Qt::WA_TransparentForMouseEvents);
    hint_->setWordWrap(true);
    (new QVBoxLayout(view_))->addWidget(hint_);
    showHint();
}

/// What may be opened, where nothing is shown; on the sample in short, above the scale bar.
void ViewerWindow::showHint() {
    const bool isBelow = isSample_ && view_->landscape();
    hint_->setVisible(isBelow || !view_->landscape());
    hint_->setText(isBelow ? tr("Mount Everest, a sample\n"
                                "Drop a height raster, a city or a scene to see your own\n"
                                "Ctrl+O opens files, F1 tells keys and mouse")
                           : tr("Drop files here, or open them with Ctrl+O\n\n"
                                "a height raster, a streaming terrain, a city, a scene\n"
                                "then images, vector files and tracks, which lie on the ground\n\n"
                                "F1 tells keys and mouse"));
    hint_->setAlignment(Qt::AlignCenter);
    const int bottom = isBelow ? fontMetrics().height() + s_scaleBarRoom : s_hintMargin;
    view_->layout()->setContentsMargins(s_hintMargin, s_hintMargin, s_hintMargin, bottom);
    hint_->setStyleSheet(isBelow ? "QLabel { color: white; background: rgba(20, 28, 36, 150); "
                                   "border-radius: 6px; padding: 6px 12px; }"
                                 : "QLabel { color: #33475b; font-size: 16px; }");
    view_->layout()->setAlignment(hint_, isBelow ? Qt::AlignBottom : Qt::AlignVCenter);
}

void ViewerWindow::makePanel() {
    panel_->setMinimumWidth(230);
    addPanel("panel", tr("Landscape"), panel_, Qt::RightDockWidgetArea);
    connect(panel_->layers(), &LayerPanel::changed, this, [this](LayerEntry::Kind kind) {
        view_->redraw();
        noteEdit(editNameOf(kind));
    });
    connect(panel_, &ControlPanel::exaggerationChanged, this, [this](double exaggeration) {
        view_->setExaggeration(exaggeration);
        noteEdit(tr("exaggeration"));
    });
    connect(panel_, &ControlPanel::geometryErrorChanged, view_, &LandscapeView::setGeometryError);
    connect(panel_, &ControlPanel::memoryChanged, this, [this](const MemoryBudgets & budgets) {
        applyMemoryBudgets(budgets);
        view_->redraw();
    });
    connect(panel_, &ControlPanel::textureErrorChanged, this, [this](double pixels) {
        TerrainPainterGLSettings::setTextureError(pixels);
        view_->redraw();
    });
}

void ViewerWindow::makeActions() {
    QMenu * file = menuBar()->addMenu(tr("&File"));
    file->setObjectName("file");
    open_ = file->addAction(tr("&Open..."), QKeySequence::Open, this, &ViewerWindow::chooseFiles);
    openUrl_ = file->addAction(tr("Open &URL..."), tr("Ctrl+U"), this, &ViewerWindow::chooseUrl);
    openUrl_->setObjectName("openUrl");
    reload_ = file->addAction(tr("&Reload"), Qt::Key_F5, this, &ViewerWindow::reload);
    reload_->setObjectName("reload");
    save_ = file->addAction(tr("Save &picture..."), tr("Ctrl+E"), this, &ViewerWindow::choosePicture);
    file->addSeparator();
    file->addAction(tr("&Close"), Qt::Key_Escape, this, &QWidget::close);

    QMenu * view = menuBar()->addMenu(tr("&View"));
    view->setObjectName("view");
    view->addAction(tr("&Reset view"), Qt::Key_R, view_, &LandscapeView::resetView);
    wireframe_ = view->addAction(tr("&Wireframe"));
    wireframe_->setShortcut(Qt::Key_F);
    wireframe_->setCheckable(true);
    connect(wireframe_, &QAction::toggled, view_, &LandscapeView::setWireframe);
    patches_ = view->addAction(tr("&Patches in colours"));
    patches_->setShortcut(Qt::Key_P);
    patches_->setCheckable(true);
    connect(patches_, &QAction::toggled, this, &ViewerWindow::setPatchColors);
    view->addAction(tr("&Layers"), Qt::Key_L, this, [this] {
        findChild<QDockWidget *>("panel")->show();
        panel_->layers()->takeKeys(*view_);
    });
    view->addAction(tr("F&lood"), Qt::Key_G, panel_->layers(), &LayerPanel::toggleFlood);
    view->addAction(tr("Raise the flood"), Qt::Key_PageUp, this, [this] { panel_->layers()->moveFlood(1); });
    view->addAction(tr("Lower the flood"), Qt::Key_PageDown, this,
                    [this] { panel_->layers()->moveFlood(-1); });
    view->addAction(tr("&Next feature under the mouse"), Qt::Key_N, this, &ViewerWindow::showNextFeature);
    copyView_ = view->addAction(tr("&Copy as --view"), QKeySequence::Copy, this, &ViewerWindow::copyView);
    view->addSeparator();
    view->addAction(findChild<QDockWidget *>("panel")->toggleViewAction());
    makeTrackMenu();
    QMenu * help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("&Keys and mouse"), this, &ViewerWindow::showHelp)
        ->setShortcuts({QKeySequence(Qt::Key_F1), QKeySequence(tr("?"))});
}

void ViewerWindow::showHelp() {
    if (auto * shown = findChild<HelpSheet *>()) return shown->activateWindow();
    (new HelpSheet(*this))->show();
}

void ViewerWindow::makeTrackMenu() {
    trackMenu_ = menuBar()->addMenu(tr("&Track"));
    trackMenu_->setObjectName("track");
    TrackBar * const bar = tracks_;
    trackMenu_->addAction(tr("&Play or pause"), Qt::Key_Space, tracks_, &TrackBar::togglePlay);
    trackMenu_->addAction(tr("&Slower"), Qt::Key_Comma, bar, [bar] { bar->changeSpeed(-1); });
    trackMenu_->addAction(tr("&Faster"), Qt::Key_Period, bar, [bar] { bar->changeSpeed(1); });
    trackMenu_->addAction(tr("&Earlier"), Qt::Key_J, bar, [bar] { bar->move(-1); });
    trackMenu_->addAction(tr("&Later"), Qt::Key_K, bar, [bar] { bar->move(1); });
    trackMenu_->addAction(tr("To the s&tart"), Qt::Key_Home, bar, [bar] { bar->move(-100); });
    trackMenu_->addAction(tr("To the e&nd"), Qt::Key_End, bar, [bar] { bar->move(100); });
    showTracks(nullptr);
}

/// Keys without a track do nothing.
void ViewerWindow::showTracks(Landscape * landscape) {
    tracks_->setTracks(landscape ? &landscape->tracks() : nullptr);
    trackMenu_->menuAction()->setVisible(tracks_->player() != nullptr);
}

/// What would load while something loads, and what needs a landscape.
void ViewerWindow::setBusy(bool isBusy) {
    for (QAction * action : {open_, openUrl_})
        action->setEnabled(!isBusy);
    scenes_->setEnabled(!isBusy && view_->landscape());
    bookmarks_->setEnabled(!isBusy && view_->landscape());
    measuring_->setEnabled(!isBusy && view_->landscape() && view_->landscape()->hasTerrain());
    map_->setEnabled(!isBusy && view_->landscape());
    for (QAction * action : {reload_, save_, copyView_})
        action->setEnabled(!isBusy && view_->landscape());
}

void ViewerWindow::makeLayerKeys() {
    for (std::size_t number = 0; number < s_layerKeys; ++number) {
        auto * action = new QAction(tr("Switch a layer, the lowest first, on or off"), this);
        action->setShortcut(QKeySequence(int(Qt::Key_1 + number)));
        connect(action, &QAction::triggered, this, [this, number] { panel_->layers()->toggle(number); });
        addAction(action);
    }
}

void ViewerWindow::chooseFiles() {
    std::vector<std::string> files;
    for (const QString & name : QFileDialog::getOpenFileNames(
             this, tr("Open scenes, height rasters, images, vector files and cities"),
             QString::fromStdString(startFolder_)))
        files.push_back(name.toStdString());
    if (!files.empty()) open(files);
}

void ViewerWindow::chooseUrl() {
    const QString text = QInputDialog::getText(
        this, tr("Open URL"), tr("A streaming terrain, an image or a city:"), QLineEdit::Normal, "https://");
    const std::string url = text.trimmed().toStdString();
    if (text.isEmpty()) return;
    if (isUrl(url)) return open({url});
    showFailure(tr("The URL cannot be opened"), tr("%1 is no URL of a web server").arg(text.trimmed()));
}

void ViewerWindow::choosePicture() {
    const QString name = QFileDialog::getSaveFileName(this, tr("Save picture"), "landscape.png",
                                                      tr("Pictures (*.png *.jpg *.jpeg)"));
    if (!name.isEmpty()) savePicture(name.toStdString());
}

void ViewerWindow::copyView() {
    const QString text = view_->viewArguments();
    if (text.isEmpty()) return;
    QGuiApplication::clipboard()->setText(text);
    statusBar()->showMessage(tr("Copied %1").arg(text), s_messageMilliseconds);
}

bool ViewerWindow::savePicture(const std::string & path) {
    try {
        checkOutputs(inputFiles(options_), {{"the picture", path}});
        if (const auto & landscape = view_->landscape())
            for (const CityLayer & city : std::as_const(*landscape).cities())
                checkOutputs(city.pagingFiles(), {{"the picture", path}});
        checkPictureName("the picture", path);
        view_->savePicture(path);
    } catch (const std::exception & error) {
        showFailure(tr("The picture was not saved"), QString::fromStdString(error.what()));
        return false;
    }
    statusBar()->showMessage(tr("Saved %1").arg(QString::fromStdString(path)), s_messageMilliseconds);
    return true;
}

void ViewerWindow::closeEvent(QCloseEvent * event) {
    if (!scenes_->mayLeave()) return event->ignore();
    loader_.cancel();
    closeProgress();
    event->accept();
}

void ViewerWindow::dragEnterEvent(QDragEnterEvent * event) {
    if (!loader_.isRunning() && !localFiles(event->mimeData()).empty()) event->acceptProposedAction();
}

void ViewerWindow::dropEvent(QDropEvent * event) {
    event->acceptProposedAction();
    open(localFiles(event->mimeData()));
}

void ViewerWindow::open(const std::vector<std::string> & files, VectorUse use) {
    if (std::none_of(files.begin(), files.end(), isSceneFile)) {
        if (files.empty() && shownFile().empty()) return;
        if (loader_.isRunning() || mayReplaceBy(files)) load(files, false, use);
    } else if (files.size() == 1) {
        scenes_->open(files.front());
    } else {
        showFailure(tr("The scene was not opened"), tr("A scene is opened by itself, without other files"));
    }
}

/// Asks what is to become of the changes of a scene that another terrain ends.
bool ViewerWindow::mayReplaceBy(const std::vector<std::string> & files) {
    const bool isReplaced =
        view_->landscape() && (isSample_ || LandscapeLoader::includeTerrain(options_, files));
    return !isReplaced || scenes_->mayLeave();
}

bool ViewerWindow::open(const Scene & scene, const std::string & file) {
    if (loader_.isRunning()) return false;
    opening_ = scene;
    // What it does not store.
    opening_->landscape.key = options_.key;
    opening_->landscape.tree.threads = options_.tree.threads;
    load({file}, false, VectorUse::Overlay);
    return true;
}

Scene ViewerWindow::scene() const {
    Scene scene;
    scene.landscape = options_;
    scene.look = look();
    scene.view = view_->viewCoordinates();
    scene.errors.geometry = view_->geometryError();
    scene.errors.texture = TerrainPainterGLSettings::getTextureError();
    scene.wireframe = wireframe_->isChecked();
    scene.patches = patches_->isChecked();
    const Tracks & tracks = std::as_const(*view_->landscape()).tracks();
    if (!tracks.empty()) scene.trackTime = tracks.time();
    scene.bookmarks = bookmarks_->panel()->bookmarks();
    return scene;
}

LandscapeLook ViewerWindow::look() const {
    return LandscapeLook::of(*view_->landscape());
}

void ViewerWindow::setLook(const LandscapeLook & look) {
    const auto & landscape = view_->landscape();
    if (!landscape) return;
    isSettingLook_ = true;
    const NBX::SO<NBX::SceneThing> before = landscape->node();
    tryLight([&] { look.applyTo(*landscape); });
    // The first overlay brings another one.
    if (landscape->node() != before) view_->setLandscape(landscape, {});
    showFeatures({});
    panel_->setLandscape(landscape.get());
    view_->setExaggeration(look.exaggeration);
    map_->showLook();
    isSettingLook_ = false;
}

void ViewerWindow::tryLight(const std::function<void()> & change) {
    try {
        change();
    } catch (const std::exception & error) {
        showFailure(tr("The light cannot be made"), QString::fromStdString(messageOf(error)));
    }
}

void ViewerWindow::noteEdit(const QString & what) {
    if (!isSettingLook_ && view_->landscape()) emit edited(what);
}

void ViewerWindow::openSample(const std::optional<SampleFiles> & sample) {
    if (!sample || loader_.isRunning()) return;
    sample_ = given_;
    sample_->terrain = sample->heights;
    sample_->images = {sample->image};
    sample_->fillVoids = true;
    load({}, false, VectorUse::Overlay);
}

void ViewerWindow::reload() {
    if (view_->landscape()) load({}, true, VectorUse::Overlay);
}

void ViewerWindow::setContours(const std::optional<double> & interval) {
    const std::optional<double> before = options_.contours;
    if (!view_->landscape() || loader_.isRunning() || interval == before) return;
    options_.contours = interval;
    load({}, false, VectorUse::Overlay);
    before_.contours = before;
}

/// Nothing is drawn meanwhile: the origin of the scene belongs to the process, and the loader sets it. The
/// last picture stays in sight.
void ViewerWindow::load(const std::vector<std::string> & files, bool isReload, VectorUse use) {
    if (loader_.isRunning()) {
        statusBar()->showMessage(tr("Another file is being loaded"), s_messageMilliseconds);
        return;
    }
    before_ = {view_->landscape(), GeoTransformation::nbx2geoOffset(), isReload, options_.exaggeration,
               options_.contours};
    view_->keepPicture();
    panel_->setLandscape(nullptr);
    showTracks(nullptr);
    notices_->setLandscape(nullptr);
    ground_.reset();
    showFeatures({});
    showGround();
    setBusy(true);
    hint_->hide();
    lastError_.clear();
    if (before_.landscape) {
        options_.exaggeration = before_.landscape->exaggeration();
        options_.flood = before_.landscape->flood().options();
    }
    loading_ = files;
    const bool leavesSample = isSample_ && !files.empty();
    if (opening_ || sample_)
        loader_.start(opening_ ? opening_->landscape : *sample_, {});
    else
        loader_.start(leavesSample ? given_ : options_, files,
                      isReload || leavesSample ? nullptr : before_.landscape, use);
    showProgressDialog();
}

/// It does not hold up the window, which may be closed meanwhile; what loads is disabled.
void ViewerWindow::showProgressDialog() {
    progress_ = new QProgressDialog(tr("Loading"), tr("Cancel"), 0, s_progressSteps, this);
    progress_->setWindowTitle(tr("Loading"));
    progress_->setAutoReset(false);
    progress_->setAutoClose(false);
    progress_->setMinimumDuration(s_progressDelay);
    progress_->setMinimumWidth(420);
    connect(progress_, &QProgressDialog::canceled, this, [this] {
        loader_.cancel();
        statusBar()->showMessage(tr("Cancelling ..."));
    });
    progress_->setValue(0);
}

void ViewerWindow::showProgress(const QString & title, const QString & text, double share) {
    if (!progress_ || progress_->wasCanceled()) return;
    progress_->setLabelText(text.isEmpty() ? title : title + "\n" + text);
    progress_->setValue(int(share * s_progressSteps));
}

void ViewerWindow::closeProgress() {
    if (progress_) {
        progress_->hide();
        progress_->deleteLater();
    }
    progress_ = nullptr;
    statusBar()->clearMessage();
}

void ViewerWindow::showLoaded(const std::shared_ptr<Landscape> & landscape,
                              const LandscapeOptions & options) {
    closeProgress();
    const Before before = std::exchange(before_, {});
    const std::optional<Scene> scene = std::exchange(opening_, {});
    const bool isNewSample = std::exchange(sample_, {}).has_value();
    isSample_ = isNewSample || (isSample_ && loading_.empty());
    const bool isSameTerrain = !scene && before.landscape && options.terrain == options_.terrain;
    options_ = options;
    // More layers do not change the light.
    if (landscape == before.landscape) options_.exaggeration = before.exaggeration;
    if (!scene && landscape != before.landscape && before.landscape) keepLooks(before, *landscape);
    // The same file may begin elsewhere by now.
    if (isSameTerrain) view_->shiftEye(before.origin - GeoTransformation::nbx2geoOffset());
    isSettingLook_ = true;
    if (scene) {
        showScene(*scene, landscape);
    } else {
        const View start = isNewSample ? parseView("closeup") : startView_;
        showLandscape(landscape, isSameTerrain ? std::nullopt : std::optional(start));
        // Coordinates of one terrain mean nothing on the next.
        if (startView_.coordinates) startView_ = View();
    }
    isSettingLook_ = false;
    showTitle();
    view_->setFocus();
    emit opened(loading_);
    if (!scene && options_.contours != before.contours) emit changed();
}

void ViewerWindow::showScene(const Scene & scene, const std::shared_ptr<Landscape> & landscape) {
    tryLight([&] { scene.look.applyTo(*landscape); });
    if (scene.trackTime) landscape->tracks().setTime(*scene.trackTime);
    View view;
    view.coordinates = scene.view;
    showLandscape(landscape, view);
    panel_->setErrors(scene.errors.geometry, scene.errors.texture);
    view_->setGeometryError(scene.errors.geometry);
    TerrainPainterGLSettings::setTextureError(scene.errors.texture);
    setWireframe(scene.wireframe);
    setPatches(scene.patches);
    bookmarks_->panel()->setBookmarks(scene.bookmarks);
}

/// Those that are still there look as before.
void ViewerWindow::keepLooks(const Before & before, Landscape & landscape) {
    const std::size_t known = before.landscape->cities().size();
    for (std::size_t i = 0; i < std::min(known, landscape.cities().size()); ++i) {
        const CityLayer & old = before.landscape->cities()[i];
        CityLayer & city = landscape.cities()[i];
        if (old.name() != city.name()) continue;
        city.setShown(old.isShown());
        city.setLook(old.look());
    }
    if (before.isReload) MapGrid::show(landscape, MapGrid::of(*before.landscape));
    const LandscapeLook look = LandscapeLook::of(*before.landscape);
    landscape.overlays().setLooks(look.overlays);
    if (!before.isReload) return;
    look.applyLayersTo(landscape);
    landscape.tracks().setTime(before.landscape->tracks().time());
    landscape.tracks().setLooks(look.tracks);
    landscape.flood().setOpacity(look.floodOpacity);
    landscape.setTints(look.tints);
    tryLight([&] { landscape.setSun(look.sun); });
}

/// To what was shown before the load. What else was reported belongs to the failure that is told.
void ViewerWindow::goBack() {
    closeProgress();
    reports_.take();
    const Before before = std::exchange(before_, {});
    opening_.reset();
    sample_.reset();
    options_.exaggeration = before.exaggeration;
    options_.contours = before.contours;
    if (!before.landscape) {
        showHint();
        return setBusy(false);
    }
    GeoTransformation::setNBXOrigin(before.origin);
    showLandscape(before.landscape, {});
}

void ViewerWindow::showLandscape(const std::shared_ptr<Landscape> & landscape,
                                 const std::optional<View> & view) {
    takeSystem(landscape->reference());
    view_->setLandscape(landscape, view);
    panel_->setLandscape(landscape.get());
    showTracks(landscape.get());
    notices_->setLandscape(landscape);
    setBusy(false);
    setPatchColors(patches_->isChecked());
    showHint();
}

void ViewerWindow::showFailure(const QString & title, const QString & message) {
    lastError_ = QString::fromStdString(NBX::Locator::shownIn(message.toStdString()));
    statusBar()->showMessage(lastError_);
    auto * box = new QMessageBox(QMessageBox::Warning, title, title, QMessageBox::Ok, this);
    box->setInformativeText(lastError_);
    box->setTextFormat(Qt::PlainText);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

/// What went wrong while the picture was drawn, or on a thread that works for it.
void ViewerWindow::showReports() {
    const auto messages = reports_.take();
    if (messages.empty()) return;
    lastError_ = QString::fromStdString(NBX::Locator::shownIn(messages.front()));
    statusBar()->showMessage(lastError_);
}

void ViewerWindow::setWireframe(bool enable) {
    wireframe_->setChecked(enable);
}

void ViewerWindow::setPatches(bool enable) {
    patches_->setChecked(enable);
}

void ViewerWindow::setPatchColors(bool enable) {
    PatchInspectorGL::registerAll(enable);
    if (!view_->landscape()) return;
    view_->landscape()->hideColors(enable);
    view_->redraw();
}

/// What is in sight answers at once. Once the mouse rests, the finest heights are asked for, which nobody
/// waits for: they come, or are told to be slow, or to be missing.
void ViewerWindow::showPlace(const QPointF & place) {
    auto seen = view_->seenAt(place);
    ground_.reset();
    if (seen) ground_ = seen->place;
    model_ = seen && seen->model ? nameOf(*seen->model) : QString();
    showFeatures(seen ? std::move(seen->features) : std::vector<Overlays::Feature>());
    showGround();
    refinement_.stop();
    if (!seen || !seen->isGround || !view_->landscape()->isStreamed()) return;
    groundTime_ = NBX::NBXTime::now();
    refinement_.start(s_refinementMilliseconds);
}

/// The one that stood out goes on to do so, as long as it is among them.
void ViewerWindow::showFeatures(std::vector<Overlays::Feature> features) {
    const auto isShown = [this](const Overlays::Feature & feature) {
        return feature.overlay == feature_.overlay && feature.picked.feature.id == feature_.id;
    };
    const auto same = std::find_if(features.begin(), features.end(), isShown);
    features_ = std::move(features);
    showFeature(same == features_.end() ? 0 : std::size_t(same - features_.begin()));
}

void ViewerWindow::showFeature(std::size_t number) {
    const Overlays::Feature * shown = number < features_.size() ? &features_[number] : nullptr;
    panel_->layers()->showFeatures(features_, number);
    feature_ = shown ? FeatureName{shown->overlay, shown->picked.feature.id, number} : FeatureName();
    if (view_->landscape() && view_->landscape()->highlight(shown, ground_.value_or(Point())))
        view_->redraw();
}

void ViewerWindow::showNextFeature() {
    if (!features_.empty()) showFeature((feature_.number + 1) % features_.size());
}

void ViewerWindow::refineHeight() {
    const auto & landscape = view_->landscape();
    const auto terrain = NBX::soCast<AsyncGridTerrain>(landscape ? landscape->terrain() : nullptr);
    if (!terrain || !ground_) return;
    const auto answer = terrain->heightWithin(0.0, *ground_);
    if (!terrain->isUndefinedHeightValue(answer.height)) ground_->y = answer.height;
    if (!answer.isCoarse) return showGround(Detail::Fine);
    const bool hasFailed = cannotBeRead(shownName(NBX::StringUtils::WString2Utf8String(terrain->fileName())));
    const bool isAwaited = NBX::NBXTime::now() - groundTime_ < GridTerrain::patienceOfPeople;
    showGround(isAwaited ? Detail::Fine : hasFailed ? Detail::Missing : Detail::Slow);
    if (isAwaited || !hasFailed) refinement_.start(s_askMilliseconds);
}

void ViewerWindow::showGround(Detail detail) {
    if (!ground_) return place_->clear();
    QString text = placeText() + tr("   height %1").arg(QLocale::c().toString(ground_->y, 'f', 1));
    if (!systemName_.isEmpty()) text += "   " + systemName_;
    if (const QString globe = globeText(); !isLonLat_ && !globe.isEmpty()) text += "   " + globe;
    if (!model_.isEmpty()) text += "   " + model_;
    if (detail == Detail::Slow) text += tr(" (coarse: finer heights are slow to come)");
    if (detail == Detail::Missing) text += tr(" (coarse: finer heights cannot be read)");
    place_->setText(text);
}

QString ViewerWindow::placeText() const {
    if (const QString globe = globeText(); isLonLat_ && !globe.isEmpty()) return globe;
    const QLocale locale = QLocale::c();
    return tr("x %1   y %2").arg(locale.toString(ground_->x, 'f', 1), locale.toString(ground_->z, 'f', 1));
}

/// Empty where nobody knows.
QString ViewerWindow::globeText() const {
    const QLocale locale = QLocale::c();
    const auto place = system_ ? system_->toLonLat({ground_->x, ground_->z}) : std::nullopt;
    if (!place) return {};
    return tr("longitude %1   latitude %2")
        .arg(locale.toString(place->longitude, 'f', 6), locale.toString(place->latitude, 'f', 6));
}

/// Of the coordinates that are shown: of the map, or of the globe.
void ViewerWindow::takeSystem(const ZMT::RASTER::GeoReference & reference) {
    using ZMT::RASTER::CoordinateSystem;
    system_ = CoordinateSystem::of(reference);
    const bool isLonLat = isLonLat_ && system_;
    const std::string code = isLonLat ? "EPSG:4326" : CoordinateSystem::code(reference.wkt);
    systemName_ = QString::fromStdString(code.empty() ? reference.name : code);
    place_->setToolTip(
        tr("Map coordinates: %1").arg(QString::fromStdString(CoordinateSystem::describe(reference))));
}

void ViewerWindow::showTitle(const std::string & file) {
    QString name = QString::fromStdString(fileNameOf(file.empty() ? shownFile() : file));
    if (!file.empty()) name += "[*]";
    setWindowTitle(view_->landscape() ? tr("%1 - zmt").arg(name) : tr("zmt"));
}
