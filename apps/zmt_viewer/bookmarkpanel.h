#pragma once

#include <vector>

#include <QWidget>

#include "scene/scene.h"

class QCheckBox;
class QDoubleSpinBox;
class QListWidget;
class QListWidgetItem;
class QPushButton;

/// Views to come back to, in the order of a flight through them, with their names and small pictures. Names
/// are edited in place (F2), places in the list change by dragging or with Ctrl+Up and Ctrl+Down, and Del
/// removes one.
class BookmarkPanel : public QWidget {
    Q_OBJECT
public:
    explicit BookmarkPanel(QWidget * parent = nullptr);

    /// Shows these, none of them selected, without telling.
    void setBookmarks(const std::vector<Bookmark> & bookmarks);
    const std::vector<Bookmark> & bookmarks() const { return bookmarks_; }
    /// Behind the last one, and selects it. Without a name it gets a number.
    void add(const Bookmark & bookmark);
    /// The number of the one that is selected, or -1.
    int selected() const;
    /// Selects the one so many behind, round the end; the first or the last where none is. -1 without any.
    int select(int steps);

signals:
    /// The user has changed something.
    void changed();
    /// To fly to.
    void chosen(int number);
    /// For the present view.
    void addWanted();
    /// For all of them.
    void flightWanted();

protected:
    bool eventFilter(QObject * watched, QEvent * event) override;

private:
    void addItem(const Bookmark & bookmark);
    void showSelected();
    void takeItem(QListWidgetItem * item);
    void takeFlight();
    void takeOrder();
    void move(int steps);
    void removeSelected();
    ZMT::UTIL::CameraPosition * position() const;

    std::vector<Bookmark> bookmarks_;
    bool isFilling_ = false;
    QListWidget * list_;
    QDoubleSpinBox * duration_;
    QCheckBox * circle_;
    QPushButton * fly_;
};
