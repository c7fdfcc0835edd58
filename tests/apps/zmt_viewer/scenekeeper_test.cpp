#include "scenekeeper.h"

#include <filesystem>

#include <QFileDialog>
#include <QInputDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSlider>
#include <QTimer>

#include "bookmarkmenu.h"
#include "bookmarkpanel.h"
#include "support/zmtrun.h"
#include "viewertest.h"

#include <nbx/data/file.h>

namespace {

namespace fs = std::filesystem;

const std::string s_everestContours = ZMT_DATA_DIR "/../tests/data/everest_contours.geojson";

class SceneKeeperTest : public ViewerTest {
protected:
    SceneKeeper & keeper() const { return *window->scenes(); }
    void setExaggeration(int position) const {
        window->panel()->findChild<QWidget *>("exaggeration")->findChild<QSlider *>()->setValue(position);
    }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::ControlModifier) const {
        QTest::keyClick(window.get(), key, modifiers);
    }
    std::string copied(const std::string & file) const {
        const std::string copy = folder_.in(fs::path(file).filename().string());
        fs::copy_file(file, copy);
        return copy;
    }
    /// Waits for a dialog of this kind, and does something with it.
    template <class Dialog, class F> static void answer(const F & use) {
        QTimer::singleShot(50, [use] {
            auto * dialog = qobject_cast<Dialog *>(QApplication::activeModalWidget());
            ASSERT_TRUE(dialog);
            use(*dialog);
        });
    }
    void openScene(const std::string & path) const {
        window->open({path});
        ASSERT_TRUE(settle()) << window->lastError().toStdString();
    }

    RunFolder folder_;
};

TEST_F(SceneKeeperTest, MovedWithItsFilesASceneGivesTheSamePicture) {
    load({copied(s_everest), copied(s_everestImage)});
    layers().toggle(2);
    setExaggeration(650);
    QTest::keyClick(view, Qt::Key_F);
    view->setGeometryError(1.5);
    QTest::keyPress(view, Qt::Key_A);
    QTest::qWait(300);
    QTest::keyRelease(view, Qt::Key_A);
    ASSERT_TRUE(settle());
    const auto before = picture();
    const std::string wanted = view->viewArguments().toStdString();
    ASSERT_TRUE(keeper().saveIn(folder_.in("mine")));
    EXPECT_EQ(window->windowTitle(), "mine.zmt[*] - zmt");

    const std::string moved = (folder_.path() / "elsewhere").string();
    fs::rename(folder_.path() / "in", moved);
    makeWindow(LandscapeOptions(), View(), 700, 480);
    openScene(moved + "/mine.zmt");
    EXPECT_EQ(window->shownFile(), moved + "/everest_heights.tif");
    EXPECT_EQ(view->viewArguments().toStdString(), wanted);
    EXPECT_EQ(view->geometryError(), 1.5);
    EXPECT_FALSE(layersOn()[2]);
    EXPECT_LT(difference(before, picture()), 1e-4);
    layers().toggle(2);
    ASSERT_TRUE(settle());
    EXPECT_GT(difference(before, picture()), 0.01) << "a picture that could not tell";
    EXPECT_TRUE(window->isWindowModified());
}

TEST_F(SceneKeeperTest, AllLooksTogetherComeBack) {
    load({copied(s_everest), copied(s_everestImage), copied(s_everestContours)});
    window->setContours(500.0);
    ASSERT_TRUE(settle());
    LandscapeLook look = window->look();
    ASSERT_EQ(look.layers.size(), 3U);
    look.layers[2].opacity = 0.6;
    std::swap(look.layers[1], look.layers[2]); // the light falls on the image
    look.tints = {{3000.0, NBX::Color(0.2F, 0.5F, 0.3F)}, {8000.0, NBX::Color(0.9F, 0.9F, 0.7F)}};
    look.grid = MapGrid::Kind::Degrees;
    look.sun = SunMoment{1729500000.0, 345, 86.9, 27.9};
    look.isFlooded = true;
    look.floodHeight = 5400.0;
    look.floodOpacity = 0.5;
    window->setLook(look);
    ASSERT_TRUE(settle());
    // The grid is one more overlay by now.
    look = window->look();
    ASSERT_EQ(look.overlays.size(), 3U);
    std::swap(look.overlays[0], look.overlays[2]);
    look.overlays[1].opacity = 0.7;
    window->setLook(look);
    ASSERT_TRUE(settle());
    const auto before = picture();
    ASSERT_TRUE(keeper().saveIn(folder_.in("all.zmt")));
    const std::string moved = (folder_.path() / "elsewhere").string();
    fs::rename(folder_.path() / "in", moved);
    makeWindow(LandscapeOptions(), View(), 700, 480);
    openScene(moved + "/all.zmt");
    EXPECT_EQ(window->look(), look);
    EXPECT_EQ(window->scene().landscape.contours, 500.0);
    EXPECT_FALSE(window->isWindowModified());
    EXPECT_LT(difference(before, picture()), 1e-4);
    window->reload();
    ASSERT_TRUE(settle());
    EXPECT_EQ(window->look(), look);
    EXPECT_LT(difference(before, picture()), 1e-4);
}

