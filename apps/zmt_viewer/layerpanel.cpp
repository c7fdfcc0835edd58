// Each entry is an item that knows its number among the entries; dragging moves items, and the order of the
// items becomes that of the layers. The legend is drawn from the styles themselves. What is wrong is looked
// at once in a while, since nobody calls when a server or a disk fails.

#include "layerpanel.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <optional>
#include <utility>

#include <QAbstractItemModel>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPixmap>
#include <QStyle>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "landscape/errors.h"
#include "valueslider.h"

#include <nbx/object/exception.h>
#include <zmt/core/vector/vectorstylesheet.h>

namespace {

using ZMT::CORE::VectorStyle;
using ZMT::CORE::VectorStyleSheet;

constexpr int s_numberRole = Qt::UserRole;
constexpr int s_swatchWidth = 26, s_swatchHeight = 14;
constexpr QRgb s_paper = 0xffe8e8e4; ///< dark lines show on it in a dark window, too
constexpr double s_thickest = 6.0;   ///< of lines in the legend, in pixels
constexpr int s_mostLegendLines = 30;
constexpr int s_mostAttributes = 16, s_longestAttribute = 120;
constexpr int s_problemMilliseconds = 1000;
constexpr std::size_t s_numberKeys = 9;
constexpr int s_listHeight = 190;
constexpr double s_leastQuality = 0.1, s_largestQuality = 10.0;
constexpr double s_leastDistance = 10.0, s_largestDistance = 100'000.0; ///< in metres

QColor colorOf(const NBX::Color & color) {
    return QColor::fromRgbF(color[0], color[1], color[2], color[3]);
}

QPolygonF symbolOf(VectorStyle::Symbol::Form form) {
    using Form = VectorStyle::Symbol::Form;
    switch (form) {
    case Form::Square:
        return {{-5, -5}, {5, -5}, {5, 5}, {-5, 5}};
    case Form::Diamond:
        return {{0, -6}, {6, 0}, {0, 6}, {-6, 0}};
    case Form::Triangle:
        return {{0, -6}, {6, 5}, {-6, 5}};
    case Form::Cross:
        return {{-1.5, -6}, {1.5, -6}, {1.5, -1.5}, {6, -1.5}, {6, 1.5},   {1.5, 1.5},
                {1.5, 6},   {-1.5, 6}, {-1.5, 1.5}, {-6, 1.5}, {-6, -1.5}, {-1.5, -1.5}};
    case Form::Circle:
        break;
    }
    QPolygonF circle;
    for (int i = 0; i < 24; ++i)
        circle << QPointF(5 * std::cos(i * M_PI / 12), 5 * std::sin(i * M_PI / 12));
    return circle;
}

QPen penOf(const VectorStyle::Stroke & stroke) {
    // Metres have no width here.
    const bool isInPixels = stroke.width.unit == ZMT::CORE::VectorSize::Unit::Pixels;
    QPen pen(colorOf(stroke.color), isInPixels ? std::clamp(stroke.width.value, 1.0, s_thickest) : 3.0);
    QList<double> pattern;
    for (const double length : stroke.dash)
        pattern.append(length / pen.widthF());
    if (!pattern.isEmpty()) pen.setDashPattern(pattern);
    pen.setCapStyle(Qt::FlatCap);
    return pen;
}

/// What the style draws.
QPixmap swatch(const VectorStyle & style) {
    QPixmap pixmap(s_swatchWidth, s_swatchHeight);
    pixmap.fill(s_paper);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area(2.0, 2.0, s_swatchWidth - 4.0, s_swatchHeight - 4.0);
    if (style.fill) painter.fillRect(area, colorOf(*style.fill));
    if (style.stroke) {
        painter.setPen(penOf(*style.stroke));
        if (style.fill)
            painter.drawRect(area);
        else
            painter.drawLine(QPointF(0.0, area.center().y()), QPointF(s_swatchWidth, area.center().y()));
    }
    if (style.symbol) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(colorOf(style.symbol->color));
        painter.translate(area.center());
        painter.drawPolygon(symbolOf(style.symbol->form));
    }
    return pixmap;
}

QString kindNameOf(VectorStyleSheet::Kind kind) {
    using Kind = VectorStyleSheet::Kind;
    return kind == Kind::Point  ? QObject::tr("points")
           : kind == Kind::Line ? QObject::tr("lines")
                                : QObject::tr("areas");
}

