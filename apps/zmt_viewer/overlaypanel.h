#pragma once

#include <vector>

#include <QGroupBox>

#include "landscape/overlays.h"

class QLabel;
class QLineEdit;
class QTreeWidget;
class QTreeWidgetItem;
class ValueSlider;

/// The overlays of a landscape, the top one first: switches, an order that is changed by dragging, and below
/// each what its lines, areas and symbols mean. Opacity and style are those of the one that is selected.
class OverlayPanel : public QGroupBox {
    Q_OBJECT
public:
    explicit OverlayPanel(QWidget * parent = nullptr);

    /// Shows other overlays, which outlive this or the next call; null, or none of them, hides the panel.
    void setOverlays(Overlays * overlays);
    /// Shows all that one of these has in its fields, and how many there are; nothing for none.
    void showFeatures(const std::vector<Overlays::Feature> & features, std::size_t number);
    /// In the list, from the top; for tests and keys.
    QTreeWidget * list() const { return list_; }

signals:
    /// Something of them looks otherwise.
    void changed();

private:
    using Overlay = Overlays::Overlay;

    void fill();
    void addLegend(QTreeWidgetItem * item, const Overlay & overlay) const;
    Overlay * overlayOf(const QTreeWidgetItem * item) const;
    Overlay * selected() const;
    void select();
    void switchOne(QTreeWidgetItem * item);
    void takeOrder();
    void takeOpacity(double percent);
    void takeStyle();

    Overlays * overlays_ = nullptr;
    QTreeWidget * list_;
    ValueSlider * opacity_;
    QLineEdit * style_;
    QLabel * attributes_;
    QLabel * problem_; ///< why a style cannot be taken; hidden without one
    bool isFilling_ = false;
};
