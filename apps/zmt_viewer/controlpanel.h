#pragma once

#include <QWidget>

#include "landscape/landscape.h"
#include "landscape/memorybudgets.h"

class LayerPanel;
class ValueSlider;

/// What can be set of a landscape: the list of its layers, and sliders for the heights, the allowed errors,
/// and the memory that the process may keep.
class ControlPanel : public QWidget {
    Q_OBJECT
public:
    explicit ControlPanel(QWidget * parent = nullptr);

    /// Shows another landscape, as `LayerPanel::setLandscape`.
    void setLandscape(Landscape * landscape);
    LayerPanel * layers() const { return layers_; }
    /// Shows what is allowed, in pixels, without telling.
    void setErrors(double geometry, double texture);

signals:
    void exaggerationChanged(double exaggeration);
    void geometryErrorChanged(double pixels);
    void textureErrorChanged(double pixels);
    void memoryChanged(const MemoryBudgets & budgets);

private:
    void makeMemorySliders();

    LayerPanel * layers_;
    ValueSlider * exaggeration_;
    ValueSlider * geometryError_;
    ValueSlider * textureError_;
    ValueSlider * memory_;
    ValueSlider * graphicsMemory_;
    ValueSlider * cityMemory_;
    ValueSlider * overlayMemory_;
};
