#pragma once

#include <string>
#include <vector>

#include <QObject>

#include <nbx/math/vector3base.h>

class ProfilePlot;
class QAction;
class QDockWidget;
class QLabel;
class QMenu;
class ViewerWindow;

/// Measures on the ground of a window: clicks, or a key for the place under the mouse, make a line, and a
/// panel tells how long it is on the map and along the ground, what it climbs, its profile, and the area
/// that it surrounds when it is closed.
class MeasureTool : public QObject {
    Q_OBJECT
public:
    using Point = NBX::Vector3Base<double>;

    /// The window owns it, and has its menus.
    explicit MeasureTool(ViewerWindow & window);

    /// Whether there is ground, which is another one than before: the line goes.
    void setEnabled(bool isEnabled);
    /// In map coordinates.
    void add(const Point & place);
    /// Another line, in the panel, which opens. The places have no heights yet.
    void measureAlong(const std::vector<Point> & places);
    void removeLast();
    void clear();
    const std::vector<Point> & line() const { return line_; }
    ProfilePlot * plot() const { return plot_; }
    /// The profile, as a table where the name ends in csv, or a picture where it ends in png. False, and it
    /// is shown why, where it cannot be written.
    bool saveProfile(const std::string & path);

private:
    void addAt(const QPointF & place);
    void addUnderMouse();
    void chooseProfile();
    void measure();
    void showSample(int sample);
    QString words() const;

    ViewerWindow & window_;
    std::vector<Point> line_;
    double area_ = 0.0, groundArea_ = 0.0;
    QDockWidget * dock_;
    QLabel * text_;
    ProfilePlot * plot_;
    QMenu * menu_;
    QAction * isOn_; ///< checked while clicks measure
};
