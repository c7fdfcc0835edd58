#include "valueslider.h"

#include <QLabel>
#include <QSlider>

#include <gtest/gtest.h>

namespace {

class ValueSliderTest : public ::testing::Test {
protected:
    void SetUp() override {
        QObject::connect(&slider, &ValueSlider::valueChanged, &slider, [this](double value) {
            told = value;
            ++count;
        });
    }

    ValueSlider slider{"Error", 0.5, 50.0, " px"};
    QSlider * handle = slider.findChild<QSlider *>();
    double told = 0.0;
    int count = 0;
};

TEST_F(ValueSliderTest, RunsOverItsRange) {
    handle->setValue(handle->maximum());
    EXPECT_DOUBLE_EQ(50.0, told);
    handle->setValue(handle->minimum());
    EXPECT_DOUBLE_EQ(0.5, told);
    EXPECT_EQ(2, count);
    EXPECT_DOUBLE_EQ(told, slider.value());
}

TEST_F(ValueSliderTest, MiddleIsTheGeometricMean) {
    handle->setValue((handle->minimum() + handle->maximum()) / 2);
    EXPECT_DOUBLE_EQ(5.0, told);
}

TEST_F(ValueSliderTest, ValuesRiseAndHaveTwoDigits) {
    double last = 0.0;
    for (int i = handle->minimum(); i <= handle->maximum(); ++i) {
        handle->setValue(i);
        EXPECT_GE(slider.value(), last);
        last = slider.value();
        const double scaled = last >= 10.0 ? last : last >= 1.0 ? last * 10.0 : last * 100.0;
        EXPECT_NEAR(std::round(scaled), scaled, 1e-9) << last;
    }
}

TEST(ValueSlider, LargeValuesAreWrittenOut) {
    ValueSlider slider("Memory", 16.0, 4095.0, " MiB");
    const auto shown = [&] { return slider.findChildren<QLabel *>().back()->text(); };
    const auto shows = [&](const char * text) {
        for (const QLabel * label : slider.findChildren<QLabel *>())
            if (label->text() == text) return true;
        return false;
    };
    slider.setValue(4095.0);
    EXPECT_TRUE(shows("4095 MiB")) << shown().toStdString();
    slider.setValue(512.0);
    EXPECT_TRUE(shows("512 MiB")) << shown().toStdString();
}

TEST_F(ValueSliderTest, ShowsAValueWithoutTelling) {
    slider.setValue(7.25);
    EXPECT_EQ(0, count);
    EXPECT_DOUBLE_EQ(7.25, slider.value());
    slider.setValue(1000.0);
    EXPECT_EQ(handle->maximum(), handle->value());
    EXPECT_DOUBLE_EQ(1000.0, slider.value());
    slider.setValue(1e-9);
    EXPECT_EQ(handle->minimum(), handle->value());
    EXPECT_EQ(0, count);
}

TEST_F(ValueSliderTest, MayRunEvenlyOverAnyRange) {
    slider.setEvenRange(-500.0, 1500.0);
    EXPECT_EQ(-500.0, slider.value());
    handle->setValue(handle->maximum() / 4);
    EXPECT_DOUBLE_EQ(0.0, told);
    handle->setValue(handle->maximum());
    EXPECT_DOUBLE_EQ(1500.0, told);
    slider.move(-1);
    EXPECT_DOUBLE_EQ(1490.0, told);
    slider.setEvenRange(0.0, 6373.0); // steps of 31.865
    handle->setValue(101);
    EXPECT_DOUBLE_EQ(3220.0, told) << "round numbers";
    slider.setValue(6373.0 / 2);
    EXPECT_EQ(handle->maximum() / 2, handle->value());
    slider.setEvenRange(5.0, 5.0);
    handle->setValue(handle->maximum());
    EXPECT_DOUBLE_EQ(5.0, slider.value()) << "level ground";
}

} // namespace
