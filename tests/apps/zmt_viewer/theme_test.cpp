#include "theme.h"

#include <QAction>
#include <QLabel>
#include <QPushButton>

#include "support/zmtrun.h"
#include "viewertest.h"
#include "windowmemory.h"

namespace {

class ThemeTest : public ViewerTest {
protected:
    ~ThemeTest() override { QApplication::setPalette(QPalette()); }

    Theme & theme() const { return *window->theme(); }
    static int lightness(const QWidget & widget, QPalette::ColorRole role) {
        return widget.palette().color(role).lightness();
    }
    /// What the eye tells apart, from 1 to 21, by the formula of the Web Content Accessibility
    /// Guidelines 2.1.
    static double contrast(const QColor & a, const QColor & b) {
        const auto luminance = [](const QColor & c) {
            const auto linear = [](double v) {
                return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
            };
            return 0.2126 * linear(c.redF()) + 0.7152 * linear(c.greenF()) + 0.0722 * linear(c.blueF());
        };
        const double high = std::max(luminance(a), luminance(b)), low = std::min(luminance(a), luminance(b));
        return (high + 0.05) / (low + 0.05);
    }
    QAction * choice(const char * name) const { return window->findChild<QAction *>(name); }
    /// Windows are told of other colours by events.
    void choose(const char * name) const {
        choice(name)->trigger();
        QCoreApplication::processEvents();
    }
};

TEST_F(ThemeTest, DarkAndLightChangeTheWindowAndNotThePicture) {
    load({s_everest});
    const QColor before = window->palette().color(QPalette::Window);
    const auto shown = picture();
    choose("dark");
    EXPECT_EQ(theme().name(), "dark");
    EXPECT_LT(lightness(*window, QPalette::Window), 60);
    EXPECT_GT(lightness(layers(), QPalette::WindowText), 200) << "all parts of it";
    ASSERT_TRUE(settle());
    EXPECT_LT(difference(shown, picture()), 1e-4);
    choose("light");
    EXPECT_GT(lightness(*window, QPalette::Window), 200);
    EXPECT_FALSE(choice("dark")->isChecked());
    choose("system");
    EXPECT_EQ(window->palette().color(QPalette::Window), before) << "what the system has";
}

TEST_F(ThemeTest, AllIsReadable) {
    for (const char * name : {"light", "dark"}) {
        choose(name);
        const QPalette palette = window->palette();
        for (const auto & [text, ground] :
             {std::pair(QPalette::WindowText, QPalette::Window), std::pair(QPalette::Text, QPalette::Base),
              std::pair(QPalette::Text, QPalette::AlternateBase),
              std::pair(QPalette::ButtonText, QPalette::Button),
              std::pair(QPalette::ToolTipText, QPalette::ToolTipBase),
              std::pair(QPalette::HighlightedText, QPalette::Highlight)})
            EXPECT_GT(contrast(palette.color(text), palette.color(ground)), 4.3) << name << " " << int(text);
        for (const QWidget * widget :
             {static_cast<const QWidget *>(window->findChild<QPushButton *>("failureNotice")),
              static_cast<const QWidget *>(window->findChild<QLabel *>("sunProblem")),
              static_cast<const QWidget *>(window->findChild<QLabel *>("layerProblem"))}) {
            widget->ensurePolished();
            const auto role = widget->foregroundRole();
            EXPECT_NE(widget->palette().color(role), palette.color(QPalette::WindowText)) << "a warning";
            EXPECT_GT(contrast(widget->palette().color(role), palette.color(QPalette::Window)), 4.5) << name;
        }
    }
}

TEST_F(ThemeTest, FollowsTheSystem) {
    QPalette system; // as a platform would change it
    system.setColor(QPalette::Window, Qt::black);
    QApplication::setPalette(system);
    QCoreApplication::processEvents();
    const auto * warning = window->findChild<QLabel *>("layerProblem");
    EXPECT_TRUE(warning->styleSheet().contains("#ffae66")) << warning->styleSheet().toStdString();
    QApplication::setPalette(QPalette());
    QCoreApplication::processEvents();
    EXPECT_TRUE(warning->styleSheet().contains("#a03c00"));
}

TEST_F(ThemeTest, IsKeptInTheWindowsState) {
    const RunFolder folder;
    {
        WindowMemory memory(*window, folder.out("window.ini"));
        memory.apply(false);
        theme().set("dark");
        memory.save();
    }
    theme().set("system");
    WindowMemory(*window, folder.out("window.ini")).apply(false);
    EXPECT_EQ(theme().name(), "dark");
    EXPECT_TRUE(choice("dark")->isChecked());
    theme().set("striped");
    EXPECT_EQ(theme().name(), "system");
}

} // namespace
