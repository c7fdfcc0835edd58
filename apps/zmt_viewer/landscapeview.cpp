// The life of the canvas first, then pictures, then motion: mouse and keys move the flight controller, and
// every movement asks for a picture. While something moves, and a quarter of a second longer, slow pictures
// let the geometry error grow, and the motion flag keeps the terrain's painter asking for more; the picture
// at rest has the error that was asked for.

#include "landscapeview.h"

#include "landscape/errors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <unordered_set>
#include <utility>

#include <QImage>
#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QMouseEvent>
#include <QOpenGLContext>
#include <QPixmap>
#include <QWheelEvent>

#include "clocktimer.h"
#include "windowcontextgl.h"

#include <nbx/data/atomicfilewriter.h>
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/image/image.h>
#include <nbx/object/nbxtime.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/texture/tiledlodtexture.h>
#include <zmt/core/terrain/texture/vector/vectortexture.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

namespace {

constexpr double s_pickTolerance = 4.0; ///< of features under the mouse, in pixels
constexpr double s_clickPixels = 4.0;   ///< by which the mouse moves in a drag

using Point = NBX::Vector3Base<double>;

constexpr int s_restMilliseconds = 250;
constexpr int s_flightMilliseconds = 16;
constexpr double s_longestFlightStep = 0.1;
constexpr double s_slowMilliseconds = 70.0;
constexpr double s_quickMilliseconds = 25.0;
constexpr double s_largestCoarseness = 10.0;
constexpr double s_wheelStep = 120.0;
constexpr double s_mebibyte = 1024.0 * 1024.0;
constexpr double s_calmSeconds = 0.25;
constexpr int s_overlayMargin = 12, s_overlayPadding = 9;

struct FlightKey {
    int key;
    FlightController::Flight flight;
};

const std::array s_flightKeys = {
    FlightKey{Qt::Key_W, {.forward = 1.0}},  FlightKey{Qt::Key_S, {.forward = -1.0}},
    FlightKey{Qt::Key_D, {.right = 1.0}},    FlightKey{Qt::Key_A, {.right = -1.0}},
    FlightKey{Qt::Key_E, {.up = 1.0}},       FlightKey{Qt::Key_Q, {.up = -1.0}},
    FlightKey{Qt::Key_Right, {.turn = 1.0}}, FlightKey{Qt::Key_Left, {.turn = -1.0}},
    FlightKey{Qt::Key_Up, {.tilt = 1.0}},    FlightKey{Qt::Key_Down, {.tilt = -1.0}},
};

bool isFlightKey(int key) {
    return std::any_of(s_flightKeys.begin(), s_flightKeys.end(),
                       [&](const FlightKey & known) { return known.key == key; });
}

/// Fills the widget, whatever size it gets.
QLabel * makePicture(QWidget * parent) {
    auto * label = new QLabel(parent);
    label->setObjectName("picture");
    label->setAttribute(Qt::WA_TransparentForMouseEvents);
    label->setScaledContents(true);
    label->hide();
    return label;
}

/// Null for none.
QImage imageOf(const NBX::SO<NBX::Image> & picture) {
    if (!picture || picture->numberOfLayers() < 3) return {};
    QImage image(picture->width(), picture->height(), QImage::Format_RGB32);
    const int layers = picture->numberOfLayers();
    for (int y = 0; y < image.height(); ++y) {
        // The lowest line of a picture is its first.
        const unsigned char * from = picture->lineComponentsU8(image.height() - 1 - y);
        auto * to = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x, from += layers)
            to[x] = qRgb(from[0], from[1], from[2]);
    }
    return image;
}

QString counted(std::uint64_t count, const QString & one, const QString & several) {
    return QLocale(QLocale::English).toString(qulonglong(count)) + " " + (count == 1 ? one : several);
}

QString mebibytes(std::uint64_t bytes) {
    return QLocale(QLocale::English).toString(double(bytes) / s_mebibyte, 'f', 1);
}

