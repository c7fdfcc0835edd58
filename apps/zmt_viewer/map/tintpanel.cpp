// Whatever changes the table makes a whole new one, which is sorted, shown and told.

#include "tintpanel.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <numeric>

#include <QColorDialog>
#include <QComboBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLocale>
#include <QPushButton>
#include <QTableWidget>

#include "landscape/errors.h"

namespace {

enum TintColumn { TC_Height, TC_Color };

QColor shownColor(const NBX::Color & color) {
    return QColor::fromRgbF(color[0], color[1], color[2]);
}

/// Bytes, as pictures have them.
NBX::Color storedColor(const QColor & color) {
    return {color.red() / 255.0, color.green() / 255.0, color.blue() / 255.0};
}

} // namespace

TintPanel::TintPanel(QWidget * parent) : QWidget(parent), names_(new QComboBox), rows_(new QTableWidget) {
    auto * grid = new QGridLayout(this);
    grid->addWidget(names_, 0, 0, 1, 2);
    grid->addWidget(rows_, 1, 0, 1, 2);
    const auto addButton = [&](const QString & words, const char * name, int row, int column, auto && act) {
        auto * button = new QPushButton(words);
        button->setObjectName(name);
        grid->addWidget(button, row, column);
        connect(button, &QPushButton::clicked, this, act);
    };
    addButton(tr("&Add"), "tintAdd", 2, 0, [this] { addStep(rows_->currentRow()); });
    addButton(tr("&Remove"), "tintRemove", 2, 1, [this] { removeStep(rows_->currentRow()); });
    addButton(tr("&Load..."), "tintLoad", 3, 0, [this] { chooseFile(); });
    addButton(tr("&Save..."), "tintSave", 3, 1, [this] { chooseTarget(); });
    names_->setObjectName("tintNames");
    names_->addItem(tr("own table"));
    for (const std::string & name : heightTintNames())
        names_->addItem(QString::fromStdString(name));
    rows_->setObjectName("tintRows");
    rows_->setColumnCount(2);
    rows_->setHorizontalHeaderLabels({tr("Height"), tr("Colour")});
    rows_->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    rows_->verticalHeader()->hide();
    rows_->setSelectionMode(QAbstractItemView::SingleSelection);
    rows_->setToolTip(tr("F2 edits a height, Enter a colour; Ins adds a step, Del removes one"));
    rows_->installEventFilter(this);
    setFocusProxy(rows_);
    connect(names_, &QComboBox::activated, this, [this](int item) {
        if (item > 0) choose(heightTintNames().at(std::size_t(item - 1)));
    });
    connect(rows_, &QTableWidget::itemChanged, this, [this](QTableWidgetItem * item) {
        if (isFilling_ || item->column() != TC_Height) return;
        bool isNumber = false;
        const double height = QLocale::c().toDouble(item->text().trimmed(), &isNumber);
        if (isNumber && std::isfinite(height)) return setHeight(item->row(), height);
        fill(); // as before
    });
    connect(rows_, &QTableWidget::cellDoubleClicked, this, [this](int row, int column) {
        if (column == TC_Color) chooseColor(row);
    });
    fill();
}

void TintPanel::setTints(const HeightTints & tints, double low, double high) {
    tints_ = tints;
    low_ = low;
    high_ = high;
    fill();
}

HeightTints TintPanel::steps() const {
    return tints_.empty() ? namedHeightTints(heightTintNames().front(), low_, high_) : tints_;
}

/// The name that the table has, where it is one of those.
void TintPanel::fill() {
    isFilling_ = true;
    const HeightTints all = steps();
    const auto & names = heightTintNames();
    const auto named = std::find_if(names.begin(), names.end(), [&](const std::string & name) {
        return namedHeightTints(name, low_, high_) == all;
    });
    names_->setCurrentIndex(named == names.end() ? 0 : int(named - names.begin()) + 1);
    rows_->setRowCount(int(all.size()));
    for (int row = 0; row < int(all.size()); ++row) {
        const auto & tint = all[std::size_t(row)];
        rows_->setItem(row, TC_Height, new QTableWidgetItem(QLocale::c().toString(tint.height, 'g', 6)));
        auto * color = new QTableWidgetItem;
        color->setBackground(shownColor(tint.color));
        color->setFlags(color->flags() & ~Qt::ItemIsEditable);
        color->setToolTip(shownColor(tint.color).name());
        rows_->setItem(row, TC_Color, color);
    }
    isFilling_ = false;
}

