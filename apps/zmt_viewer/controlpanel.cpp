#include "controlpanel.h"

#include <QVBoxLayout>

#include "layerpanel.h"
#include "valueslider.h"

#include <zmt/core/terrain/frame/terrainpainterglsettings.h>

namespace {

using ZMT::CORE::TerrainPainterGLSettings;

constexpr double s_leastMemory = 16.0; ///< of the sliders, in MiB

} // namespace

ControlPanel::ControlPanel(QWidget * parent)
    : QWidget(parent), layers_(new LayerPanel),
      exaggeration_(new ValueSlider(tr("Exaggeration"), 0.1, 20.0, tr(" ×"))),
      geometryError_(new ValueSlider(tr("Geometry error"), 0.5, 50.0, tr(" px"))),
      textureError_(new ValueSlider(tr("Texture error"), 0.5, 50.0, tr(" px"))),
      memory_(new ValueSlider(tr("Memory"), s_leastMemory, MemoryBudgets::s_largest, tr(" MiB"))),
      graphicsMemory_(
          new ValueSlider(tr("Graphics memory"), s_leastMemory, MemoryBudgets::s_largest, tr(" MiB"))),
      cityMemory_(new ValueSlider(tr("City memory"), s_leastMemory, MemoryBudgets::s_largest, tr(" MiB"))),
      overlayMemory_(
          new ValueSlider(tr("Overlay memory"), s_leastMemory, MemoryBudgets::s_largest, tr(" MiB"))) {
    auto * column = new QVBoxLayout(this);
    column->setSpacing(14);
    column->addWidget(layers_);
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
    setLandscape(nullptr);
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
    layers_->setLandscape(landscape);
    setEnabled(landscape != nullptr);
    if (!landscape) return;
    exaggeration_->setValue(landscape->exaggeration());
    exaggeration_->setEnabled(landscape->hasTerrain());
}

void ControlPanel::setErrors(double geometry, double texture) {
    geometryError_->setValue(geometry);
    textureError_->setValue(texture);
}