TEST_F(SceneKeeperTest, AsksForFilesThatAreMissing) {
    load({copied(s_everest), copied(s_everestImage)});
    ASSERT_TRUE(keeper().saveIn(folder_.out("mine.zmt")));
    EXPECT_FALSE(window->isWindowModified());
    const std::string moved = (folder_.path() / "elsewhere").string();
    fs::rename(folder_.path() / "in", moved);
    QString asked;
    answer<QFileDialog>([&](QFileDialog & dialog) {
        asked = dialog.windowTitle();
        dialog.findChild<QLineEdit *>()->setText(QString::fromStdString(moved + "/everest_heights.tif"));
        static_cast<QDialog &>(dialog).accept();
    });
    openScene(folder_.out("mine.zmt"));
    EXPECT_EQ(asked, "Where is everest_heights.tif?");
    EXPECT_EQ(layersOn().size(), 3U) << "the image lies beside it";
    EXPECT_TRUE(window->isWindowModified()) << "the links of the file are old";
    activate();
    press(Qt::Key_S);
    EXPECT_FALSE(window->isWindowModified());
    EXPECT_EQ(readScene(folder_.out("mine.zmt")).scene.landscape.terrain, moved + "/everest_heights.tif");
}

TEST_F(SceneKeeperTest, WhatIsNotChosenIsLeftOutAndTold) {
    load({copied(s_everest), copied(s_everestImage)});
    ASSERT_TRUE(keeper().saveIn(folder_.out("mine.zmt")));
    fs::remove(folder_.in("everest_image.tif"));
    answer<QFileDialog>([](QFileDialog & dialog) { dialog.reject(); });
    window->open({folder_.out("mine.zmt")});
    ASSERT_TRUE(settle());
    EXPECT_EQ(layersOn().size(), 2U);
    EXPECT_TRUE(window->lastError().startsWith("Not there: ")) << window->lastError().toStdString();
    EXPECT_TRUE(window->lastError().endsWith("everest_image.tif"));
}

TEST_F(SceneKeeperTest, WhatCannotBeOpenedLeavesWhatIsShown) {
    load({s_everest});
    window->open({folder_.write("bad.zmt", "x")});
    EXPECT_TRUE(window->lastError().contains("is no scene, or damaged"));
    EXPECT_TRUE(view->landscape());
    window->open({folder_.in("bad.zmt"), s_jacksboro});
    EXPECT_EQ(window->lastError(), "A scene is opened by itself, without other files");
    EXPECT_FALSE(window->loader()->isRunning());
}

TEST_F(SceneKeeperTest, TheSceneDoesNotOverwriteWhatItIsMadeOf) {
    load({copied(s_everest)});
    fs::create_symlink(folder_.in("everest_heights.tif"), folder_.in("link.zmt"));
    EXPECT_FALSE(keeper().saveIn(folder_.in("link.zmt")));
    EXPECT_TRUE(window->lastError().contains("would be overwritten"));
}

TEST_F(SceneKeeperTest, EditsAreUndoneOneByOne) {
    load({s_everest, s_everestImage});
    const LandscapeLook first = window->look();
    layers().toggle(2);
    const LandscapeLook second = window->look();
    setExaggeration(640);
    setExaggeration(650);
    setExaggeration(660);
    const LandscapeLook third = window->look();
    ASSERT_FALSE(first == second || second == third);
    EXPECT_EQ(keeper().edits().count(), 2) << "a drag of a slider is one";
    ASSERT_TRUE(settle());
    const auto after = picture();
    press(Qt::Key_Z);
    EXPECT_TRUE(window->look() == second);
    EXPECT_EQ(view->landscape()->exaggeration(), 1.0);
    press(Qt::Key_Z);
    EXPECT_TRUE(window->look() == first);
    EXPECT_TRUE(layersOn()[2]);
    press(Qt::Key_Y);
    press(Qt::Key_Y);
    EXPECT_TRUE(window->look() == third);
    EXPECT_FALSE(keeper().edits().canRedo());
    ASSERT_TRUE(settle());
    EXPECT_LT(difference(after, picture()), 1e-4);
    load({s_jacksboro});
    EXPECT_FALSE(keeper().edits().canUndo());
}

