#pragma once

#include <vector>

#include <QWidget>

#include "landscape/landscape.h"
#include "landscape/memorybudgets.h"

class QCheckBox;
class QVBoxLayout;
class ValueSlider;

/// Switches for the layers of a landscape, and sliders for its heights, the allowed errors, and the memory
/// that the process may keep.
class ControlPanel : public QWidget {
    Q_OBJECT
public:
    explicit ControlPanel(QWidget * parent = nullptr);

    /// Shows the switches of another landscape, all on; null shows none.
    void setLandscape(const Landscape * landscape);
    /// As if the user had clicked the switch; nothing for a number that no layer has.
    void toggleLayer(std::size_t number);
    bool isLayerOn(std::size_t number) const;
    /// Which layers are on, lowest first.
    std::vector<bool> layersOn() const;
    /// Sets the first switches so; further ones stay.
    void setLayersOn(const std::vector<bool> & on);

signals:
    void layerSwitched();
    void exaggerationChanged(double exaggeration);
    void geometryErrorChanged(double pixels);
    void textureErrorChanged(double pixels);
    void memoryChanged(const MemoryBudgets & budgets);

private:
    void makeMemorySliders();

    QVBoxLayout * layers_;
    std::vector<QCheckBox *> switches_;
    ValueSlider * exaggeration_;
    ValueSlider * geometryError_;
    ValueSlider * textureError_;
    ValueSlider * memory_;
    ValueSlider * graphicsMemory_;
};
