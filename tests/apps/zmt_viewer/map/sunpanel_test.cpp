#include "map/sunpanel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QSlider>
#include <QTest>
#include <QTimeEdit>

#include <gtest/gtest.h>

namespace {

/// 2024-06-21 at 06:15 of UTC, which is noon in Kathmandu.
constexpr SunMoment s_noon{1718950500.0, 345, 85.3, 27.7};

class SunPanelTest : public testing::Test {
protected:
    SunPanelTest() {
        QObject::connect(&panel, &SunPanel::changed, [this] { ++changes; });
        panel.setMoment(s_noon);
    }
    template <class T> T & field(const char * name) const { return *panel.findChild<T *>(name); }
    std::string words() const { return field<QLabel>("sunPosition").text().toStdString(); }

    SunPanel panel;
    int changes = 0;
};

TEST_F(SunPanelTest, ShowsAMomentInItsZone) {
    EXPECT_EQ(field<QDateEdit>("sunDate").text(), "2024-06-21");
    EXPECT_EQ(field<QTimeEdit>("sunTime").text(), "12:00");
    EXPECT_EQ(field<QComboBox>("sunZone").currentText(), "UTC+05:45");
    EXPECT_EQ(field<QSlider>("sunDay").value(), 720);
    EXPECT_EQ(panel.moment(), s_noon);
    EXPECT_EQ(changes, 0);
    // Near the solstice the sun culminates some degrees south of the zenith there.
    EXPECT_TRUE(words().starts_with("The sun stands 85.")) << words();
}

TEST_F(SunPanelTest, TellsWhatItIsMovedTo) {
    field<QSlider>("sunDay").setValue(1380);
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(field<QTimeEdit>("sunTime").text(), "23:00");
    EXPECT_EQ(panel.moment()->time, s_noon.time + 11.0 * 3600.0);
    EXPECT_NE(words().find("below the horizon: the ground has the light of the sky alone"), std::string::npos)
        << words();
    field<QDateEdit>("sunDate").setDate(QDate(2024, 12, 21));
    field<QDoubleSpinBox>("sunLatitude").setValue(-27.7);
    EXPECT_EQ(changes, 3);
    EXPECT_EQ(panel.moment()->latitude, -27.7);
    EXPECT_EQ(panel.moment()->time, s_noon.time + 183.0 * 86400.0 + 11.0 * 3600.0);
}

TEST_F(SunPanelTest, AZoneThatIsChosenLeavesTheClock) {
    auto & zone = field<QComboBox>("sunZone");
    zone.setCurrentIndex(zone.findText("UTC-03:30"));
    EXPECT_EQ(field<QTimeEdit>("sunTime").text(), "12:00");
    EXPECT_EQ(panel.moment()->zone, -210);
    EXPECT_EQ(panel.moment()->time, s_noon.time + (345.0 + 210.0) * 60.0);
}

TEST_F(SunPanelTest, SwitchedOffThereIsNone) {
    panel.toggle();
    EXPECT_EQ(changes, 1);
    EXPECT_FALSE(panel.moment());
    panel.toggle();
    EXPECT_EQ(panel.moment(), s_noon);
    panel.setMoment({});
    EXPECT_EQ(changes, 2);
    EXPECT_FALSE(panel.moment());
    EXPECT_EQ(field<QTimeEdit>("sunTime").text(), "12:00") << "the clock stays";
    panel.setClock({0.0, 60, 15.0, 50.0});
    EXPECT_EQ(changes, 2);
    EXPECT_FALSE(panel.moment());
    EXPECT_EQ(field<QTimeEdit>("sunTime").text(), "01:00");
    panel.setProblem("baked");
    panel.toggle();
    EXPECT_FALSE(panel.moment());
    EXPECT_FALSE(field<QLabel>("sunProblem").isHidden());
}

TEST_F(SunPanelTest, KnowsZones) {
    EXPECT_EQ(SunPanel::zoneName(0), "UTC+00:00");
    EXPECT_EQ(SunPanel::zoneName(-570), "UTC-09:30");
    EXPECT_EQ(SunPanel::usualZone(86.9), 360);
    EXPECT_EQ(SunPanel::usualZone(-7.4), 0);
    EXPECT_EQ(SunPanel::usualZone(-180.0), -720);
    panel.setMoment(SunMoment{0.0, 17, 4.0, 50.0});
    EXPECT_EQ(field<QComboBox>("sunZone").currentText(), "UTC+00:17") << "one that is in use no more";
    EXPECT_EQ(panel.moment()->zone, 17);
}

} // namespace