/// What all streamed files of the process take and do.
QStringList fileFigures() {
    using ZMT::CORE::AsyncFile;
    const auto used = [](const QString & name, std::uint64_t bytes, unsigned budget) {
        return LandscapeView::tr("%1 %2 of %3 MiB").arg(name, mebibytes(bytes)).arg(budget >> 20U);
    };
    const auto * main = NBX::MainMemoryManager::instance();
    const auto * graphics = NBX::GraphicsMemoryManager::instance();
    QStringList figures = {
        used(LandscapeView::tr("memory"), main->total(), main->getBudget()),
        used(LandscapeView::tr("graphics"), graphics->total(), graphics->getBudget()),
        counted(AsyncFile::pendingRequests(), LandscapeView::tr("request"), LandscapeView::tr("requests"))};
    if (AsyncFile::TotalLocalBytes() > 0)
        figures.append(LandscapeView::tr("%1 MiB read").arg(mebibytes(AsyncFile::TotalLocalBytes())));
    if (AsyncFile::TotalTransferedBytes() > 0)
        figures.append(
            LandscapeView::tr("%1 MiB received").arg(mebibytes(AsyncFile::TotalTransferedBytes())));
    return figures;
}

/// What the textures of all cities of the process take and do: those of how many nodes are in memory.
QStringList cityFigures() {
    using ZMT::CORE::TTTMemoryController;
    const auto controller = TTTMemoryController::getInstance();
    std::unordered_set<const void *> nodes;
    for (const auto & ref : controller->loadedNodes()->entries())
        nodes.insert(ref.node.operator->());
    return {LandscapeView::tr("city textures %1 of %2 MiB")
                .arg(mebibytes(controller->textureMemory()))
                .arg(TTTMemoryController::getMaxTextureMemory() >> 20U),
            counted(nodes.size(), LandscapeView::tr("node"), LandscapeView::tr("nodes")),
            counted(controller->pendingReads(), LandscapeView::tr("request"), LandscapeView::tr("requests"))};
}

/// One behind the other, in lines of at most `width` pixels where that is possible.
QString wrapped(const QStringList & figures, const QWidget & widget, int width) {
    QString text, line;
    for (const QString & figure : figures) {
        const QString longer = line.isEmpty() ? figure : line + "   " + figure;
        const bool fits = line.isEmpty() || widget.fontMetrics().horizontalAdvance(longer) <= width;
        if (!fits) text += line + "\n";
        line = fits ? longer : figure;
    }
    return text + line;
}

QLabel * makeOverlay(QWidget * parent) {
    auto * label = new QLabel(parent);
    label->setObjectName("overlay");
    label->setAttribute(Qt::WA_TransparentForMouseEvents);
    label->setStyleSheet("QLabel { color: white; background: rgba(20, 28, 36, 150); border-radius: 6px; "
                         "padding: 6px 9px; }");
    label->move(s_overlayMargin, s_overlayMargin);
    label->hide();
    return label;
}

} // namespace

LandscapeView::LandscapeView(QWidget * parent)
    : QOpenGLWidget(parent), scene_(new NBX::SceneThing),
      motion_(new NBX::ContextData<bool>("MotionFlag", false)), lookAt_(new NBX::LookAt),
      wireframe_(makeWireframe()), geometryError_(ZMT::CORE::TerrainPainterGLSettings::getGeometryError()),
      picture_(makePicture(this)), overlay_(makeOverlay(this)) {
    ClockTimer::start();
    WindowContextGL::prepareWidget(this);
    // What was drawn stays while redisplay is switched off.
    setUpdateBehavior(QOpenGLWidget::PartialUpdate);
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setMinimumSize(160, 120);
    camera_ = new NBX::Camera(lookAt_.get(), new NBX::Perspective(s_fieldOfView, 0.1, 1000.0));
    wireframe_->setEnableState(false);
    restTimer_.setSingleShot(true);
    connect(&restTimer_, &QTimer::timeout, this, &LandscapeView::rest);
    connect(&flightTimer_, &QTimer::timeout, this, &LandscapeView::flyOn);
}

