// Switches are in one column: layers on the ground, then cities with their sliders. Sliders below tell the
// window what they are moved to, and show what it has.

#include "controlpanel.h"

#include <algorithm>
#include <cmath>

#include <QCheckBox>
#include <QGroupBox>
#include <QVBoxLayout>

#include "overlaypanel.h"
#include "valueslider.h"

#include <zmt/core/terrain/frame/terrainpainterglsettings.h>

namespace {

using ZMT::CORE::TerrainPainterGLSettings;

constexpr std::size_t s_keys = 9;
constexpr double s_leastMemory = 16.0; ///< of the sliders, in MiB
constexpr double s_leastQuality = 0.1, s_largestQuality = 10.0;
constexpr double s_leastDistance = 10.0, s_largestDistance = 100'000.0; ///< in metres
constexpr int s_indent = 22;                                            ///< below a switch

} // namespace

ControlPanel::ControlPanel(QWidget * parent)
    : QWidget(parent), overlays_(new OverlayPanel), floodBox_(new QGroupBox(tr("Flood"))),
      floodHeight_(new ValueSlider(tr("Height"), 1.0, 2.0, tr(" m"))),
      exaggeration_(new ValueSlider(tr("Exaggeration"), 0.1, 20.0, tr(" ×"))),
      geometryError_(new ValueSlider(tr("Geometry error"), 0.5, 50.0, tr(" px"))),
      textureError_(new ValueSlider(tr("Texture error"), 0.5, 50.0, tr(" px"))),
      memory_(new ValueSlider(tr("Memory"), s_leastMemory, MemoryBudgets::s_largest, tr(" MiB"))),
      graphicsMemory_(
          new ValueSlider(tr("Graphics memory"), s_leastMemory, MemoryBudgets::s_largest, tr(" MiB"))),
      cityMemory_(new ValueSlider(tr("City memory"), s_leastMemory, MemoryBudgets::s_largest, tr(" MiB"))),
      overlayMemory_(
          new ValueSlider(tr("Overlay memory"), s_leastMemory, MemoryBudgets::s_largest, tr(" MiB"))) {
    auto * group = new QGroupBox(tr("Layers"));
    layers_ = new QVBoxLayout(group);
    auto * column = new QVBoxLayout(this);
    column->setSpacing(14);
    column->addWidget(group);
    column->addWidget(overlays_);
    column->addWidget(floodBox_);
    connect(overlays_, &OverlayPanel::changed, this, &ControlPanel::overlaysChanged);
    for (ValueSlider * slider : {exaggeration_, geometryError_, textureError_, memory_, graphicsMemory_,
                                 cityMemory_, overlayMemory_})
        column->addWidget(slider);
    column->addStretch(1);

    exaggeration_->setObjectName("exaggeration");
    exaggeration_->setToolTip(tr("Factor of the heights"));
    exaggeration_->setValue(1.0);
    geometryError_->setObjectName("geometryError");
    geometryError_->setToolTip(tr("How far the surface may lie from the true one on the screen"));
    geometryError_->setValue(TerrainPainterGLSettings::getGeometryError());
    textureError_->setObjectName("textureError");
    textureError_->setToolTip(tr("How large a texel may be on the screen"));
    textureError_->setValue(TerrainPainterGLSettings::getTextureError());
    connect(exaggeration_, &ValueSlider::valueChanged, this, &ControlPanel::exaggerationChanged);
    connect(geometryError_, &ValueSlider::valueChanged, this, &ControlPanel::geometryErrorChanged);
    connect(textureError_, &ValueSlider::valueChanged, this, &ControlPanel::textureErrorChanged);
    makeMemorySliders();
    makeFlood();
    setLandscape(nullptr);
}

void ControlPanel::makeFlood() {
    floodBox_->setObjectName("flood");
    floodBox_->setCheckable(true);
    floodBox_->setFocusPolicy(Qt::TabFocus);
    floodBox_->setToolTip(tr("Water over all ground at a height or below: G, page up and page down"));
    floodHeight_->setObjectName("floodHeight");
    (new QVBoxLayout(floodBox_))->addWidget(floodHeight_);
    connect(floodBox_, &QGroupBox::toggled, this, &ControlPanel::takeFlood);
    connect(floodHeight_, &ValueSlider::valueChanged, this, &ControlPanel::takeFlood);
}

void ControlPanel::setFlood(Flood * flood) {
    flood_ = nullptr; // what follows is no wish
    floodBox_->setVisible(flood != nullptr);
    if (!flood) return;
    floodBox_->setChecked(flood->isOn());
    floodHeight_->setEvenRange(flood->lowest(), flood->highest());
    floodHeight_->setValue(flood->height());
    flood_ = flood;
}

void ControlPanel::takeFlood() {
    if (!flood_) return;
    flood_->setOn(floodBox_->isChecked());
    flood_->setHeight(floodHeight_->value());
    emit floodChanged();
}

void ControlPanel::toggleFlood() {
    if (flood_) floodBox_->setChecked(!floodBox_->isChecked());
}

