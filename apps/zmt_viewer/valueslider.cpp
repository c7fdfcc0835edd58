#include "valueslider.h"

#include <algorithm>
#include <cmath>

#include <QGridLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>

namespace {

constexpr int s_positions = 200;

} // namespace

ValueSlider::ValueSlider(const QString & name, double least, double largest, const QString & unit,
                         const QString & none)
    : least_(least), largest_(largest), value_(least), unit_(unit), none_(none),
      slider_(new QSlider(Qt::Horizontal)), text_(new QLabel) {
    slider_->setRange(0, s_positions);
    slider_->setPageStep(s_positions / 20);
    // A click must not take the keys away from the picture.
    slider_->setFocusPolicy(Qt::TabFocus);
    auto * layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setVerticalSpacing(2);
    layout->addWidget(new QLabel(name), 0, 0);
    layout->addWidget(text_, 0, 1, Qt::AlignRight);
    layout->addWidget(slider_, 1, 0, 1, 2);
    connect(slider_, &QSlider::valueChanged, this, &ValueSlider::follow);
    showValue();
}

void ValueSlider::setEvenRange(double least, double largest) {
    isEven_ = true;
    least_ = least;
    largest_ = largest;
    setValue(least);
}

void ValueSlider::move(int steps) {
    slider_->setValue(slider_->value() + steps);
}

void ValueSlider::setValue(double value) {
    value_ = value;
    const double inside = std::clamp(value, least_, largest_);
    const double share = !isEven_            ? std::log(inside / least_) / std::log(largest_ / least_)
                         : largest_ > least_ ? (inside - least_) / (largest_ - least_)
                                             : 0.0;
    const QSignalBlocker blocker(slider_);
    slider_->setValue(int(std::lround(share * s_positions)));
    showValue();
}

/// Two digits are kept, or those of a step, so that round values are met.
void ValueSlider::follow(int position) {
    const double share = double(position) / s_positions;
    const double value =
        isEven_ ? least_ + (largest_ - least_) * share : least_ * std::pow(largest_ / least_, share);
    const double exact = isEven_ ? (largest_ - least_) / s_positions : value / 10.0;
    const double unit = exact > 0.0 ? std::pow(10.0, std::floor(std::log10(exact))) : 1.0;
    value_ = std::clamp(std::round(value / unit) * unit, least_, largest_);
    if (!none_.isEmpty() && position == s_positions) value_ = HUGE_VAL;
    showValue();
    emit valueChanged(value_);
}

void ValueSlider::showValue() {
    if (std::isinf(value_)) return text_->setText(none_);
    const bool isLarge = std::abs(value_) >= 1000.0;
    text_->setText(QString::number(value_, isLarge ? 'f' : 'g', isLarge ? 0 : 3) + unit_);
}
