#pragma once

#include <array>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <QImage>
#include <QOpenGLWidget>
#include <QStringList>
#include <QTimer>

#include <nbx/object/so.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>

#include "landscape/landscape.h"
#include "landscape/picture.h"
#include "landscape/viewpoint.h"
#include "scene/flightcontroller.h"
#include "windowcanvasgl.h"

class QLabel;

/// Shows a landscape and lets the user move through it: drag with the left button to turn, with the right or
/// middle one to shift, wheel to zoom, W, A, S, D, Q, E and the arrow keys to fly, faster with shift.
///
/// Draws on demand alone: after a change, and when the canvas was asked for a redisplay, by the clock of the
/// process. While the view moves
/// the flag "MotionFlag" is true in the scene; some time after the last move the picture is drawn again
/// without it.
class LandscapeView : public QOpenGLWidget {
    Q_OBJECT
public:
    explicit LandscapeView(QWidget * parent = nullptr);
    ~LandscapeView() override;

    /// Shows another landscape, or with null nothing. `view` says from where; without it the camera stays.
    void setLandscape(const std::shared_ptr<Landscape> & landscape, const std::optional<View> & view);
    const std::shared_ptr<Landscape> & landscape() const { return landscape_; }
    /// Lets go of the landscape, whose scene must not be drawn any more, but keeps its last picture in sight
    /// until one of the next landscape is complete, or is moved; or is drawn, where it is read while it is
    /// looked at. Does nothing where none is shown.
    void keepPicture();
    /// Whether such a picture lies over what is drawn.
    bool isPictureKept() const;

    /// Moves the eye by `offset`, whatever lies there: the scene got another origin. No landscape is shown.
    void shiftEye(const NBX::Vector3Base<double> & offset);

    /// Back to the view that was set with the landscape, at the present exaggeration.
    void resetView();
    /// Turns until north is up; what the middle of the picture shows stays there.
    void turnNorth();
    /// The view in the words of the command line, "--view EX,EY,EZ,AX,AY,AZ", with the exaggeration where
    /// there is one; empty without a landscape.
    QString viewArguments() const;
    /// The same numbers as they are, as `View::coordinates`; there is a landscape.
    std::array<double, 6> viewCoordinates() const;
    /// Goes there, as far as the ground allows; nothing without a landscape. While it moves pictures may be
    /// coarse.
    void setViewCoordinates(const std::array<double, 6> & coordinates, bool isMoving);
    /// Looks from `view`. Throws `UsageError` as `findViewpoint` does; there is a landscape.
    void lookFrom(const View & view);
    /// What was drawn last; null without a picture.
    QImage image() const;
    void setExaggeration(double exaggeration);
    /// Allowed error of the geometry at rest, in pixels. While the view moves a slow picture gets a larger
    /// one.
    void setGeometryError(double pixels);
    double geometryError() const { return geometryError_; }
    void setWireframe(bool enable);
    /// So many pixels beside the figures, at the right, are taken.
    void setRoomBesideFigures(int pixels) { besideFigures_ = pixels; }
    /// Draws again, after something in the scene was changed.
    void redraw();

    /// Textures as fine as pictures of so many samples of a pixel need, until it is given 1 again.
    void setSamples(unsigned samples);
    /// The picture in a file, JPEG where its name says so and PNG otherwise, without what lies over it, by as
    /// many samples as were set. Throws `DataError` or `NBX::IOException`.
    void savePicture(const std::string & path);

    /// Whether a landscape is shown and nothing is to be refined.
    bool isComplete() const;
    bool isMoving() const { return motion_->getValue(); }
    const FlightController & flight() const { return flight_; }
    NBX::GLCanvas * canvas() const { return canvas_.get(); }

    const Frames & frames() const { return frames_; }

    /// What mouse and keys do here, for people: each with what it does.
    static std::vector<std::pair<QString, QString>> controls();

