#pragma once

#include <string>

#include <QWidget>

#include "scene/heighttints.h"

class QComboBox;
class QTableWidget;

/// The colours of heights: a table that is chosen among some, read from a file, or edited step by step.
/// Heights are edited in place (F2), colours by Enter or a double click, Ins adds a step and Del removes one.
class TintPanel : public QWidget {
    Q_OBJECT
public:
    explicit TintPanel(QWidget * parent = nullptr);

    /// Shows a table, an empty one for the usual, over ground from `low` to `high`, without telling.
    void setTints(const HeightTints & tints, double low, double high);
    /// What is shown; empty for the usual one.
    const HeightTints & tints() const { return tints_; }
    /// As if the user had chosen it.
    void choose(const std::string & name);
    /// Of the step of that row, which may come to another row.
    void setHeight(int row, double height);
    void setColor(int row, const NBX::Color & color);
    /// Behind the row, halfway to the next.
    void addStep(int row);
    void removeStep(int row);
    /// What fails is told by `failed`.
    bool load(const std::string & path);
    bool save(const std::string & path);

signals:
    void changed();
    void failed(const QString & message);

protected:
    bool eventFilter(QObject * watched, QEvent * event) override;

private:
    HeightTints steps() const;
    void fill();
    void take(HeightTints tints);
    void chooseColor(int row);
    void chooseFile();
    void chooseTarget();

    HeightTints tints_;
    double low_ = 0.0, high_ = 1.0;
    bool isFilling_ = false;
    QComboBox * names_;
    QTableWidget * rows_;
};
