#pragma once

#include <vector>

#include <QGroupBox>
#include <QTimer>

#include "scene/layerlist.h"

class QLabel;
class QLineEdit;
class QTreeWidget;
class QTreeWidgetItem;
class ValueSlider;

/// All that makes a landscape in one list, the top first: switches, an order that is changed by dragging and
/// by keys, below overlays what their lines, areas and symbols mean, and a mark where something is wrong with
/// a source. Below the list stands what the selected one has: its opacity, style, height or far limit, and
/// what is wrong with it and why.
class LayerPanel : public QGroupBox {
    Q_OBJECT
public:
    explicit LayerPanel(QWidget * parent = nullptr);

    /// Shows another landscape, which outlives this or the next call; null shows nothing.
    void setLandscape(Landscape * landscape);
    /// Shows all that one of these has in its fields, and how many there are; nothing for none.
    void showFeatures(const std::vector<Overlays::Feature> & features, std::size_t number);
    // As if the user had done it.
    /// Layers on the ground from the lowest on, then cities; nothing for a number that nothing has.
    void toggle(std::size_t number);
    /// Nothing without a terrain.
    void toggleFlood();
    void moveFlood(int steps);
    /// Gives the keys to the list, or, where it has them, to `otherwise`.
    void takeKeys(QWidget & otherwise);
    /// From the top; for tests.
    QTreeWidget * list() const { return list_; }
    const std::vector<LayerEntry> & entries() const { return entries_; }

signals:
    /// The user has changed how one looks, or the order of those of its kind.
    void changed(LayerEntry::Kind kind);

protected:
    /// Keys of the list.
    bool eventFilter(QObject * watched, QEvent * event) override;

private:
    using Kind = LayerEntry::Kind;

    void makeParts();
    void fill();
    void addItem(const LayerEntry & entry);
    void addLegend(QTreeWidgetItem * item, const Overlays::Overlay & overlay) const;
    const LayerEntry * entryOf(const QTreeWidgetItem * item) const;
    const LayerEntry * selected() const;
    QTreeWidgetItem * firstItem() const;
    QTreeWidgetItem * itemOf(const LayerEntry & entry) const;
    Overlays::Overlay * overlay() const;
    void select();
    void showProblems();
    void switchOne(QTreeWidgetItem * item);
    void toggle(Kind kind, std::size_t number);
    void moveSelected(int rows);
    void takeOrder();
    void order(const std::vector<LayerEntry> & entries, int row);
    void takeOpacity(double percent);
    void takeStyle();
    void takeCityLook();
    void takeFloodHeight(double height);

    Landscape * landscape_ = nullptr;
    std::vector<LayerEntry> entries_; ///< as they are listed
    QTreeWidget * list_;
    ValueSlider * opacity_;
    QLineEdit * style_;
    QLabel * styleProblem_; ///< why a style cannot be taken; hidden without one
    ValueSlider * quality_;
    ValueSlider * distance_;
    ValueSlider * floodHeight_;
    QLabel * problem_;
    QLabel * attributes_;
    QTimer problemTimer_;
    bool isFilling_ = false;
};