void ControlPanel::moveFlood(int steps) {
    if (flood_ && flood_->isOn()) floodHeight_->move(steps);
}

/// They say what the managers have, whoever gave it to them.
void ControlPanel::makeMemorySliders() {
    const MemoryBudgets budgets = presentMemoryBudgets();
    memory_->setObjectName("memory");
    memory_->setToolTip(tr("What is kept of heights and images, to be drawn again"));
    memory_->setValue(budgets.main);
    graphicsMemory_->setObjectName("graphicsMemory");
    graphicsMemory_->setToolTip(tr("What is kept of buffers and textures, to be drawn again"));
    graphicsMemory_->setValue(budgets.graphics);
    cityMemory_->setObjectName("cityMemory");
    cityMemory_->setToolTip(tr("Textures of cities, decoded and on the card"));
    cityMemory_->setValue(budgets.city);
    overlayMemory_->setObjectName("overlayMemory");
    overlayMemory_->setToolTip(tr("Textures of overlays on the card"));
    overlayMemory_->setValue(budgets.overlay);
    for (ValueSlider * slider : {memory_, graphicsMemory_, cityMemory_, overlayMemory_})
        connect(slider, &ValueSlider::valueChanged, this, [this] {
            emit memoryChanged({.main = unsigned(memory_->value()),
                                .graphics = unsigned(graphicsMemory_->value()),
                                .city = unsigned(cityMemory_->value()),
                                .overlay = unsigned(overlayMemory_->value())});
        });
}

void ControlPanel::setLandscape(Landscape * landscape) {
    qDeleteAll(switches_);
    qDeleteAll(citySliders_);
    switches_.clear();
    citySliders_.clear();
    groundLayers_ = 0;
    overlays_->setOverlays(landscape ? &landscape->overlays() : nullptr);
    setFlood(landscape && landscape->hasTerrain() ? &landscape->flood() : nullptr);
    setEnabled(landscape != nullptr);
    if (!landscape) return;
    exaggeration_->setValue(landscape->exaggeration());
    exaggeration_->setEnabled(landscape->hasTerrain());
    for (const auto & layer : landscape->layers())
        addSwitch(layer.name, true, tr("Later layers lie on top"));
    groundLayers_ = switches_.size();
    for (std::size_t i = 0; i < landscape->cities().size(); ++i)
        addCity(i, landscape->cities()[i]);
}

void ControlPanel::addSwitch(const std::string & name, bool isOn, const QString & hint) {
    const std::size_t number = switches_.size() + 1;
    QString text = QString::fromStdString(name);
    auto * box = new QCheckBox(text.replace('&', "&&"));
    box->setFocusPolicy(Qt::TabFocus);
    box->setChecked(isOn);
    box->setToolTip(number <= s_keys ? tr("Key %1").arg(number) : hint);
    connect(box, &QCheckBox::toggled, this, &ControlPanel::layerSwitched);
    layers_->addWidget(box);
    switches_.push_back(box);
}

void ControlPanel::addCity(std::size_t number, const CityLayer & city) {
    addSwitch(fileNameOf(city.name()), city.isShown(), QString::fromStdString(city.name()));
    auto * quality = new ValueSlider(tr("Quality"), s_leastQuality, s_largestQuality, tr(" ×"));
    auto * distance =
        new ValueSlider(tr("Far limit"), s_leastDistance, s_largestDistance, tr(" m"), tr("none"));
    quality->setObjectName(QString("cityQuality%1").arg(number));
    quality->setToolTip(tr("Factor of the distances at which textures become finer"));
    quality->setValue(city.look().quality);
    distance->setObjectName(QString("cityDistance%1").arg(number));
    distance->setToolTip(tr("Beyond, nothing of the city that has a texture is drawn"));
    distance->setValue(city.look().distance.value_or(HUGE_VAL));
    for (ValueSlider * slider : {quality, distance}) {
        slider->setContentsMargins(s_indent, 0, 0, 0);
        layers_->addWidget(slider);
        citySliders_.push_back(slider);
        connect(slider, &ValueSlider::valueChanged, this, [this, number, quality, distance] {
            CityLook look{.quality = quality->value(), .distance = distance->value()};
            if (std::isinf(distance->value())) look.distance.reset();
            emit cityLookChanged(number, look);
        });
    }
}

void ControlPanel::toggleLayer(std::size_t number) {
    if (number < switches_.size()) switches_[number]->toggle();
}

bool ControlPanel::isLayerOn(std::size_t number) const {
    return number < switches_.size() && switches_[number]->isChecked();
}

std::vector<bool> ControlPanel::layersOn() const {
    std::vector<bool> on;
    for (std::size_t i = 0; i < groundLayers_; ++i)
        on.push_back(switches_[i]->isChecked());
    return on;
}

void ControlPanel::setLayersOn(const std::vector<bool> & on) {
    for (std::size_t i = 0; i < std::min(on.size(), groundLayers_); ++i)
        switches_[i]->setChecked(on[i]);
}

void ControlPanel::setErrors(double geometry, double texture) {
    geometryError_->setValue(geometry);
    textureError_->setValue(texture);
}
