// Each overlay is an item that knows its number; dragging moves items, and the order of the items becomes
// that of the overlays. The legend is drawn from the styles themselves.

#include "overlaypanel.h"

#include <algorithm>
#include <cmath>

#include <QAbstractItemModel>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPixmap>
#include <QTimer>
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
constexpr double s_thickest = 6.0;                               ///< of lines in the legend, in pixels
constexpr double s_leastOpacity = 1.0, s_largestOpacity = 100.0; ///< in percent
constexpr int s_mostLegendLines = 30;
constexpr int s_mostAttributes = 16, s_longestAttribute = 120;

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
    pixmap.fill(Qt::transparent);
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

QString nameOf(VectorStyleSheet::Kind kind) {
    using Kind = VectorStyleSheet::Kind;
    return kind == Kind::Point  ? QObject::tr("points")
           : kind == Kind::Line ? QObject::tr("lines")
                                : QObject::tr("areas");
}

} // namespace

OverlayPanel::OverlayPanel(QWidget * parent)
    : QGroupBox(tr("Overlays"), parent), list_(new QTreeWidget),
      opacity_(new ValueSlider(tr("Opacity"), s_leastOpacity, s_largestOpacity, tr(" %"))),
      style_(new QLineEdit), attributes_(new QLabel), problem_(new QLabel) {
    auto * column = new QVBoxLayout(this);
    for (QWidget * part :
         {static_cast<QWidget *>(list_), static_cast<QWidget *>(opacity_), static_cast<QWidget *>(style_),
          static_cast<QWidget *>(problem_), static_cast<QWidget *>(attributes_)})
        column->addWidget(part);
    list_->setHeaderHidden(true);
    list_->setObjectName("overlays");
    list_->setDragDropMode(QAbstractItemView::InternalMove);
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    list_->setIconSize({s_swatchWidth, s_swatchHeight});
    list_->setToolTip(tr("The top one covers the others; drag to change that"));
    opacity_->setObjectName("overlayOpacity");
    style_->setObjectName("overlayStyle");
    style_->setPlaceholderText(tr("color=#d04030, width=2, label=name"));
    style_->setToolTip(tr("How the selected overlay is drawn: a specification; Enter takes it"));
    attributes_->setObjectName("overlayAttributes");
    attributes_->setWordWrap(true);
    attributes_->setTextFormat(Qt::PlainText);
    attributes_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    problem_->setObjectName("overlayProblem");
    problem_->setWordWrap(true);
    problem_->setTextFormat(Qt::PlainText);
    problem_->setStyleSheet("QLabel { color: #b02020; }");
    connect(list_, &QTreeWidget::itemChanged, this, &OverlayPanel::switchOne);
    connect(list_, &QTreeWidget::currentItemChanged, this, &OverlayPanel::select);
    // The items have moved when the event has been handled.
    connect(list_->model(), &QAbstractItemModel::rowsInserted, this,
            [this] { QTimer::singleShot(0, this, &OverlayPanel::takeOrder); });
    connect(opacity_, &ValueSlider::valueChanged, this, &OverlayPanel::takeOpacity);
    connect(style_, &QLineEdit::returnPressed, this, &OverlayPanel::takeStyle);
    setOverlays(nullptr);
}

void OverlayPanel::setOverlays(Overlays * overlays) {
    overlays_ = overlays;
    fill();
    setVisible(overlays_ && !overlays_->empty());
    if (list_->topLevelItemCount() > 0) list_->setCurrentItem(list_->topLevelItem(0));
    select();
}

