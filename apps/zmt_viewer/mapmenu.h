#pragma once

#include <memory>

#include <QObject>

#include "scene/mapgrid.h"

class MapScale;
class NorthArrow;
class QAction;
class QDockWidget;
class QMenu;
class ScaleBar;
class SunPanel;
class TintPanel;
class ViewerWindow;

/// What makes a map of a window's picture: a scale bar and a north arrow over it, panels for the sun and the
/// colours of heights, and a menu with keys.
class MapMenu : public QObject {
    Q_OBJECT
public:
    /// The window owns it, and has its menus.
    explicit MapMenu(ViewerWindow & window);
    ~MapMenu() override;

    /// Whether there is anything to look at, which may be another landscape than before.
    void setEnabled(bool isEnabled);
    /// What of the look of the landscape stands in panels, without telling.
    void showLook();
    SunPanel * sun() const { return sun_; }
    TintPanel * tints() const { return tints_; }

protected:
    bool eventFilter(QObject * watched, QEvent * event) override;

private:
    void showSigns();
    void placeSigns();
    void makeGrids();
    void takeGrid(MapGrid::Kind kind);
    void chooseContours();
    void makeSun();
    void takeSun();
    void makeTints();
    void takeTints();
    void addPanel(const QString & name, const QString & words, QWidget * panel, const QString & key);

    ViewerWindow & window_;
    ScaleBar * bar_;
    NorthArrow * arrow_;
    std::unique_ptr<MapScale> scale_; ///< null without a landscape
    std::weak_ptr<Landscape> known_;  ///< for whose place the clock of the sun was set
    QMenu * menu_;
    SunPanel * sun_;
    TintPanel * tints_;
    QAction * grids_[2] = {}; ///< of the map, and of degrees; checked while they show
    QAction * contours_ = nullptr;
    QAction * signs_; ///< checked while bar and arrow show
};
