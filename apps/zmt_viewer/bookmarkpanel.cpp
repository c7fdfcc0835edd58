// Each item knows the number of its bookmark; dragging moves items, and their order becomes that of the
// bookmarks. Positions are shared with those that were handed in, so they are replaced and not changed.

#include "bookmarkpanel.h"

#include <algorithm>

#include <QAbstractItemModel>
#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QListWidget>
#include <QPixmap>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace {

using ZMT::UTIL::CameraPosition;

constexpr int s_bookmarkRole = Qt::UserRole;
constexpr int s_thumbWidth = 96, s_thumbHeight = 60;
constexpr double s_longestLeg = 3600.0; ///< in seconds

QIcon thumbOf(const Bookmark & bookmark) {
    QPixmap picture;
    picture.loadFromData(bookmark.picture.data(), unsigned(bookmark.picture.size()), "JPEG");
    if (!picture.isNull()) return picture;
    picture = QPixmap(s_thumbWidth, s_thumbHeight);
    picture.fill(Qt::lightGray);
    return picture;
}

} // namespace

BookmarkPanel::BookmarkPanel(QWidget * parent)
    : QWidget(parent), list_(new QListWidget), duration_(new QDoubleSpinBox),
      circle_(new QCheckBox(tr("In a &circle"))), fly_(new QPushButton(tr("&Fly through all"))) {
    auto * add = new QPushButton(tr("&Add this view"));
    add->setToolTip(tr("Key B"));
    auto * buttons = new QHBoxLayout;
    buttons->addWidget(add);
    buttons->addWidget(fly_);
    auto * form = new QFormLayout;
    form->addRow(tr("Flight to it"), duration_);
    form->addRow(circle_);
    auto * column = new QVBoxLayout(this);
    column->addWidget(list_, 1);
    column->addLayout(form);
    column->addLayout(buttons);

    list_->setObjectName("bookmarks");
    list_->setIconSize({s_thumbWidth, s_thumbHeight});
    list_->setDragDropMode(QAbstractItemView::InternalMove);
    list_->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
    list_->setToolTip(
        tr("Enter or a double click flies there, F2 names it, Del removes it, Ctrl+Up and Ctrl+Down "
           "or dragging move it"));
    list_->installEventFilter(this);
    duration_->setRange(0.0, s_longestLeg);
    duration_->setDecimals(1);
    duration_->setSuffix(tr(" s"));
    duration_->setToolTip(tr("How long the flight to the selected view takes"));
    circle_->setToolTip(tr("The flight to the selected view goes once round what it looks at"));
    connect(list_, &QListWidget::currentRowChanged, this, &BookmarkPanel::showSelected);
    connect(list_, &QListWidget::itemChanged, this, &BookmarkPanel::takeItem);
    connect(list_, &QListWidget::itemDoubleClicked, this, [this] { emit chosen(selected()); });
    // The items have moved when the event has been handled.
    connect(list_->model(), &QAbstractItemModel::rowsMoved, this,
            [this] { QTimer::singleShot(0, this, &BookmarkPanel::takeOrder); });
    connect(duration_, &QDoubleSpinBox::valueChanged, this, &BookmarkPanel::takeFlight);
    connect(circle_, &QCheckBox::toggled, this, &BookmarkPanel::takeFlight);
    connect(add, &QPushButton::clicked, this, &BookmarkPanel::addWanted);
    connect(fly_, &QPushButton::clicked, this, &BookmarkPanel::flightWanted);
    showSelected();
}

void BookmarkPanel::setBookmarks(const std::vector<Bookmark> & bookmarks) {
    bookmarks_ = bookmarks;
    isFilling_ = true;
    list_->clear();
    for (const Bookmark & bookmark : bookmarks_)
        addItem(bookmark);
    isFilling_ = false;
    showSelected();
}

void BookmarkPanel::addItem(const Bookmark & bookmark) {
    auto * item =
        new QListWidgetItem(thumbOf(bookmark), QString::fromStdWString(bookmark.position->getName()), list_);
    item->setFlags((item->flags() | Qt::ItemIsEditable) & ~Qt::ItemIsDropEnabled);
    item->setData(s_bookmarkRole, list_->count() - 1);
}