void OverlayPanel::showFeatures(const std::vector<Overlays::Feature> & features, std::size_t number) {
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

void OverlayPanel::fill() {
    isFilling_ = true;
    list_->clear();
    const std::size_t count = overlays_ ? overlays_->list().size() : 0;
    for (std::size_t i = count; i-- > 0;) {
        const Overlay & overlay = *overlays_->list()[i];
        auto * item = new QTreeWidgetItem(list_, {QString::fromStdString(overlay.name())});
        item->setData(0, s_numberRole, QVariant::fromValue(qulonglong(i)));
        item->setFlags((item->flags() | Qt::ItemIsUserCheckable | Qt::ItemIsDragEnabled) &
                       ~Qt::ItemIsDropEnabled);
        item->setCheckState(0, overlay.isShown() ? Qt::Checked : Qt::Unchecked);
        addLegend(item, overlay);
        item->setExpanded(true);
    }
    isFilling_ = false;
}

/// A line for each rule and kind of geometry.
void OverlayPanel::addLegend(QTreeWidgetItem * item, const Overlay & overlay) const {
    using Kind = VectorStyleSheet::Kind;
    const VectorStyleSheet & sheet = overlay.styleSheet();
    const auto kinds = overlay.source()->kinds();
    for (std::size_t rule = 0; rule < sheet.rules() && item->childCount() < s_mostLegendLines; ++rule)
        for (const auto & [isThere, kind] :
             {std::pair(kinds.areas, Kind::Area), std::pair(kinds.lines, Kind::Line),
              std::pair(kinds.points, Kind::Point)}) {
            if (!isThere) continue;
            const QString text =
                sheet.rules() > 1 ? QString::fromStdString(sheet.filterOf(rule)) : nameOf(kind);
            auto * line = new QTreeWidgetItem(item, {text});
            line->setIcon(0, swatch(sheet.styleOf(rule, kind)));
            line->setFlags(Qt::ItemIsEnabled);
        }
}

OverlayPanel::Overlay * OverlayPanel::overlayOf(const QTreeWidgetItem * item) const {
    if (!item || !overlays_) return nullptr;
    const QTreeWidgetItem * top = item->parent() ? item->parent() : item;
    const auto number = std::size_t(top->data(0, s_numberRole).toULongLong());
    return number < overlays_->list().size() ? overlays_->list()[number].get() : nullptr;
}

OverlayPanel::Overlay * OverlayPanel::selected() const {
    return overlayOf(list_->currentItem());
}

void OverlayPanel::select() {
    const Overlay * overlay = selected();
    opacity_->setEnabled(overlay != nullptr);
    style_->setEnabled(overlay != nullptr);
    problem_->hide();
    if (!overlay) return;
    opacity_->setValue(overlay->opacity() * 100.0);
    // Rules of a file have no room here.
    const QString text = QString::fromStdString(overlay->styleSheet().text());
    style_->setText(text.contains('\n') || text.contains(':') ? QString() : text);
}

void OverlayPanel::switchOne(QTreeWidgetItem * item) {
    Overlay * overlay = overlayOf(item);
    if (isFilling_ || item->parent() || !overlay) return;
    overlay->setShown(item->checkState(0) == Qt::Checked);
    emit changed();
}

void OverlayPanel::takeOrder() {
    if (isFilling_ || !overlays_) return;
    std::vector<std::size_t> order; // from the lowest
    for (int i = list_->topLevelItemCount(); i-- > 0;)
        order.push_back(std::size_t(list_->topLevelItem(i)->data(0, s_numberRole).toULongLong()));
    if (order.size() != overlays_->list().size() || std::is_sorted(order.begin(), order.end())) return;
    overlays_->setOrder(order);
    const int row = list_->indexOfTopLevelItem(list_->currentItem());
    fill();
    list_->setCurrentItem(list_->topLevelItem(std::max(row, 0)));
    emit changed();
}

void OverlayPanel::takeOpacity(double percent) {
    Overlay * overlay = selected();
    if (!overlay) return;
    overlay->setOpacity(percent / 100.0);
    emit changed();
}

void OverlayPanel::takeStyle() {
    Overlay * overlay = selected();
    if (!overlay) return;
    try {
        const std::string text = style_->text().trimmed().toStdString();
        overlays_->setStyle(*overlay, text.empty() ? VectorStyleSheet() : VectorStyleSheet::parse(text));
    } catch (const NBX::Exception & error) {
        problem_->setText(QString::fromStdString(error.what()));
        problem_->show();
        return;
    }
    const int row = list_->indexOfTopLevelItem(list_->currentItem());
    const QString text = style_->text();
    fill();
    list_->setCurrentItem(list_->topLevelItem(std::max(row, 0)));
    style_->setText(text);
    emit changed();
}
