#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QMainWindow>
#include <QTimer>

#include "landscape/landscape.h"
#include "landscape/reports.h"
#include "landscape/viewpoint.h"
#include "landscapeloader.h"
#include "program/samplefiles.h"
#include "scene/scene.h"

namespace ZMT::RASTER {
class CoordinateSystem;
}
class BookmarkMenu;
class ControlPanel;
class FileNotices;
class LandscapeView;
class MapMenu;
class MeasureTool;
class QDockWidget;
class QAction;
class TrackBar;
class QLabel;
class QMenu;
class QProgressDialog;
class SceneKeeper;
class Theme;

/// The window: a landscape, the panel beside it, menus and a status bar. Files are opened by the menu, or by
/// being dropped.
class ViewerWindow : public QMainWindow {
    Q_OBJECT
public:
    /// `options` and `view` are used for what is opened. Nothing is loaded yet.
    ViewerWindow(const LandscapeOptions & options, const View & view);
    ~ViewerWindow() override;

    /// Loads in the background: a raster of one band becomes the terrain, images come on top, cities beside
    /// it; lines and areas are for `use`. With a terrain or a city in `options` no file is needed. A scene is
    /// opened by itself, by `scenes()`.
    void open(const std::vector<std::string> & files, VectorUse use = VectorUse::Overlay);
    /// Loads what was read from `file`, in the place of what is shown, and comes back to its looks and its
    /// view. False where something else is loading.
    bool open(const Scene & scene, const std::string & file);
    /// Loads the landscape that comes with the program, which gives way to whatever is opened next, and says
    /// what that may be. Nothing where it is missing.
    void openSample(const std::optional<SampleFiles> & sample);
    /// Opens what is shown anew, and swaps when that is there; the view stays.
    void reload();
    /// Draws contour lines so many metres from each to the next, in the background; none without. The view
    /// and the looks of all else stay.
    void setContours(const std::optional<double> & interval);
    /// Saves the picture; a failure is shown.
    bool savePicture(const std::string & path);
    /// As if the user had chosen it in the menu.
    void setWireframe(bool enable);
    void setPatches(bool enable);
    /// Where the user is asked for files; empty for the folder of the process.
    void setStartFolder(const std::string & folder) { startFolder_ = folder; }

    LandscapeView * view() const { return view_; }
    ControlPanel * panel() const { return panel_; }
    TrackBar * tracks() const { return tracks_; }
    LandscapeLoader * loader() { return &loader_; }
    SceneKeeper * scenes() const { return scenes_; }
    BookmarkMenu * bookmarks() const { return bookmarks_; }
    MeasureTool * measuring() const { return measuring_; }
    MapMenu * map() const { return map_; }
    Theme * theme() const { return theme_; }
    /// What is shown, and the bookmarks; there is a landscape.
    Scene scene() const;
    /// Of what is shown; there is a landscape.
    LandscapeLook look() const;
    void setLook(const LandscapeLook & look);
    /// The user has changed that; `what` says of which kind it was.
    void noteEdit(const QString & what);
    /// A panel that can be moved and closed, with an object name that the state of the window is stored by.
    QDockWidget * addPanel(const QString & name, const QString & title, QWidget * content,
                           Qt::DockWidgetArea area);
    void showFailure(const QString & title, const QString & message);
    /// Names what is shown, and `file`, that of its scene, which may be empty.
    void showTitle(const std::string & file = "");
    /// The path or URL that what is shown is called by; empty without anything.
    std::string shownFile() const { return mainFile(options_); }
    /// The last thing that went wrong; empty without one.
    const QString & lastError() const { return lastError_; }

signals:
    /// What `open` was given is shown now.
    void opened(const std::vector<std::string> & files);
    /// The user has changed `look()`; `what` says of which kind that was.
    void edited(const QString & what);
    /// Something else that a scene has was changed.
    void changed();

protected:
    /// A load that goes on is cancelled.
    void closeEvent(QCloseEvent * event) override;
    void dragEnterEvent(QDragEnterEvent * event) override;
    void dropEvent(QDropEvent * event) override;

private:
    void makeHint();
    void showHint();
    void makePanel();
    void makeActions();
    void showHelp();
    void makeTrackMenu();
    void showTracks(Landscape * landscape);
    void makeLayerKeys();
    void chooseFiles();
    void choosePicture();
    void copyView();

