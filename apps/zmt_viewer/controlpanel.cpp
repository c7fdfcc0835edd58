#include "controlpanel.h"

#include <algorithm>

#include <QCheckBox>
#include <QGroupBox>
#include <QVBoxLayout>

#include "valueslider.h"

#include <zmt/core/terrain/frame/terrainpainterglsettings.h>

namespace {

using ZMT::CORE::TerrainPainterGLSettings;

constexpr std::size_t s_keys = 9;
constexpr double s_leastMemory = 16.0; ///< of the sliders, in MiB

} // namespace

ControlPanel::ControlPanel(QWidget * parent)
    : QWidget(parent), exaggeration_(new ValueSlider(tr("Exaggeration"), 0.1, 20.0, tr(" ×"))),
      geometryError_(new ValueSlider(tr("Geometry error"), 0.5, 50.0, tr(" px"))),
      textureError_(new ValueSlider(tr("Texture error"), 0.5, 50.0, tr(" px"))),
      memory_(new ValueSlider(tr("Memory"), s_leastMemory, MemoryBudgets::s_largest, tr(" MiB"))),
      graphicsMemory_(
          new ValueSlider(tr("Graphics memory"), s_leastMemory, MemoryBudgets::s_largest, tr(" MiB"))) {
    auto * group = new QGroupBox(tr("Layers"));
    layers_ = new QVBoxLayout(group);
    auto * column = new QVBoxLayout(this);
    column->setSpacing(14);
    column->addWidget(group);
    for (ValueSlider * slider : {exaggeration_, geometryError_, textureError_, memory_, graphicsMemory_})
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
    for (ValueSlider * slider : {memory_, graphicsMemory_})
        connect(slider, &ValueSlider::valueChanged, this, [this] {
            emit memoryChanged(
                {.main = unsigned(memory_->value()), .graphics = unsigned(graphicsMemory_->value())});
        });
}

void ControlPanel::setLandscape(const Landscape * landscape) {
    for (QCheckBox * box : switches_)
        delete box;
    switches_.clear();
    setEnabled(landscape != nullptr);
    if (!landscape) return;
    exaggeration_->setValue(landscape->exaggeration());
    for (const auto & layer : landscape->layers()) {
        const std::size_t number = switches_.size() + 1;
        QString name = QString::fromStdString(layer.name);
        auto * box = new QCheckBox(name.replace('&', "&&"));
        box->setFocusPolicy(Qt::TabFocus);
        box->setChecked(true);
        box->setToolTip(number <= s_keys ? tr("Key %1").arg(number) : tr("Later layers lie on top"));
        connect(box, &QCheckBox::toggled, this, &ControlPanel::layerSwitched);
        layers_->addWidget(box);
        switches_.push_back(box);
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
    for (const QCheckBox * box : switches_)
        on.push_back(box->isChecked());
    return on;
}

void ControlPanel::setLayersOn(const std::vector<bool> & on) {
    for (std::size_t i = 0; i < std::min(on.size(), switches_.size()); ++i)
        switches_[i]->setChecked(on[i]);
}
