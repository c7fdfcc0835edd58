#pragma once

#include <vector>

#include <QDialog>

#include "landscape/readfailures.h"

class QPushButton;
class QTreeWidget;

/// The record of what cannot be read: which file, which range of it, why, and when it is tried again.
/// Textures of cities may be tried again at once. A window of its own, beside which everything goes on.
class FailureList : public QDialog {
    Q_OBJECT
public:
    explicit FailureList(QWidget * parent);

    /// Shows these in the place of what was shown; the place that was scrolled to stays.
    void setFailures(const std::vector<ReadFailure> & failures);

signals:
    /// For what cities lack.
    void tryAgainWanted();

private:
    QTreeWidget * list_;
    QPushButton * tryAgain_;
};