/// The context goes with the base class; it must not call back into this one.
LandscapeView::~LandscapeView() {
    if (context()) disconnect(context(), nullptr, this, nullptr);
    freeCanvas();
}

void LandscapeView::initializeGL() {
    freeCanvas();
    connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, &LandscapeView::freeCanvas);
    const NBX::SO<WindowCanvasGL> canvas(new WindowCanvasGL(this));
    if (!canvas->create()) return;
    prepareCanvas(*canvas);
    canvas->append(scene_.get());
    canvas_ = canvas;
}

void LandscapeView::freeCanvas() {
    finer_ = nullptr;
    if (!canvas_) return;
    // Its canvas draws in a context beside that of the window.
    ZMT::CORE::VectorTexture::releaseSharedObjects();
    canvas_->destroy();
    canvas_ = nullptr;
}

void LandscapeView::resizeGL(int width, int height) {
    fitCanvas();
    flight_.setLens(s_fieldOfView, double(std::max(width, 1)) / std::max(height, 1));
    picture_->resize(width, height);
}

/// In pixels of the screen, which may be finer than those of windows.
void LandscapeView::fitCanvas() {
    const auto pixels = [&](int side) {
        return unsigned(std::max(1L, std::lround(side * devicePixelRatioF())));
    };
    const unsigned columns = pixels(width()), rows = pixels(height());
    if (!canvas_ || (canvas_->getWidth() == columns && canvas_->getHeight() == rows)) return;
    canvas_->setSize(columns, rows);
}

void LandscapeView::paintGL() {
    if (!canvas_) return;
    fitCanvas(); // the window may stand on another screen
    if (!landscape_ || !canvas_->isRedisplayEnabled()) {
        canvas_->paint();
        return;
    }
    placeCamera();
    const double coarseness = isMoving() ? coarseness_ : 1.0;
    ZMT::CORE::TerrainPainterGLSettings::setGeometryError(
        landscape_->geometryErrorFor(geometryError_ * coarseness));
    // While the view moves, as much as a picture may wait for.
    const bool hasNames =
        landscape_->prepare(*camera_, unsigned(canvas_->getWidth()), unsigned(canvas_->getHeight()), false);
    frames_.add([this] { canvas_->paint(); });
    if (!hasNames) canvas_->postForRedisplay(0.0);
    if (isMoving()) adaptCoarseness();
    showFigures();
    if (isComplete() || landscape_->isStreamed() || !landscape_->hasTerrain()) dropPicture();
    emit frameDrawn();
}

/// A slow picture is drawn coarser the next time, a quick one finer.
void LandscapeView::adaptCoarseness() {
    if (frames_.lastMilliseconds > s_slowMilliseconds) coarseness_ *= 1.5;
    if (frames_.lastMilliseconds < s_quickMilliseconds) coarseness_ /= 1.25;
    coarseness_ = std::clamp(coarseness_, 1.0, s_largestCoarseness);
}

void LandscapeView::placeCamera() {
    const auto [near, far] = flight_.clipDistances();
    lookAt_->setFrom(flight_.eye());
    lookAt_->setTo(flight_.eye() + flight_.forward());
    lookAt_->setUp(flight_.up());
    camera_->setProjection(new NBX::Perspective(s_fieldOfView, near, far));
}

