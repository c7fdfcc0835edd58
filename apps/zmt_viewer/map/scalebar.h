#pragma once

#include <optional>

#include <QWidget>

/// A bar over a picture that is a round number of metres long, with that number above it.
class ScaleBar : public QWidget {
    Q_OBJECT
public:
    explicit ScaleBar(QWidget * parent = nullptr);

    /// Metres that a pixel of the widget shows; none hides the bar.
    void setScale(std::optional<double> metresPerPixel);
    /// 0 without a scale.
    double metres() const { return metres_; }
    /// In pixels of the widget.
    double barLength() const { return length_; }
    QString text() const;

protected:
    void paintEvent(QPaintEvent * event) override;

private:
    std::optional<double> scale_;
    double metres_ = 0.0, length_ = 0.0;
};