void TintPanel::take(HeightTints tints) {
    sortHeightTints(tints);
    tints_ = std::move(tints);
    fill();
    emit changed();
}

void TintPanel::choose(const std::string & name) {
    const bool isUsual = name == heightTintNames().front();
    take(isUsual ? HeightTints() : namedHeightTints(name, low_, high_));
}

void TintPanel::setHeight(int row, double height) {
    HeightTints all = steps();
    all.at(std::size_t(row)).height = height;
    take(all);
}

void TintPanel::setColor(int row, const NBX::Color & color) {
    HeightTints all = steps();
    all.at(std::size_t(row)).color = color;
    take(all);
}

void TintPanel::addStep(int row) {
    HeightTints all = steps();
    const auto at = std::size_t(std::clamp(row, 0, int(all.size()) - 1));
    auto step = all[at];
    step.height = at + 1 < all.size() ? std::midpoint(step.height, all[at + 1].height)
                                      : step.height + (high_ - low_) / 10.0;
    all.insert(all.begin() + std::ptrdiff_t(at) + 1, step);
    take(all);
    rows_->setCurrentCell(int(at) + 1, TC_Height);
}

/// One is left.
void TintPanel::removeStep(int row) {
    HeightTints all = steps();
    if (row < 0 || row >= int(all.size()) || all.size() < 2) return;
    all.erase(all.begin() + row);
    take(all);
    rows_->setCurrentCell(std::min(row, int(all.size()) - 1), TC_Height);
}

void TintPanel::chooseColor(int row) {
    const HeightTints all = steps();
    if (row < 0 || row >= int(all.size())) return;
    const QColor color = QColorDialog::getColor(shownColor(all[std::size_t(row)].color), this);
    if (color.isValid()) setColor(row, storedColor(color));
}

bool TintPanel::load(const std::string & path) {
    try {
        take(loadHeightTints(path));
        return true;
    } catch (const std::exception & error) {
        emit failed(QString::fromStdString(messageOf(error)));
        return false;
    }
}

bool TintPanel::save(const std::string & path) {
    try {
        saveHeightTints(steps(), path);
        return true;
    } catch (const std::exception & error) {
        emit failed(QString::fromStdString(messageOf(error)));
        return false;
    }
}

void TintPanel::chooseFile() {
    const QString file = QFileDialog::getOpenFileName(this, tr("Load a table of colours"), {},
                                                      tr("Tables of colours (*.nbx)"));
    if (!file.isEmpty()) load(file.toStdString());
}

void TintPanel::chooseTarget() {
    const QString file = QFileDialog::getSaveFileName(this, tr("Save the table of colours"), "colours.nbx",
                                                      tr("Tables of colours (*.nbx)"));
    if (!file.isEmpty()) save(file.toStdString());
}

/// Keys of the table, some of which mean something else in the window.
bool TintPanel::eventFilter(QObject * watched, QEvent * event) {
    const bool isPress = event->type() == QEvent::KeyPress;
    if (!isPress && event->type() != QEvent::ShortcutOverride) return QWidget::eventFilter(watched, event);
    const int row = rows_->currentRow();
    switch (static_cast<QKeyEvent *>(event)->key()) {
    case Qt::Key_Insert:
        if (isPress) addStep(row);
        break;
    case Qt::Key_Delete:
        if (isPress) removeStep(row);
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (rows_->currentColumn() != TC_Color) return QWidget::eventFilter(watched, event);
        if (isPress) chooseColor(row);
        break;
    default:
        return QWidget::eventFilter(watched, event);
    }
    event->accept();
    return true;
}