void LandscapeView::setLandscape(const std::shared_ptr<Landscape> & landscape,
                                 const std::optional<View> & view) {
    stopFlying();
    setSamples(1);
    landscape_ = landscape;
    streams_.clear();
    scene_->clear();
    if (landscape_) {
        hiding_ = makeHidingSurface(landscape_->node());
        hiding_->setEnableState(wireframe_->isEnabled());
        for (NBX::RenderObj * object :
             {static_cast<NBX::RenderObj *>(camera_.get()), static_cast<NBX::RenderObj *>(motion_.get()),
              static_cast<NBX::RenderObj *>(hiding_.get()), static_cast<NBX::RenderObj *>(wireframe_.get()),
              static_cast<NBX::RenderObj *>(landscape_->node().get())})
            scene_->append(object);
        flight_.setGround(ground());
        if (view) goTo(*view);
    } else {
        flight_.setGround(FlightGround());
        overlay_->hide();
    }
    redraw();
}

void LandscapeView::keepPicture() {
    if (!landscape_) return;
    const QImage last = image();
    setLandscape(nullptr, {});
    if (last.isNull()) return;
    picture_->setPixmap(QPixmap::fromImage(last));
    picture_->setGeometry(rect());
    picture_->show();
}

QImage LandscapeView::image() const {
    return canvas_ && frames_.count > 0 ? imageOf(canvas_->snapshot()) : QImage();
}

bool LandscapeView::isPictureKept() const {
    return !picture_->isHidden();
}

void LandscapeView::shiftEye(const Point & offset) {
    const Point eye = flight_.eye() + offset;
    flight_.setView(eye, eye + flight_.forward());
}

void LandscapeView::dropPicture() {
    picture_->hide();
    picture_->clear();
}

void LandscapeView::place(const View & view) {
    const double aspect = double(std::max(width(), 1)) / std::max(height(), 1);
    const Viewpoint viewpoint = findViewpoint(view, landscape_->viewedGround(), aspect);
    tellBuriedEye(viewpoint, landscape_->viewedGround());
    flight_.setView(viewpoint.eye, viewpoint.aim);
}

void LandscapeView::lookFrom(const View & view) {
    place(view);
    dropPicture();
    redraw();
}

void LandscapeView::goTo(const View & view) {
    home_ = view;
    try {
        place(view);
    } catch (const UsageError & error) {
        writeError(error.what());
        goTo(View()); // which every ground has
    }
}

FlightGround LandscapeView::ground() const {
    const NBX::SO<ZMT::CORE::Terrain> terrain = landscape_->terrain();
    const double exaggeration = landscape_->exaggeration();
    const auto heightAt = [terrain, exaggeration](double x, double z) {
        const Point place = ZMT::CORE::GeoTransformation::nbx2geoTf(Point(x, 0.0, z));
        const double height = terrain->calculateHeight(place, true);
        if (terrain->isUndefinedHeightValue(height)) return -HUGE_VAL;
        return exaggeration * ZMT::CORE::GeoTransformation::geo2nbxTf(Point(0.0, height, 0.0)).y;
    };
    const auto distanceAlong = [landscape = std::weak_ptr<Landscape>(landscape_)](const NBX::Ray & ray) {
        const auto shown = landscape.lock();
        const auto hit = shown ? nearestHit(shown->cities(), ray) : std::nullopt;
        return hit ? hit->distance : HUGE_VAL;
    };
    return {landscape_->box(), heightAt, distanceAlong};
}

void LandscapeView::resetView() {
    if (!landscape_) return;
    emit taken();
    goTo(home_);
    noteMotion();
}

void LandscapeView::turnNorth() {
    if (!landscape_) return;
    emit taken();
    flight_.turnNorth();
    noteMotion();
}

QString LandscapeView::viewArguments() const {
    if (!landscape_) return {};
    QStringList numbers;
    for (const double number : viewCoordinates())
        numbers.append(QString::number(number, 'f', 3));
    const QString view = "--view " + numbers.join(",");
    const double exaggeration = landscape_->exaggeration();
    return exaggeration == 1.0 ? view : view + " --exaggeration " + QString::number(exaggeration);
}