/// Of texts from files.
QLabel * plainLabel(const char * name) {
    auto * label = new QLabel;
    label->setObjectName(name);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

/// The number of the key that switches it; 0 for none.
std::size_t keyOf(const LayerEntry & entry, std::size_t groundLayers) {
    const bool isCity = entry.kind == LayerEntry::Kind::City;
    if (!isCity && entry.kind != LayerEntry::Kind::Ground) return 0;
    const std::size_t key = entry.number + 1 + (isCity ? groundLayers : 0);
    return key <= s_numberKeys ? key : 0;
}

} // namespace

LayerPanel::LayerPanel(QWidget * parent)
    : QGroupBox(tr("Layers"), parent), list_(new QTreeWidget),
      opacity_(new ValueSlider(tr("Opacity"), 1.0, 100.0, tr(" %"))), style_(new QLineEdit),
      styleProblem_(plainLabel("layerStyleProblem")),
      quality_(new ValueSlider(tr("Quality"), s_leastQuality, s_largestQuality, tr(" ×"))),
      distance_(new ValueSlider(tr("Far limit"), s_leastDistance, s_largestDistance, tr(" m"), tr("none"))),
      floodHeight_(new ValueSlider(tr("Height"), 1.0, 2.0, tr(" m"))), problem_(plainLabel("layerProblem")),
      attributes_(plainLabel("layerAttributes")) {
    makeParts();
    connect(list_, &QTreeWidget::itemChanged, this, &LayerPanel::switchOne);
    connect(list_, &QTreeWidget::currentItemChanged, this, &LayerPanel::select);
    // The items have moved when the event has been handled.
    connect(list_->model(), &QAbstractItemModel::rowsInserted, this,
            [this] { QTimer::singleShot(0, this, &LayerPanel::takeOrder); });
    connect(opacity_, &ValueSlider::valueChanged, this, &LayerPanel::takeOpacity);
    connect(style_, &QLineEdit::returnPressed, this, &LayerPanel::takeStyle);
    connect(quality_, &ValueSlider::valueChanged, this, &LayerPanel::takeCityLook);
    connect(distance_, &ValueSlider::valueChanged, this, &LayerPanel::takeCityLook);
    connect(floodHeight_, &ValueSlider::valueChanged, this, &LayerPanel::takeFloodHeight);
    connect(&problemTimer_, &QTimer::timeout, this, &LayerPanel::showProblems);
    setLandscape(nullptr);
}

void LayerPanel::makeParts() {
    auto * column = new QVBoxLayout(this);
    for (QWidget * part :
         std::initializer_list<QWidget *>{list_, opacity_, floodHeight_, style_, styleProblem_, quality_,
                                          distance_, problem_, attributes_})
        column->addWidget(part);
    list_->setObjectName("layers");
    list_->setHeaderHidden(true);
    list_->setMinimumHeight(s_listHeight);
    list_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Expanding); // as wide as the panel is
    list_->setDragDropMode(QAbstractItemView::InternalMove);
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    list_->setIconSize({s_swatchWidth, s_swatchHeight});
    list_->setToolTip(
        tr("The top one covers the others. Dragging changes that among images and the light, and "
           "among overlays, as Ctrl+Up and Ctrl+Down do; space switches one"));
    list_->installEventFilter(this);
    opacity_->setObjectName("layerOpacity");
    opacity_->setEvenRange(0.0, 100.0);
    style_->setObjectName("layerStyle");
    style_->setPlaceholderText(tr("color=#d04030, width=2, label=name"));
    style_->setToolTip(tr("How the selected overlay is drawn: a specification; Enter takes it"));
    quality_->setObjectName("cityQuality");
    quality_->setToolTip(tr("Factor of the distances at which textures become finer"));
    distance_->setObjectName("cityDistance");
    distance_->setToolTip(tr("Beyond, nothing of the city that has a texture is drawn"));
    floodHeight_->setObjectName("floodHeight");
    floodHeight_->setToolTip(tr("Water over all ground at this height or below: page up and page down"));
    for (QLabel * label : {problem_, styleProblem_})
        label->setProperty("isProblem", true);
}

void LayerPanel::setLandscape(Landscape * landscape) {
    landscape_ = landscape;
    fill();
    landscape_ ? problemTimer_.start(s_problemMilliseconds) : problemTimer_.stop();
    if (landscape_ && landscape_->hasTerrain()) {
        floodHeight_->setEvenRange(landscape_->flood().lowest(), landscape_->flood().highest());
        floodHeight_->setValue(landscape_->flood().height());
    }
    select();
}

