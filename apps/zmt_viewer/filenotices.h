#pragma once

#include <memory>
#include <vector>

#include <QPointer>
#include <QTimer>
#include <QWidget>

#include "failurelist.h"
#include "landscape/landscape.h"

class QPushButton;

/// Stands in the status bar and tells about the files that a landscape is read from: in one line what cannot
/// be read, which opens the whole record, and which files have changed, with the offer to open them anew.
/// Nothing is shown where all is well.
class FileNotices : public QWidget {
    Q_OBJECT
public:
    explicit FileNotices(QWidget * parent = nullptr);

    /// What it watches from now on; null for nothing.
    void setLandscape(const std::shared_ptr<Landscape> & landscape);

signals:
    void reloadWanted();
    /// For what cities lack.
    void tryAgainWanted();

private:
    void look();
    void showFailures(const std::vector<ReadFailure> & failures);
    void showChanges();
    void openRecord();

    std::weak_ptr<Landscape> landscape_;
    QTimer timer_;
    QPushButton * failures_;
    QPushButton * changes_;
    QPointer<FailureList> record_; ///< null before it was opened
};