/// The aim lies as far away as the landscape is large, so that millimetres give the direction.
std::array<double, 6> LandscapeView::viewCoordinates() const {
    const auto onMap = [exaggeration = landscape_->exaggeration()](const Point & p) {
        return ZMT::CORE::GeoTransformation::nbx2geoTf(Point(p.x, p.y / exaggeration, p.z));
    };
    const Point eye = onMap(flight_.eye());
    const Point aim = onMap(flight_.eye() + flight_.forward() * landscape_->box().diagonal().length());
    return {eye.x, eye.z, eye.y, aim.x, aim.z, aim.y};
}

void LandscapeView::setViewCoordinates(const std::array<double, 6> & c, bool isMoving) {
    if (!landscape_) return;
    const auto inScene = [exaggeration = landscape_->exaggeration()](double x, double y, double height) {
        const Point p = ZMT::CORE::GeoTransformation::geo2nbxTf(Point(x, height, y));
        return Point(p.x, p.y * exaggeration, p.z);
    };
    flight_.setView(inScene(c[0], c[1], c[2]), inScene(c[3], c[4], c[5]));
    if (isMoving) return noteMotion();
    dropPicture();
    redraw();
}

void LandscapeView::setExaggeration(double exaggeration) {
    if (!landscape_) return;
    landscape_->setExaggeration(exaggeration);
    flight_.setGround(ground());
    noteMotion();
}

void LandscapeView::setGeometryError(double pixels) {
    geometryError_ = pixels;
    redraw();
}

void LandscapeView::setWireframe(bool enable) {
    wireframe_->setEnableState(enable);
    if (hiding_) hiding_->setEnableState(enable);
    redraw();
}

void LandscapeView::redraw() {
    if (canvas_) canvas_->postForRedisplay(0.0);
}

void LandscapeView::noteMotion() {
    dropPicture();
    motion_->setValue(true);
    restTimer_.start(s_restMilliseconds);
    redraw();
    point();
}

void LandscapeView::point() {
    if (pointer_ && drag_ == Drag::None) emit pointed(*pointer_);
}

void LandscapeView::rest() {
    if (flightTimer_.isActive()) return;
    motion_->setValue(false);
    redraw();
    point();
}

bool LandscapeView::isComplete() const {
    return landscape_ && canvas_ && frames_.count > 0 && !canvas_->redisplayPending() && !isMoving();
}

QStringList LandscapeView::frameFigures() const {
    const QLocale locale(QLocale::English);
    const double memory = ZMT::CORE::TiledLODTexture::usedTextureMemory() / s_mebibyte;
    QStringList figures = {tr("%1 ms").arg(locale.toString(frames_.lastMilliseconds, 'f', 1))};
    if (landscape_->hasTerrain())
        figures.append({counted(frames_.drawn.patches, tr("patch"), tr("patches")),
                        counted(frames_.drawn.triangles, tr("triangle"), tr("triangles"))});
    if (memory > 0.0)
        figures.append(tr("%1 MiB textures, %2 pending")
                           .arg(locale.toString(memory, 'f', 1),
                                locale.toString(ZMT::CORE::TiledLODTexture::pendingRequests())));
    if (!canvas_->redisplayPending()) figures.append(tr("complete"));
    return figures;
}

int LandscapeView::figureWidth() const {
    return width() - 2 * (s_overlayMargin + s_overlayPadding) - besideFigures_;
}

/// In lines.
QStringList LandscapeView::streamFigures() const {
    const int room = figureWidth();
    QStringList lines;
    if (!landscape_->streamedFiles().empty()) lines.append(wrapped(fileFigures(), *overlay_, room));
    if (!landscape_->cities().empty()) lines.append(wrapped(cityFigures(), *overlay_, room));
    return lines;
}

/// Some times a second, so that they can be read while they change; and in the last picture.
void LandscapeView::lookAtStreams() {
    const double now = NBX::NBXTime::now();
    if (!streams_.isEmpty() && canvas_->redisplayPending() && now - streamsTime_ < s_calmSeconds) return;
    streamsTime_ = now;
    streams_ = streamFigures();
}