void LayerPanel::showFeatures(const std::vector<Overlays::Feature> & features, std::size_t number) {
    attributes_->setVisible(number < features.size());
    if (number >= features.size()) return attributes_->clear();
    const Overlays::Feature & shown = features[number];
    const auto & fields = shown.overlay->source()->fields();
    QString text =
        tr("%1, feature %2").arg(QString::fromStdString(shown.overlay->name())).arg(shown.picked.feature.id);
    int lines = 0;
    for (std::size_t i = 0; i < fields.size() && lines < s_mostAttributes; ++i) {
        const std::string value = VectorStyleSheet::textOf(shown.picked.feature.values.at(i));
        if (value.empty()) continue;
        text +=
            "\n" + QString::fromStdString(oneLine(fields[i].name + ": " + value)).left(s_longestAttribute);
        ++lines;
    }
    if (features.size() > 1)
        text += "\n" + tr("%1 of %2 here, N for the next").arg(number + 1).arg(features.size());
    attributes_->setText(text);
}

/// The same one stays selected.
void LayerPanel::fill() {
    const auto before = selected() ? std::optional(*selected()) : std::nullopt;
    isFilling_ = true;
    list_->clear();
    entries_ = landscape_ ? LayerList::of(*landscape_) : std::vector<LayerEntry>();
    for (const LayerEntry & entry : entries_)
        addItem(entry);
    QTreeWidgetItem * shown = before ? itemOf(*before) : nullptr;
    list_->setCurrentItem(shown ? shown : firstItem());
    isFilling_ = false;
    showProblems();
}

void LayerPanel::addItem(const LayerEntry & entry) {
    const bool isFlood = entry.kind == Kind::Flood;
    auto * item = new QTreeWidgetItem(list_, {isFlood ? tr("Flood") : QString::fromStdString(entry.name)});
    item->setData(0, s_numberRole, list_->topLevelItemCount() - 1);
    auto flags = (item->flags() | Qt::ItemIsUserCheckable) & ~(Qt::ItemIsDropEnabled | Qt::ItemIsDragEnabled);
    if (entry.isMovable) flags |= Qt::ItemIsDragEnabled;
    item->setFlags(flags);
    if (entry.kind != Kind::Terrain) item->setCheckState(0, entry.isOn ? Qt::Checked : Qt::Unchecked);
    if (entry.kind != Kind::Overlay) return;
    addLegend(item, *landscape_->overlays().list().at(entry.number));
    item->setExpanded(true);
}

/// A line for each rule and kind of geometry.
void LayerPanel::addLegend(QTreeWidgetItem * item, const Overlays::Overlay & overlay) const {
    using GeometryKind = VectorStyleSheet::Kind;
    const VectorStyleSheet & sheet = overlay.styleSheet();
    const auto kinds = overlay.source()->kinds();
    for (std::size_t rule = 0; rule < sheet.rules() && item->childCount() < s_mostLegendLines; ++rule)
        for (const auto & [isThere, kind] :
             {std::pair(kinds.areas, GeometryKind::Area), std::pair(kinds.lines, GeometryKind::Line),
              std::pair(kinds.points, GeometryKind::Point)}) {
            if (!isThere) continue;
            const QString text =
                sheet.rules() > 1 ? QString::fromStdString(sheet.filterOf(rule)) : kindNameOf(kind);
            auto * line = new QTreeWidgetItem(item, {text});
            line->setIcon(0, swatch(sheet.styleOf(rule, kind)));
            line->setFlags(Qt::ItemIsEnabled);
        }
}

const LayerEntry * LayerPanel::entryOf(const QTreeWidgetItem * item) const {
    if (!item) return nullptr;
    const QTreeWidgetItem * top = item->parent() ? item->parent() : item;
    const auto number = std::size_t(top->data(0, s_numberRole).toInt());
    return number < entries_.size() ? &entries_[number] : nullptr;
}

const LayerEntry * LayerPanel::selected() const {
    return entryOf(list_->currentItem());
}

/// That of the top one that somebody has opened.
QTreeWidgetItem * LayerPanel::firstItem() const {
    for (int i = 0; i < list_->topLevelItemCount(); ++i)
        if (entryOf(list_->topLevelItem(i))->kind != Kind::Flood) return list_->topLevelItem(i);
    return nullptr;
}

