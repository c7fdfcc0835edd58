// Files are looked at some times a second: nobody calls when a server or a disk has something else.

#include "filenotices.h"

#include <QHBoxLayout>
#include <QPushButton>

namespace {

constexpr int s_lookMilliseconds = 400;
constexpr int s_widestNotice = 560;

QPushButton * makeNotice(const char * name, QWidget * parent) {
    auto * button = new QPushButton(parent);
    button->setObjectName(name);
    button->setFlat(true);
    button->setCursor(Qt::PointingHandCursor);
    // A click must not take the keys away from the picture.
    button->setFocusPolicy(Qt::TabFocus);
    button->setProperty("isProblem", true);
    // A small window shows as much as fits.
    button->setMinimumWidth(1);
    button->hide();
    return button;
}

void setNotice(QPushButton & button, const QString & text, const QString & hint) {
    button.setVisible(!text.isEmpty());
    button.setToolTip(text + "\n" + hint);
    button.setText(button.fontMetrics().elidedText(text, Qt::ElideMiddle, s_widestNotice).replace('&', "&&"));
}

} // namespace

FileNotices::FileNotices(QWidget * parent)
    : QWidget(parent), failures_(makeNotice("failureNotice", this)),
      changes_(makeNotice("changeNotice", this)) {
    auto * row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);
    row->addWidget(failures_);
    row->addWidget(changes_);
    connect(failures_, &QPushButton::clicked, this, &FileNotices::openRecord);
    connect(changes_, &QPushButton::clicked, this, &FileNotices::reloadWanted);
    connect(&timer_, &QTimer::timeout, this, &FileNotices::look);
}

void FileNotices::setLandscape(const std::shared_ptr<Landscape> & landscape) {
    landscape_ = landscape;
    const bool isWatched = landscape && landscape->isReadWhileShown();
    isWatched ? timer_.start(s_lookMilliseconds) : timer_.stop();
    look();
}

void FileNotices::look() {
    showFailures(landscape_.expired() ? std::vector<ReadFailure>() : readFailures());
    showChanges();
}

void FileNotices::showFailures(const std::vector<ReadFailure> & failures) {
    setNotice(*failures_, QString::fromStdString(summaryOf(failures)),
              tr("A click shows which file, which part of it, why, and when it is tried again"));
    if (record_ && record_->isVisible()) record_->setFailures(failures);
}

void FileNotices::showChanges() {
    QStringList names;
    if (const auto landscape = landscape_.lock())
        for (const std::string & name : landscape->changedFiles())
            names.append(QString::fromStdString(name));
    setNotice(*changes_,
              names.isEmpty()     ? QString()
              : names.size() == 1 ? tr("%1 has changed: reload").arg(names.front())
                                  : tr("%1 files have changed: reload").arg(names.size()),
              tr("A click opens the files anew and stays where you are (F5)"));
}

void FileNotices::openRecord() {
    if (!record_) {
        record_ = new FailureList(window());
        connect(record_, &FailureList::tryAgainWanted, this, &FileNotices::tryAgainWanted);
    }
    record_->setFailures(readFailures());
    record_->show();
    record_->raise();
}