void LandscapeView::showFigures() {
    if (!landscape_) return;
    lookAtStreams();
    const int room = figureWidth();
    QString text = wrapped(frameFigures(), *overlay_, room);
    for (const QString & line : streams_)
        text += "\n" + line;
    if (text == overlay_->text() && overlay_->isVisible()) return;
    overlay_->setText(text);
    overlay_->adjustSize();
    overlay_->show();
}

void LandscapeView::setSamples(unsigned samples) {
    samples_ = samples;
    finer_ = nullptr;
    if (samples > 1 && canvas_ && landscape_)
        finer_ = std::make_unique<FinerTextures>(*canvas_, *landscape_, samples);
    redraw();
}

void LandscapeView::savePicture(const std::string & path) {
    NBX::AtomicFileWriter out(path);
    if (!canvas_) throw DataError("there is no picture to save");
    makeCurrent();
    const auto drawAgain = [&] {
        if (samples_ > 1) canvas_->paint();
    };
    writePicture(sampledPicture(*canvas_, *camera_, samples_, drawAgain), out, path);
    out.commit();
}

QPointF LandscapeView::placeInPicture(const QPointF & place) const {
    return {2.0 * place.x() / std::max(width(), 1) - 1.0, 1.0 - 2.0 * place.y() / std::max(height(), 1)};
}

std::optional<Point> LandscapeView::groundAt(const QPointF & place) const {
    if (!landscape_ || !landscape_->hasTerrain()) return std::nullopt;
    const QPointF p = placeInPicture(place);
    auto hit = flight_.pick(flight_.ray(p.x(), p.y()));
    if (!hit) return std::nullopt;
    hit->y /= landscape_->exaggeration();
    return ZMT::CORE::GeoTransformation::nbx2geoTf(*hit);
}

std::optional<LandscapeView::Seen> LandscapeView::seenAt(const QPointF & place) const {
    if (!landscape_) return std::nullopt;
    const QPointF p = placeInPicture(place);
    const NBX::Ray ray = flight_.ray(p.x(), p.y());
    const auto ground = landscape_->hasTerrain() ? flight_.pick(ray) : std::nullopt;
    const auto hit = nearestHit(landscape_->cities(), ray);
    if (hit && (!ground || hit->distance < (*ground - ray.getOrigin()).length()))
        return Seen{hit->place, hit->model, false};
    const auto onMap = ground ? groundAt(place) : std::nullopt;
    if (!onMap) return std::nullopt;
    return Seen{*onMap, nullptr, true, featuresAt(p, *onMap)};
}

std::vector<Overlays::Feature> LandscapeView::featuresAt(const QPointF & inPicture, const Point & geo) const {
    const Overlays & overlays = std::as_const(*landscape_).overlays();
    if (overlays.empty() || !canvas_) return {};
    const unsigned columns = unsigned(canvas_->getWidth()), rows = unsigned(canvas_->getHeight());
    const Overlays::Pixel pixel{0.5 * (inPicture.x() + 1.0) * columns, 0.5 * (inPicture.y() + 1.0) * rows,
                                columns, rows};
    return overlays.featuresAt(*camera_, pixel, geo, landscape_->exaggeration(),
                               s_pickTolerance * devicePixelRatioF());
}

void LandscapeView::mousePressEvent(QMouseEvent * event) {
    if (!landscape_ || drag_ != Drag::None) return;
    emit taken();
    drag_ = event->button() == Qt::LeftButton ? Drag::Orbit : Drag::Pan;
    if (drag_ == Drag::Orbit) press_ = event->position();
    const QPointF place = placeInPicture(event->position());
    flight_.grab(place.x(), place.y());
}