    /// What is seen at a place of the widget, in map coordinates: x, height without exaggeration, y.
    struct Seen {
        NBX::Vector3Base<double> place;
        /// A model of a city of the landscape; null for the ground, and for what no table names.
        const ZMT::CORE::CityModels::Model * model;
        bool isGround;
        /// Of overlays, within some pixels, the top and nearest first; of the ground alone.
        std::vector<Overlays::Feature> features = {};
    };
    /// Where the mouse is; none outside.
    const std::optional<QPointF> & pointer() const { return pointer_; }
    std::optional<Seen> seenAt(const QPointF & place) const;
    /// The ground there, whatever stands on it; that below cities without a terrain is not seen.
    std::optional<NBX::Vector3Base<double>> groundAt(const QPointF & place) const;

signals:
    void frameDrawn();
    /// Something else may lie under the mouse at `place`: one of both has moved.
    void pointed(const QPointF & place);
    void pointedNowhere();
    /// The left button was pressed and released at `place`, without a drag.
    void clicked(const QPointF & place);
    /// The user moves the camera.
    void taken();

protected:
    void initializeGL() override;
    void resizeGL(int width, int height) override;
    void paintGL() override;
    void mousePressEvent(QMouseEvent * event) override;
    void mouseMoveEvent(QMouseEvent * event) override;
    void mouseReleaseEvent(QMouseEvent * event) override;
    void wheelEvent(QWheelEvent * event) override;
    void keyPressEvent(QKeyEvent * event) override;
    void keyReleaseEvent(QKeyEvent * event) override;
    void focusOutEvent(QFocusEvent * event) override;
    void leaveEvent(QEvent * event) override;

private:
    enum class Drag { None, Orbit, Pan };

    void freeCanvas();
    void fitCanvas();
    void place(const View & view);
    void goTo(const View & view);
    void placeCamera();
    FlightGround ground() const;
    FlightController::Flight flightOfKeys() const;
    void noteMotion();
    void flyOn();
    void stopFlying();
    void rest();
    void adaptCoarseness();
    void showFigures();
    QStringList frameFigures() const;
    int figureWidth() const;
    QStringList streamFigures() const;
    void lookAtStreams();
    void point();
    void dropPicture();
    std::vector<Overlays::Feature> featuresAt(const QPointF & inPicture,
                                              const NBX::Vector3Base<double> & geo) const;
    QPointF placeInPicture(const QPointF & place) const;

    NBX::SO<WindowCanvasGL> canvas_;
    NBX::SO<NBX::SceneThing> scene_;
    NBX::SO<NBX::ContextData<bool>> motion_;
    NBX::SO<NBX::LookAt> lookAt_;
    NBX::SO<NBX::Camera> camera_;
    NBX::SO<NBX::Attribute> wireframe_;
    NBX::SO<NBX::SceneThing> hiding_; ///< what lies behind the edges; null without a landscape
    std::shared_ptr<Landscape> landscape_;

    FlightController flight_;
    View home_;
    Drag drag_ = Drag::None;
    std::optional<QPointF> press_; ///< where the left button was pressed; none once that is a drag
    std::set<int> keys_;           ///< that are held down and fly
    bool isFast_ = false;
    std::optional<QPointF> pointer_; ///< where the mouse is; none outside
    double lastFlight_ = 0.0;
    double geometryError_;
    unsigned samples_ = 1;                 ///< of each pixel of a saved picture
    std::unique_ptr<FinerTextures> finer_; ///< for more than one
    double coarseness_ = 1.0;              ///< factor of the geometry's error while the view moves

    QTimer restTimer_, flightTimer_;
    Frames frames_;
    QStringList streams_;      ///< figures of what is read while it is looked at; empty without such
    double streamsTime_ = 0.0; ///< when these were taken
    QLabel * picture_;         ///< the one that is kept; hidden without one
    int besideFigures_ = 0;
    QLabel * overlay_;
};
