#include "windowmemory.h"

#include <filesystem>

#include <QDockWidget>
#include <QGuiApplication>
#include <QMenu>
#include <QScreen>

#include "support/zmtrun.h"
#include "viewertest.h"

namespace {

class WindowMemoryTest : public ViewerTest {
protected:
    std::string file() const { return folder_.out("window.ini"); }
    QDockWidget * panel() const { return window->findChild<QDockWidget *>("panel"); }
    QMenu * recentMenu() const {
        for (QMenu * menu : window->findChildren<QMenu *>())
            if (menu->title() == "Open re&cent") return menu;
        return nullptr;
    }
    void writeState(const WindowState & state) const { ASSERT_TRUE(state.write(file())); }

    RunFolder folder_;
};

TEST_F(WindowMemoryTest, WhatTheUserLeftComesBack) {
    {
        WindowMemory memory(*window, file());
        memory.apply(false);
        window->resize(600, 420);
        window->move(40, 50);
        panel()->hide();
        load({s_everest});
        memory.save();
    }
    window->resize(700, 480);
    window->move(0, 0);
    panel()->show();
    WindowMemory memory(*window, file());
    EXPECT_EQ(memory.state().recentFiles,
              std::vector<std::string>{std::filesystem::weakly_canonical(s_everest)});
    EXPECT_EQ(memory.state().folder,
              std::filesystem::weakly_canonical(s_everest).parent_path().string() + "/");
    memory.apply(false);
    EXPECT_EQ(window->size(), QSize(600, 420));
    EXPECT_EQ(window->pos(), QPoint(40, 50));
    EXPECT_TRUE(panel()->isHidden());
}

TEST_F(WindowMemoryTest, ASizeThatWasAskedForStays) {
    WindowState state;
    state.place = {10, 20, 500, 400};
    state.isMaximized = true;
    writeState(state);
    WindowMemory(*window, file()).apply(true);
    EXPECT_EQ(window->size(), QSize(700, 480));
    EXPECT_FALSE(window->isMaximized());
}

TEST_F(WindowMemoryTest, APlaceOutOfSightIsLeftAlone) {
    const QPoint before = window->pos();
    WindowState state;
    state.place = {QGuiApplication::primaryScreen()->virtualGeometry().right() + 10, 20, 500, 400};
    writeState(state);
    WindowMemory(*window, file()).apply(false);
    EXPECT_EQ(window->pos(), before);
    EXPECT_EQ(window->size(), QSize(500, 400));
}

TEST_F(WindowMemoryTest, RecentFilesOpenFromTheMenu) {
    WindowState state;
    state.recentFiles = {std::filesystem::weakly_canonical(s_jacksboro), "/nowhere/a&b.tif"};
    writeState(state);
    WindowMemory memory(*window, file());
    ASSERT_TRUE(recentMenu());
    ASSERT_EQ(recentMenu()->actions().size(), 2);
    EXPECT_TRUE(recentMenu()->actions()[1]->text().endsWith("a&&b.tif"));
    recentMenu()->actions()[0]->trigger();
    ASSERT_TRUE(settle());
    EXPECT_NE(window->shownFile().find("jacksboro"), std::string::npos);
    load({s_everest, s_everestImage});
    ASSERT_EQ(recentMenu()->actions().size(), 4);
    EXPECT_TRUE(recentMenu()->actions()[0]->text().contains("everest_image"));
    load({s_jacksboro});
    EXPECT_EQ(recentMenu()->actions().size(), 4) << "each of them once";
    EXPECT_TRUE(recentMenu()->actions()[0]->text().contains("jacksboro"));
}

TEST_F(WindowMemoryTest, WhatCouldNotBeShownIsNotRecent) {
    WindowMemory memory(*window, file());
    EXPECT_FALSE(recentMenu()->isEnabled());
    window->open({folder_.write("a.tif", "no raster")});
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->lastError().isEmpty(); }, 20'000));
    EXPECT_TRUE(memory.state().recentFiles.empty());
    EXPECT_FALSE(recentMenu()->isEnabled());
}

} // namespace