void LandscapeView::mouseMoveEvent(QMouseEvent * event) {
    const QPointF place = placeInPicture(event->position());
    if (drag_ != Drag::None && event->buttons() == Qt::NoButton) drag_ = Drag::None;
    pointer_ = event->position();
    if (drag_ == Drag::None) return point();
    // A hand that clicks is not quite still.
    if (press_ && (event->position() - *press_).manhattanLength() < s_clickPixels) return;
    press_.reset();
    if (drag_ == Drag::Orbit)
        flight_.orbitTo(place.x(), place.y());
    else
        flight_.panTo(place.x(), place.y());
    noteMotion();
}

void LandscapeView::mouseReleaseEvent(QMouseEvent * event) {
    const auto pressed = std::exchange(press_, {});
    if (event->buttons() == Qt::NoButton) drag_ = Drag::None;
    if (pressed && event->button() == Qt::LeftButton) emit clicked(*pressed);
    point();
}

void LandscapeView::leaveEvent(QEvent * event) {
    pointer_.reset();
    emit pointedNowhere();
    QOpenGLWidget::leaveEvent(event);
}

void LandscapeView::wheelEvent(QWheelEvent * event) {
    event->accept();
    pointer_ = event->position();
    if (!landscape_ || event->angleDelta().y() == 0) return;
    emit taken();
    const QPointF place = placeInPicture(event->position());
    flight_.zoom(event->angleDelta().y() / s_wheelStep, place.x(), place.y());
    noteMotion();
}

std::vector<std::pair<QString, QString>> LandscapeView::controls() {
    return {{tr("Left drag"), tr("Turn round the place under the mouse")},
            {tr("Right or middle drag"), tr("Shift the ground under the mouse")},
            {tr("Wheel"), tr("Nearer to the place under the mouse, or away")},
            {tr("W, S, A, D"), tr("Fly forwards, backwards, left, right")},
            {tr("E, Q"), tr("Fly up, down")},
            {tr("Arrows"), tr("Turn and tilt")},
            {tr("Shift"), tr("Fly faster")}};
}

void LandscapeView::keyPressEvent(QKeyEvent * event) {
    isFast_ = event->modifiers().testFlag(Qt::ShiftModifier);
    if (!isFlightKey(event->key()) || !landscape_) {
        QOpenGLWidget::keyPressEvent(event);
        return;
    }
    if (event->isAutoRepeat()) return;
    emit taken();
    keys_.insert(event->key());
    if (flightTimer_.isActive()) return;
    lastFlight_ = NBX::NBXTime::now();
    flightTimer_.start(s_flightMilliseconds);
}

void LandscapeView::keyReleaseEvent(QKeyEvent * event) {
    isFast_ = event->modifiers().testFlag(Qt::ShiftModifier);
    if (event->isAutoRepeat()) return;
    if (keys_.count(event->key()) > 0) flyOn();
    keys_.erase(event->key());
    if (keys_.empty()) stopFlying();
}

/// The releases of keys would go elsewhere.
void LandscapeView::focusOutEvent(QFocusEvent * event) {
    stopFlying();
    QOpenGLWidget::focusOutEvent(event);
}

FlightController::Flight LandscapeView::flightOfKeys() const {
    FlightController::Flight sum;
    for (const FlightKey & known : s_flightKeys) {
        if (keys_.count(known.key) == 0) continue;
        sum.forward += known.flight.forward;
        sum.right += known.flight.right;
        sum.up += known.flight.up;
        sum.turn += known.flight.turn;
        sum.tilt += known.flight.tilt;
    }
    sum.isFast = isFast_;
    return sum;
}

/// A slow picture does not make the next step a leap.
void LandscapeView::flyOn() {
    const double now = NBX::NBXTime::now();
    const double seconds = std::min(now - lastFlight_, s_longestFlightStep);
    lastFlight_ = now;
    const FlightController::Flight flight = flightOfKeys();
    if (flight.isNone()) return;
    flight_.fly(flight, seconds);
    noteMotion();
}

void LandscapeView::stopFlying() {
    keys_.clear();
    if (!flightTimer_.isActive()) return;
    flightTimer_.stop();
    restTimer_.start(s_restMilliseconds);
}
