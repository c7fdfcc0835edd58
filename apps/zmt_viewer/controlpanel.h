#pragma once

#include <vector>

#include <QWidget>

#include "landscape/landscape.h"
#include "landscape/memorybudgets.h"

class OverlayPanel;
class QCheckBox;
class QGroupBox;
class QVBoxLayout;
class ValueSlider;

/// Switches for the layers of a landscape, of which its cities are the last ones, with sliders for how those
/// are drawn; its overlays; and sliders for the heights, the allowed errors, and the memory that the process
/// may keep.
class ControlPanel : public QWidget {
    Q_OBJECT
public:
    explicit ControlPanel(QWidget * parent = nullptr);

    /// Shows the switches of another landscape, all layers on the ground on, and cities as they are; null
    /// shows none.
    void setLandscape(Landscape * landscape);
    /// As if the user had clicked the switch; nothing for a number that nothing has. Cities come last.
    void toggleLayer(std::size_t number);
    OverlayPanel * overlays() const { return overlays_; }
    // As if the user had done it; nothing without a terrain.
    void toggleFlood();
    void moveFlood(int steps);
    bool isLayerOn(std::size_t number) const;
    bool isCityOn(std::size_t number) const { return isLayerOn(groundLayers_ + number); }
    /// Which layers on the ground are on, lowest first.
    std::vector<bool> layersOn() const;
    /// Sets the first switches so; further ones stay.
    void setLayersOn(const std::vector<bool> & on);
    /// Shows what is allowed, in pixels, without telling.
    void setErrors(double geometry, double texture);

signals:
    void layerSwitched();
    void overlaysChanged();
    void floodChanged();
    void exaggerationChanged(double exaggeration);
    void geometryErrorChanged(double pixels);
    void textureErrorChanged(double pixels);
    void memoryChanged(const MemoryBudgets & budgets);
    void cityLookChanged(std::size_t number, const CityLook & look);

private:
    void makeMemorySliders();
    void makeFlood();
    void setFlood(Flood * flood);
    void takeFlood();
    void addSwitch(const std::string & name, bool isOn, const QString & hint);
    void addCity(std::size_t number, const CityLayer & city);

    OverlayPanel * overlays_;
    Flood * flood_ = nullptr; ///< null without a terrain
    QGroupBox * floodBox_;    ///< hidden then
    ValueSlider * floodHeight_;
    QVBoxLayout * layers_;
    std::vector<QCheckBox *> switches_; ///< of the layers on the ground, then of cities
    std::size_t groundLayers_ = 0;
    std::vector<QWidget *> citySliders_;
    ValueSlider * exaggeration_;
    ValueSlider * geometryError_;
    ValueSlider * textureError_;
    ValueSlider * memory_;
    ValueSlider * graphicsMemory_;
    ValueSlider * cityMemory_;
    ValueSlider * overlayMemory_;
};