/// Null where it is gone.
QTreeWidgetItem * LayerPanel::itemOf(const LayerEntry & entry) const {
    for (int i = 0; i < list_->topLevelItemCount(); ++i)
        if (const LayerEntry * other = entryOf(list_->topLevelItem(i));
            other && other->kind == entry.kind && other->name == entry.name && other->source == entry.source)
            return list_->topLevelItem(i);
    return nullptr;
}

/// The one that is selected; null where that is none.
Overlays::Overlay * LayerPanel::overlay() const {
    const LayerEntry * entry = selected();
    const bool isOverlay = landscape_ && entry && entry->kind == Kind::Overlay;
    return isOverlay ? landscape_->overlays().list().at(entry->number).get() : nullptr;
}

void LayerPanel::select() {
    if (isFilling_) return;
    const LayerEntry * entry = selected();
    const auto isOf = [&](Kind kind) { return entry && entry->kind == kind; };
    styleProblem_->hide();
    opacity_->setVisible(entry && entry->opacity);
    style_->setVisible(isOf(Kind::Overlay));
    quality_->setVisible(isOf(Kind::City));
    distance_->setVisible(isOf(Kind::City));
    floodHeight_->setVisible(isOf(Kind::Flood));
    showProblems();
    if (!entry) return;
    if (entry->opacity) opacity_->setValue(*entry->opacity * 100.0);
    if (isOf(Kind::Flood)) floodHeight_->setValue(landscape_->flood().height());
    if (isOf(Kind::City)) {
        const CityLook look = landscape_->cities().at(entry->number).look();
        quality_->setValue(look.quality);
        distance_->setValue(look.distance.value_or(HUGE_VAL));
    }
    if (!isOf(Kind::Overlay)) return;
    // Rules of a file have no room here.
    const QString text = QString::fromStdString(overlay()->styleSheet().text());
    style_->setText(text.contains('\n') || text.contains(':') ? QString() : text);
    style_->setCursorPosition(0); // it begins with what it draws
}

void LayerPanel::showProblems() {
    const bool wasFilling = std::exchange(isFilling_, true); // marks are no switches
    const auto failures = landscape_ ? readFailures() : std::vector<ReadFailure>();
    QString shown;
    for (int i = 0; i < list_->topLevelItemCount(); ++i) {
        QTreeWidgetItem * item = list_->topLevelItem(i);
        const LayerEntry & entry = *entryOf(item);
        const QString problem = QString::fromStdString(LayerList::problemOf(*landscape_, entry, failures));
        if (&entry == selected()) shown = problem;
        const bool isMarked = !item->icon(0).isNull();
        if (isMarked == problem.isEmpty())
            item->setIcon(0,
                          problem.isEmpty() ? QIcon() : style()->standardIcon(QStyle::SP_MessageBoxWarning));
        const std::size_t key = keyOf(entry, landscape_->layers().size());
        QStringList hint;
        if (!entry.source.empty()) hint.append(QString::fromStdString(entry.source));
        if (key > 0) hint.append(tr("Key %1").arg(key));
        if (!problem.isEmpty()) hint.append(problem);
        item->setToolTip(0, hint.join("\n"));
    }
    problem_->setText(shown);
    problem_->setVisible(!shown.isEmpty());
    isFilling_ = wasFilling;
}

void LayerPanel::switchOne(QTreeWidgetItem * item) {
    const LayerEntry * entry = entryOf(item);
    if (isFilling_ || item->parent() || !entry || entry->kind == Kind::Terrain) return;
    const bool isOn = item->checkState(0) == Qt::Checked;
    if (entry->isOn == isOn) return;
    const LayerEntry switched = *entry;
    entries_[std::size_t(entry - entries_.data())].isOn = isOn;
    LayerList::setOn(*landscape_, switched, isOn);
    emit changed(switched.kind);
}

void LayerPanel::toggle(Kind kind, std::size_t number) {
    for (int i = 0; i < list_->topLevelItemCount(); ++i) {
        QTreeWidgetItem * item = list_->topLevelItem(i);
        if (entryOf(item)->isSame({kind, number, {}, {}}))
            return item->setCheckState(0, item->checkState(0) == Qt::Checked ? Qt::Unchecked : Qt::Checked);
    }
}

void LayerPanel::toggle(std::size_t number) {
    if (!landscape_) return;
    const std::size_t layers = landscape_->layers().size();
    number < layers ? toggle(Kind::Ground, number) : toggle(Kind::City, number - layers);
}

void LayerPanel::toggleFlood() {
    toggle(Kind::Flood, 0);
}