void BookmarkPanel::add(const Bookmark & bookmark) {
    bookmarks_.push_back(bookmark);
    if (bookmark.position->getName().empty())
        bookmark.position->setName(tr("View %1").arg(bookmarks_.size()).toStdWString());
    isFilling_ = true;
    addItem(bookmark);
    isFilling_ = false;
    list_->setCurrentRow(list_->count() - 1);
    emit changed();
}

int BookmarkPanel::selected() const {
    return list_->currentRow();
}

int BookmarkPanel::select(int steps) {
    const int count = list_->count();
    if (count == 0) return -1;
    const int from = selected() >= 0 ? selected() : steps > 0 ? -1 : count;
    list_->setCurrentRow(((from + steps) % count + count) % count);
    return selected();
}

CameraPosition * BookmarkPanel::position() const {
    const int number = selected();
    return number >= 0 && number < int(bookmarks_.size()) ? bookmarks_[std::size_t(number)].position.get()
                                                          : nullptr;
}

void BookmarkPanel::showSelected() {
    if (isFilling_) return;
    const CameraPosition * shown = position();
    const QSignalBlocker first(duration_), second(circle_);
    duration_->setEnabled(shown != nullptr);
    circle_->setEnabled(shown != nullptr);
    duration_->setValue(shown ? shown->getDuration() : 0.0);
    circle_->setChecked(shown && shown->getIsCircle());
    fly_->setEnabled(!bookmarks_.empty());
}

void BookmarkPanel::takeItem(QListWidgetItem * item) {
    if (isFilling_) return;
    Bookmark & bookmark = bookmarks_.at(item->data(s_bookmarkRole).toUInt());
    bookmark.position = new CameraPosition(*bookmark.position);
    bookmark.position->setName(item->text().toStdWString());
    emit changed();
}

void BookmarkPanel::takeFlight() {
    if (!position()) return;
    Bookmark & bookmark = bookmarks_[std::size_t(selected())];
    bookmark.position = new CameraPosition(*bookmark.position);
    bookmark.position->setDuration(duration_->value());
    bookmark.position->setIsCircle(circle_->isChecked());
    emit changed();
}

void BookmarkPanel::takeOrder() {
    std::vector<Bookmark> ordered;
    ordered.reserve(bookmarks_.size());
    isFilling_ = true;
    for (int row = 0; row < list_->count(); ++row) {
        ordered.push_back(bookmarks_.at(list_->item(row)->data(s_bookmarkRole).toUInt()));
        list_->item(row)->setData(s_bookmarkRole, row);
    }
    isFilling_ = false;
    bookmarks_ = std::move(ordered);
    showSelected();
    emit changed();
}

void BookmarkPanel::move(int steps) {
    const int from = selected(), to = from + steps;
    if (from < 0 || to < 0 || to >= list_->count()) return;
    isFilling_ = true;
    list_->insertItem(to, list_->takeItem(from));
    isFilling_ = false;
    list_->setCurrentRow(to);
    takeOrder();
}

void BookmarkPanel::removeSelected() {
    if (!position()) return;
    isFilling_ = true;
    delete list_->takeItem(selected());
    isFilling_ = false;
    takeOrder();
}

/// Keys of the list that it does not know itself.
bool BookmarkPanel::eventFilter(QObject * watched, QEvent * event) {
    if (watched != list_ || event->type() != QEvent::KeyPress) return QWidget::eventFilter(watched, event);
    const auto * key = static_cast<QKeyEvent *>(event);
    const bool isMoving = key->modifiers().testFlag(Qt::ControlModifier);
    switch (key->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (position()) emit chosen(selected());
        return true;
    case Qt::Key_Delete:
        removeSelected();
        return true;
    case Qt::Key_Up:
    case Qt::Key_Down:
        if (!isMoving) return false;
        move(key->key() == Qt::Key_Up ? -1 : 1);
        return true;
    default:
        return false;
    }
}
