#include "failurelist.h"

#include <algorithm>
#include <cmath>

#include <QHeaderView>
#include <QLocale>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

enum Column { C_File, C_Range, C_Retry, C_Reason };

QStringList textsOf(const ReadFailure & failure) {
    const QLocale locale(QLocale::English);
    const auto number = [&](std::uint64_t value) { return locale.toString(qulonglong(value)); };
    const int seconds = int(std::ceil(failure.secondsToRetry));
    return {QString::fromStdString(failure.file),
            failure.waitsForRequest()
                ? FailureList::tr("all of it")
                : FailureList::tr("%1 bytes from %2").arg(number(failure.size), number(failure.offset)),
            failure.waitsForRequest() ? FailureList::tr("on request")
            : seconds > 0             ? FailureList::tr("in %1 s").arg(seconds)
                                      : FailureList::tr("now"),
            QString::fromStdString(failure.reason)};
}

} // namespace

FailureList::FailureList(QWidget * parent)
    : QDialog(parent), list_(new QTreeWidget), tryAgain_(new QPushButton(tr("Try again"))) {
    setObjectName("failures");
    setWindowTitle(tr("What cannot be read"));
    resize(820, 320);
    list_->setRootIsDecorated(false);
    list_->setUniformRowHeights(true);
    list_->setHeaderLabels({tr("File"), tr("Range"), tr("Next try"), tr("Reason")});
    list_->header()->setStretchLastSection(true);
    list_->setColumnWidth(C_File, 240);
    list_->setColumnWidth(C_Range, 190);
    list_->setColumnWidth(C_Retry, 80);
    auto * column = new QVBoxLayout(this);
    column->addWidget(list_);
    column->addWidget(tryAgain_, 0, Qt::AlignRight);
    tryAgain_->setObjectName("tryAgain");
    tryAgain_->setToolTip(
        tr("Asks at once for what cities lack, and opens their files anew that could not be "
           "opened; terrains and images follow in their time"));
    connect(tryAgain_, &QPushButton::clicked, this, &FailureList::tryAgainWanted);
}

void FailureList::setFailures(const std::vector<ReadFailure> & failures) {
    tryAgain_->setEnabled(std::any_of(failures.begin(), failures.end(),
                                      [](const ReadFailure & failure) { return failure.isOfCity; }));
    const int count = int(failures.size());
    while (list_->topLevelItemCount() > count)
        delete list_->takeTopLevelItem(list_->topLevelItemCount() - 1);
    while (list_->topLevelItemCount() < count)
        list_->addTopLevelItem(new QTreeWidgetItem);
    for (int row = 0; row < count; ++row) {
        QTreeWidgetItem * item = list_->topLevelItem(row);
        const QStringList texts = textsOf(failures[std::size_t(row)]);
        for (int column = 0; column < int(texts.size()); ++column) {
            item->setText(column, texts[column]);
            item->setToolTip(column, texts[column]);
        }
    }
}