TEST_F(SceneKeeperTest, StylesAndOrderOfOverlaysAreUndone) {
    load({s_everest, ZMT_DATA_DIR "/everest_contours.geojson", ZMT_DATA_DIR "/everest_glaciers.geojson"});
    const LandscapeLook first = window->look();
    ASSERT_EQ(first.overlays.size(), 2U);
    auto * style = window->panel()->findChild<QLineEdit *>("layerStyle");
    style->setText("color=#00ff00, width=4");
    QTest::keyClick(style, Qt::Key_Return);
    view->landscape()->overlays().setOrder({1, 0});
    emit layers().changed(LayerEntry::Kind::Overlay);
    EXPECT_EQ(window->look().overlays[0].style, "color=#00ff00, width=4");
    press(Qt::Key_Z);
    EXPECT_EQ(window->look().overlays[0].name, first.overlays[0].name);
    press(Qt::Key_Z);
    EXPECT_TRUE(window->look() == first);
    EXPECT_EQ(std::as_const(*view->landscape()).overlays().list()[1]->styleSheet().text(), "");
}

TEST_F(SceneKeeperTest, ChangesAreAskedForBeforeTheWindowCloses) {
    load({copied(s_everest)});
    layers().toggle(0);
    EXPECT_TRUE(keeper().mayLeave()) << "nothing was ever saved";
    ASSERT_TRUE(keeper().saveIn(folder_.out("mine.zmt")));
    layers().toggle(0);
    answer<QMessageBox>([](QMessageBox & box) { box.button(QMessageBox::Cancel)->click(); });
    EXPECT_FALSE(window->close());
    answer<QMessageBox>([](QMessageBox & box) { box.button(QMessageBox::Save)->click(); });
    EXPECT_TRUE(window->close());
    EXPECT_TRUE(readScene(folder_.out("mine.zmt")).scene.look.layers[0].isOn);
}

TEST_F(SceneKeeperTest, ChangesAreAskedForBeforeAnotherTerrainTakesTheirPlace) {
    load({copied(s_everest)});
    QTest::keyClick(view, Qt::Key_B);
    const auto bookmarks = [&] { return window->bookmarks()->panel()->bookmarks().size(); };
    ASSERT_EQ(bookmarks(), 1U);
    const std::string shown = window->shownFile();
    load({copied(s_everestImage)});
    EXPECT_EQ(bookmarks(), 1U) << "another layer is nobody's end";
    answer<QMessageBox>([](QMessageBox & box) { box.button(QMessageBox::Cancel)->click(); });
    window->open({s_jacksboro});
    EXPECT_FALSE(window->loader()->isRunning());
    EXPECT_EQ(window->shownFile(), shown);
    answer<QMessageBox>([](QMessageBox & box) { box.button(QMessageBox::Discard)->click(); });
    load({s_jacksboro});
    EXPECT_EQ(bookmarks(), 0U);
    load({s_everest}); // there is nothing to lose: nobody asks
    EXPECT_EQ(window->shownFile(), s_everest);
}

TEST_F(SceneKeeperTest, TheLightStaysThatOfTheStart) {
    load({copied(s_everest)});
    setExaggeration(650);
    load({copied(s_everestImage)});
    const Scene scene = window->scene();
    EXPECT_EQ(scene.landscape.exaggeration, 1.0);
    EXPECT_GT(scene.look.exaggeration, 1.5);
}

TEST_F(SceneKeeperTest, AUrlIsAskedFor) {
    const auto type = [](const QString & text) {
        answer<QInputDialog>([text](QInputDialog & dialog) {
            dialog.setTextValue(text);
            dialog.accept();
        });
    };
    type("heights.tif");
    press(Qt::Key_U);
    EXPECT_EQ(window->lastError(), "heights.tif is no URL of a web server");
    window->findChild<QMessageBox *>()->close();
    activate();
    type(" http://127.0.0.1:1/country.ztt ");
    press(Qt::Key_U);
    EXPECT_TRUE(window->loader()->isRunning());
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->lastError().contains("127.0.0.1"); }, 30'000));
}

} // namespace
