#include "helpsheet.h"

#include <algorithm>

#include <QAction>
#include <QTextBrowser>

#include "viewertest.h"

namespace {

class HelpSheetTest : public ViewerTest {
protected:
    HelpSheet * sheet() const { return window->findChild<HelpSheet *>(); }
    /// The keys for something; empty for what nobody tells.
    std::string keysFor(const QString & what) const {
        for (const HelpSheet::Line & line : HelpSheet::linesOf(*window))
            if (line.what == what) return line.keys.toStdString();
        return "";
    }
};

TEST_F(HelpSheetTest, EveryActionWithAKeyIsThere) {
    const auto lines = HelpSheet::linesOf(*window);
    unsigned keys = 0;
    for (const QAction * action : window->findChildren<QAction *>()) {
        const QString what = action->text().remove('&').remove("...");
        // Lists of numbers are told by their ends.
        if (what.startsWith("Switch a layer")) continue;
        for (const QKeySequence & key : action->shortcuts()) {
            ++keys;
            EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const HelpSheet::Line & line) {
                return line.what == what && line.keys.split(", ").contains(key.toString());
            })) << what.toStdString();
        }
    }
    EXPECT_GT(keys, 20U);
    EXPECT_EQ(keysFor("Switch a layer, the lowest first, on or off"), "1 to 9");
    EXPECT_EQ(keysFor("Redo"), "Ctrl+Shift+Z, Ctrl+Y");
    EXPECT_EQ(keysFor("Keys and mouse"), "F1, ?");
}

TEST_F(HelpSheetTest, AnActionThatIsAddedIsTold) {
    auto * action = new QAction("&Land the plane...", window.get());
    action->setShortcut(QKeySequence("Ctrl+Shift+L"));
    window->addAction(action);
    EXPECT_EQ(keysFor("Land the plane"), "Ctrl+Shift+L");
}

TEST_F(HelpSheetTest, KeysOpenItOnceAndTheMouseIsTold) {
    for (const int key : {int(Qt::Key_F1), int(Qt::Key_Question), int(Qt::Key_F1)}) {
        activate();
        QTest::keyClick(window.get(), Qt::Key(key));
        ASSERT_TRUE(sheet());
        EXPECT_TRUE(sheet()->isVisible());
    }
    EXPECT_EQ(window->findChildren<HelpSheet *>().size(), 1);
    const QString text = sheet()->findChild<QTextBrowser *>()->toPlainText();
    for (const char * words : {"Left drag", "Wheel", "Turn round the place under the mouse", "W, S, A, D",
                               "Ctrl+O", "In lists", "Move a layer or a bookmark", "F2, Enter, Ins, Del"})
        EXPECT_TRUE(text.contains(words)) << words;
    ASSERT_TRUE(QTest::qWaitFor([&] {
        sheet()->activateWindow();
        return QApplication::activeWindow() == sheet();
    }));
    QTest::keyClick(sheet(), Qt::Key_Escape);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !sheet(); }));
    EXPECT_TRUE(window->isVisible());
}

} // namespace