    bool mayReplaceBy(const std::vector<std::string> & files);
    void load(const std::vector<std::string> & files, bool isReload, VectorUse use);
    void setBusy(bool isBusy);
    void showProgressDialog();
    void showProgress(const QString & title, const QString & text, double share);
    void closeProgress();
    void showReports();
    void showLoaded(const std::shared_ptr<Landscape> & landscape, const LandscapeOptions & options);
    void showScene(const Scene & scene, const std::shared_ptr<Landscape> & landscape);
    void goBack();
    void showLandscape(const std::shared_ptr<Landscape> & landscape, const std::optional<View> & view);

    void setPatchColors(bool enable);
    void showPlace(const QPointF & place);
    void showFeatures(std::vector<Overlays::Feature> features);
    void showFeature(std::size_t number);
    void showNextFeature();
    void refineHeight();
    /// Whether the height under the mouse is the finest there is, or why not.
    enum class Detail { Fine, Slow, Missing };
    void showGround(Detail detail = Detail::Fine);
    QString placeText() const;
    QString globeText() const;
    void takeSystem(const ZMT::RASTER::GeoReference & reference);
    void chooseUrl();

    Reports reports_;
    const LandscapeOptions given_; ///< at the start
    LandscapeOptions options_;     ///< of what is shown
    View startView_;
    const bool isLonLat_; ///< whether places are told in longitude and latitude alone

    /// What was shown before a load began; it comes back when that fails.
    struct Before {
        std::shared_ptr<Landscape> landscape;
        NBX::Vector3Base<double> origin;
        bool isReload = false;
        double exaggeration = 1.0; ///< that of its light
        std::optional<double> contours = {};
    } before_;
    std::optional<Scene> opening_;           ///< a scene that is loaded; none for files
    std::optional<LandscapeOptions> sample_; ///< that of the sample, while it is loaded
    bool isSample_ = false;                  ///< it is shown
    void keepLooks(const Before & before, Landscape & landscape);
    /// A light that cannot be made is told.
    void tryLight(const std::function<void()> & change);
    LandscapeLoader loader_;           ///< works on `before_`
    std::vector<std::string> loading_; ///< what `open` was given last
    std::string startFolder_;

    LandscapeView * view_;
    ControlPanel * panel_;
    TrackBar * tracks_;
    QLabel * hint_;
    QLabel * place_;
    FileNotices * notices_;
    QAction * open_ = nullptr;
    QAction * reload_ = nullptr;
    QAction * save_ = nullptr;
    QAction * copyView_ = nullptr;
    QAction * openUrl_ = nullptr;
    SceneKeeper * scenes_ = nullptr;
    BookmarkMenu * bookmarks_ = nullptr;
    MeasureTool * measuring_ = nullptr;
    MapMenu * map_ = nullptr;
    Theme * theme_ = nullptr;
    bool isSettingLook_ = false; ///< what the panel tells is no wish of the user
    QAction * wireframe_ = nullptr;
    QAction * patches_ = nullptr;
    QMenu * trackMenu_ = nullptr;
    QProgressDialog * progress_ = nullptr;
    QString lastError_;

    /// In map coordinates, what the mouse points at; none where it does not.
    std::optional<NBX::Vector3Base<double>> ground_;
    std::vector<Overlays::Feature> features_; ///< under the mouse
    /// Which of them stands out.
    struct FeatureName {
        const Overlays::Overlay * overlay = nullptr; ///< null for none
        std::int64_t id = 0;
        std::size_t number = 0; ///< in `features_`
    } feature_;
    QString model_; ///< which of a city that is, as it is told; empty for the ground
    /// Of what is shown; null where nobody knows where that is on the globe.
    std::unique_ptr<ZMT::RASTER::CoordinateSystem> system_;
    QString systemName_;      ///< in which they are told; empty where that is not known
    QTimer refinement_;       ///< until finer heights are asked for
    double groundTime_ = 0.0; ///< since when the mouse has been there
};
