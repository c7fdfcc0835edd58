#include "bookmarkmenu.h"

#include <cmath>

#include <QCheckBox>
#include <QDockWidget>
#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QTimer>

#include "bookmarkpanel.h"
#include "flightplayer.h"
#include "scenekeeper.h"
#include "support/zmtrun.h"
#include "viewertest.h"

namespace {

class BookmarkMenuTest : public ViewerTest {
protected:
    BookmarkMenu & menu() const { return *window->bookmarks(); }
    BookmarkPanel & panel() const { return *menu().panel(); }
    QListWidget * list() const { return panel().findChild<QListWidget *>("bookmarks"); }
    std::string names() const {
        std::string names;
        for (const Bookmark & bookmark : panel().bookmarks())
            names += std::string(names.empty() ? "" : ", ") +
                     QString::fromStdWString(bookmark.position->getName()).toStdString();
        return names;
    }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) const {
        QTest::keyClick(view, key, modifiers);
    }
    void moveAway(int milliseconds = 150) const {
        QTest::keyPress(view, Qt::Key_A);
        QTest::qWait(milliseconds);
        QTest::keyRelease(view, Qt::Key_A);
        ASSERT_TRUE(settle());
    }
    bool landed() const {
        return QTest::qWaitFor([&] { return !menu().player()->isPlaying(); }, 20'000) && settle();
    }
    void setDuration(double seconds) const { panel().findChild<QDoubleSpinBox *>()->setValue(seconds); }

    RunFolder folder_;
};

TEST_F(BookmarkMenuTest, AViewIsKeptWithItsPicture) {
    press(Qt::Key_B);
    EXPECT_EQ(list()->count(), 0) << "there is nothing to see";
    load({s_everest});
    const auto * dock = window->findChild<QDockWidget *>("bookmarkPanel");
    EXPECT_TRUE(dock->isHidden());
    press(Qt::Key_B);
    ASSERT_EQ(list()->count(), 1);
    EXPECT_FALSE(dock->isHidden());
    EXPECT_EQ(names(), "View 1");
    const auto & bookmark = panel().bookmarks()[0];
    const auto c = view->viewCoordinates();
    EXPECT_EQ(bookmark.position->getFrom(), (NBX::Vector3Base<double>(c[0], c[2], c[1])));
    const QImage picture = QImage::fromData(bookmark.picture.data(), int(bookmark.picture.size()));
    EXPECT_EQ(picture.size(), QSize(192, 120));
    EXPECT_NE(picture.pixelColor(96, 110), picture.pixelColor(96, 5)) << "ground below the sky";
}

TEST_F(BookmarkMenuTest, FliesThereAndStopsForTheUser) {
    load({s_everest});
    press(Qt::Key_B);
    setDuration(0.3);
    const QString first = view->viewArguments();
    const auto picture1 = picture();
    moveAway();
    press(Qt::Key_B);
    setDuration(60.0);
    const QString second = view->viewArguments();
    ASSERT_NE(first, second);
    press(Qt::Key_BracketRight); // round the end
    EXPECT_TRUE(menu().player()->isPlaying());
    ASSERT_TRUE(landed());
    EXPECT_EQ(view->viewArguments(), first);
    EXPECT_LT(difference(picture1, picture()), 1e-4);
    press(Qt::Key_BracketLeft);
    QTest::qWait(200);
    EXPECT_TRUE(menu().player()->isPlaying());
    EXPECT_NE(view->viewArguments(), first);
    QTest::mouseClick(view, Qt::LeftButton, {}, middle());
    EXPECT_FALSE(menu().player()->isPlaying());
    EXPECT_NE(view->viewArguments(), second);
}

TEST_F(BookmarkMenuTest, KeepsThePlaceOnExaggeratedGround) {
    load({s_everest});
    view->setExaggeration(3.0);
    ASSERT_TRUE(settle());
    press(Qt::Key_B);
    setDuration(0.1);
    const QString there = view->viewArguments();
    moveAway();
    press(Qt::Key_BracketRight);
    ASSERT_TRUE(landed());
    EXPECT_EQ(view->viewArguments(), there);
}

TEST_F(BookmarkMenuTest, TheListIsEditedByKeys) {
    load({s_everest});
    for (int i = 0; i < 3; ++i)
        press(Qt::Key_B);
    list()->setFocus();
    QTest::keyClick(list(), Qt::Key_Up, Qt::ControlModifier);
    EXPECT_EQ(names(), "View 1, View 3, View 2");
    QTest::keyClick(list(), Qt::Key_F2);
    auto * editor = list()->findChild<QLineEdit *>();
    ASSERT_TRUE(editor);
    editor->setText("Südsattel");
    QTest::keyClick(editor, Qt::Key_Return);
    EXPECT_TRUE(QTest::qWaitFor([&] { return names() == "View 1, Südsattel, View 2"; })) << names();
    panel().findChild<QCheckBox *>()->setChecked(true);
    setDuration(12.5);
    EXPECT_TRUE(panel().bookmarks()[1].position->getIsCircle());
    EXPECT_EQ(panel().bookmarks()[1].position->getDuration(), 12.5);
    EXPECT_EQ(panel().bookmarks()[0].position->getDuration(), 5.0);
    QTest::keyClick(list(), Qt::Key_Down);
    QTest::keyClick(list(), Qt::Key_Delete);
    EXPECT_EQ(names(), "View 1, Südsattel");
    QTest::keyClick(list(), Qt::Key_Up, Qt::ControlModifier);
    EXPECT_EQ(names(), "Südsattel, View 1");
    QTest::keyClick(list(), Qt::Key_Up, Qt::ControlModifier);
    EXPECT_EQ(names(), "Südsattel, View 1") << "it is the first";
}

TEST_F(BookmarkMenuTest, TheyAreStoredInTheScene) {
    load({s_everest});
    press(Qt::Key_B);
    QTimer::singleShot(50, [] {
        auto * box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        ASSERT_TRUE(box);
        EXPECT_EQ(box->text(), "The bookmarks are in no scene yet. Save one?");
        box->button(QMessageBox::Cancel)->click();
    });
    EXPECT_FALSE(window->close());
    activate();
    panel().findChild<QCheckBox *>()->setChecked(true);
    ASSERT_TRUE(window->scenes()->saveIn(folder_.out("mine.zmt")));
    EXPECT_FALSE(window->isWindowModified());
    setDuration(7.0);
    EXPECT_TRUE(window->isWindowModified());
    window->scenes()->save();
    const auto picture = panel().bookmarks()[0].picture;
    load({s_jacksboro});
    EXPECT_EQ(list()->count(), 0) << "they belong to another landscape";
    load({folder_.out("mine.zmt")});
    ASSERT_EQ(list()->count(), 1);
    EXPECT_EQ(panel().bookmarks()[0].picture, picture);
    EXPECT_TRUE(panel().bookmarks()[0].position->getIsCircle());
    EXPECT_EQ(panel().bookmarks()[0].position->getDuration(), 7.0);
    load({s_everestImage});
    EXPECT_EQ(list()->count(), 1) << "another layer takes none away";
}

} // namespace