void LayerPanel::moveFlood(int steps) {
    if (!landscape_ || !landscape_->hasTerrain() || !landscape_->flood().isOn()) return;
    floodHeight_->setValue(landscape_->flood().height());
    floodHeight_->move(steps);
}

void LayerPanel::takeKeys(QWidget & otherwise) {
    if (list_->hasFocus()) return otherwise.setFocus();
    list_->setFocus();
}

/// Among the items; what has no place there comes back to its own.
void LayerPanel::moveSelected(int rows) {
    const LayerEntry * entry = selected();
    if (!entry || !entry->isMovable) return;
    const int row = list_->indexOfTopLevelItem(itemOf(*entry)), to = row + rows;
    if (to < 0 || to >= int(entries_.size()) || entries_[std::size_t(to)].kind != entry->kind) return;
    std::vector<LayerEntry> moved = entries_;
    std::swap(moved[std::size_t(row)], moved[std::size_t(to)]);
    order(moved, to);
}

void LayerPanel::takeOrder() {
    if (isFilling_ || !landscape_ || list_->topLevelItemCount() != int(entries_.size())) return;
    std::vector<LayerEntry> moved;
    moved.reserve(entries_.size());
    bool isMoved = false;
    for (int i = 0; i < list_->topLevelItemCount(); ++i) {
        moved.push_back(*entryOf(list_->topLevelItem(i)));
        isMoved |= !moved.back().isSame(entries_[std::size_t(i)]);
    }
    if (isMoved) order(moved, list_->indexOfTopLevelItem(list_->currentItem()));
}

/// The selected one came to `row`.
void LayerPanel::order(const std::vector<LayerEntry> & entries, int row) {
    const Kind kind = selected() ? selected()->kind : Kind::Overlay;
    const bool isNew = LayerList::setOrder(*landscape_, entries);
    fill();
    if (!isNew) return;
    if (row >= 0 && entries_.at(std::size_t(row)).kind == kind)
        list_->setCurrentItem(list_->topLevelItem(row));
    emit changed(kind);
}

void LayerPanel::takeOpacity(double percent) {
    const LayerEntry * entry = selected();
    if (!landscape_ || !entry || !entry->opacity) return;
    entries_[std::size_t(entry - entries_.data())].opacity = percent / 100.0;
    LayerList::setOpacity(*landscape_, *entry, percent / 100.0);
    emit changed(entry->kind);
}

void LayerPanel::takeCityLook() {
    const LayerEntry * entry = selected();
    if (!landscape_ || !entry || entry->kind != Kind::City) return;
    CityLook look{.quality = quality_->value(), .distance = distance_->value()};
    if (std::isinf(distance_->value())) look.distance.reset();
    landscape_->cities().at(entry->number).setLook(look);
    emit changed(Kind::City);
}

void LayerPanel::takeFloodHeight(double height) {
    if (!landscape_ || !landscape_->hasTerrain()) return;
    landscape_->flood().setHeight(height);
    emit changed(Kind::Flood);
}

void LayerPanel::takeStyle() {
    Overlays::Overlay * changedOne = overlay();
    if (!changedOne) return;
    try {
        const std::string text = style_->text().trimmed().toStdString();
        landscape_->overlays().setStyle(*changedOne,
                                        text.empty() ? VectorStyleSheet() : VectorStyleSheet::parse(text));
    } catch (const NBX::Exception & error) {
        styleProblem_->setText(QString::fromStdString(error.what()));
        styleProblem_->show();
        return;
    }
    const QString text = style_->text();
    fill();
    style_->setText(text);
    styleProblem_->hide();
    emit changed(Kind::Overlay);
}

/// Some of them are keys of the window elsewhere.
bool LayerPanel::eventFilter(QObject * watched, QEvent * event) {
    const bool isKey = event->type() == QEvent::KeyPress || event->type() == QEvent::ShortcutOverride;
    if (watched != list_ || !isKey) return QGroupBox::eventFilter(watched, event);
    const auto * key = static_cast<QKeyEvent *>(event);
    const bool isMove = key->modifiers().testFlag(Qt::ControlModifier) &&
                        (key->key() == Qt::Key_Up || key->key() == Qt::Key_Down);
    if (event->type() == QEvent::ShortcutOverride) {
        if (isMove || key->key() == Qt::Key_Space) event->accept();
        return false;
    }
    if (!isMove) return false;
    moveSelected(key->key() == Qt::Key_Up ? -1 : 1);
    return true;
}
