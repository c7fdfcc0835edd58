#include "map/tintpanel.h"

#include <QComboBox>
#include <QTableWidget>
#include <QTest>

#include <gtest/gtest.h>

#include "support/zmtrun.h"

namespace {

class TintPanelTest : public testing::Test {
protected:
    TintPanelTest() {
        QObject::connect(&panel, &TintPanel::changed, [this] { ++changes; });
        QObject::connect(&panel, &TintPanel::failed, [this](const QString & words) { failure = words; });
        panel.setTints({}, 0.0, 1000.0);
    }
    QTableWidget & rows() const { return *panel.findChild<QTableWidget *>("tintRows"); }
    std::string name() const {
        return panel.findChild<QComboBox *>("tintNames")->currentText().toStdString();
    }
    std::string height(int row) const { return rows().item(row, 0)->text().toStdString(); }
    void press(Qt::Key key) const { QTest::keyClick(&rows(), key); }

    TintPanel panel;
    int changes = 0;
    QString failure;
};

TEST_F(TintPanelTest, ShowsTheUsualTableAsSteps) {
    EXPECT_EQ(name(), "atlas");
    EXPECT_EQ(rows().rowCount(), 6);
    EXPECT_EQ(height(0), "0");
    EXPECT_EQ(height(5), "1000");
    EXPECT_TRUE(panel.tints().empty());
    EXPECT_EQ(changes, 0);
}

TEST_F(TintPanelTest, ATableIsChosen) {
    panel.choose("grey");
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(name(), "grey");
    EXPECT_EQ(panel.tints(), namedHeightTints("grey", 0.0, 1000.0));
    panel.choose("atlas");
    EXPECT_TRUE(panel.tints().empty()) << "the usual one follows the ground";
}

TEST_F(TintPanelTest, StepsAreEdited) {
    panel.choose("grey");
    rows().item(0, 0)->setText("2000");
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(name(), "own table");
    EXPECT_EQ(height(0), "1000") << "sorted";
    EXPECT_EQ(height(1), "2000");
    rows().item(1, 0)->setText("high");
    EXPECT_EQ(height(1), "2000") << "no number";
    EXPECT_EQ(changes, 2);
    panel.setColor(0, NBX::Color::red);
    EXPECT_EQ(panel.tints().front().color, NBX::Color::red);
    EXPECT_EQ(rows().item(0, 1)->background().color(), QColor(Qt::red));
}

TEST_F(TintPanelTest, StepsComeAndGoByKeys) {
    panel.choose("grey");
    rows().setCurrentCell(0, 0);
    press(Qt::Key_Insert);
    ASSERT_EQ(rows().rowCount(), 3);
    EXPECT_EQ(height(1), "500");
    EXPECT_EQ(rows().currentRow(), 1);
    press(Qt::Key_Delete);
    EXPECT_EQ(panel.tints(), namedHeightTints("grey", 0.0, 1000.0));
    press(Qt::Key_Delete);
    press(Qt::Key_Delete);
    EXPECT_EQ(rows().rowCount(), 1) << "one is left";
}

TEST_F(TintPanelTest, IsSavedAndLoaded) {
    const RunFolder folder;
    panel.choose("sand");
    const HeightTints sand = panel.tints();
    ASSERT_TRUE(panel.save(folder.out("t.nbx")));
    panel.choose("grey");
    ASSERT_TRUE(panel.load(folder.out("t.nbx")));
    EXPECT_EQ(panel.tints(), sand);
    EXPECT_EQ(name(), "sand");
    EXPECT_FALSE(panel.load(folder.write("bad.nbx", "x")));
    EXPECT_TRUE(failure.contains("is no table of colours")) << failure.toStdString();
    EXPECT_FALSE(panel.save(folder.out("missing/t.nbx")));
    EXPECT_EQ(panel.tints(), sand);
}

} // namespace
