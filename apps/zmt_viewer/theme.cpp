// Light and dark are palettes of the application. That of the system comes back when there is none of them:
// the platform then tells what the desktop has, and changes it with the desktop.

#include "theme.h"

#include <array>
#include <utility>

#include <QActionGroup>
#include <QApplication>
#include <QEvent>
#include <QMenu>
#include <QPalette>

#include "viewerwindow.h"

namespace {

struct ThemeColor {
    QPalette::ColorRole role;
    QRgb light, dark;
};

constexpr std::array s_themeColors = {
    ThemeColor{QPalette::Window, 0xfff0f0f0, 0xff2b2f34},
    ThemeColor{QPalette::WindowText, 0xff101418, 0xffe4e6e8},
    ThemeColor{QPalette::Base, 0xffffffff, 0xff373c42},
    ThemeColor{QPalette::AlternateBase, 0xfff6f7f8, 0xff3c4147},
    ThemeColor{QPalette::Text, 0xff101418, 0xffe4e6e8},
    ThemeColor{QPalette::PlaceholderText, 0xff70767c, 0xff8a9096},
    ThemeColor{QPalette::Button, 0xfff0f0f0, 0xff3c4147},
    ThemeColor{QPalette::ButtonText, 0xff101418, 0xffe4e6e8},
    ThemeColor{QPalette::BrightText, 0xffffffff, 0xffffffff},
    ThemeColor{QPalette::ToolTipBase, 0xffffffe6, 0xff3a3f45},
    ThemeColor{QPalette::ToolTipText, 0xff101418, 0xffe4e6e8},
    ThemeColor{QPalette::Highlight, 0xff2f6fb0, 0xff35709f},
    ThemeColor{QPalette::HighlightedText, 0xffffffff, 0xffffffff},
    ThemeColor{QPalette::Link, 0xff1f5fa0, 0xff7ab8f5},
    ThemeColor{QPalette::Light, 0xffffffff, 0xff4a4f55},
    ThemeColor{QPalette::Midlight, 0xffe3e5e7, 0xff3f4449},
    ThemeColor{QPalette::Mid, 0xffb8bcc0, 0xff5a6066},
    ThemeColor{QPalette::Dark, 0xff9a9ea2, 0xff17191c},
    ThemeColor{QPalette::Shadow, 0xff6a6e72, 0xff0c0d0f},
};
constexpr QRgb s_disabledOnLight = 0xff9a9ea2, s_disabledOnDark = 0xff757a80;
const char * const s_warningOnLight = "#a03c00";
const char * const s_warningOnDark = "#ffae66";

QPalette paletteOf(bool isDark) {
    QPalette palette;
    for (const ThemeColor & color : s_themeColors)
        palette.setColor(color.role, QColor(isDark ? color.dark : color.light));
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, QColor(isDark ? s_disabledOnDark : s_disabledOnLight));
    return palette;
}

} // namespace

Theme::Theme(ViewerWindow & window) : QObject(&window), window_(window), choices_(new QActionGroup(this)) {
    QMenu * menu = window.findChild<QMenu *>("view")->addMenu(tr("&Theme"));
    for (const auto & [name, text] : {std::pair("system", tr("As the &system")),
                                      std::pair("light", tr("&Light")), std::pair("dark", tr("&Dark"))}) {
        QAction * choice = menu->addAction(text, this, [this, name = name] { set(name); });
        choice->setObjectName(name);
        choice->setCheckable(true);
        choices_->addAction(choice);
    }
    window.installEventFilter(this);
    set(name_);
}

void Theme::set(const std::string & name) {
    const bool isOwn = name == "light" || name == "dark";
    const std::string before = std::exchange(name_, isOwn ? name : "system");
    for (QAction * choice : choices_->actions())
        choice->setChecked(choice->objectName().toStdString() == name_);
    if (isOwn || before != name_) QApplication::setPalette(isOwn ? paletteOf(name_ == "dark") : QPalette());
    colorWarnings();
}

bool Theme::eventFilter(QObject * watched, QEvent * event) {
    if (watched == &window_ && event->type() == QEvent::PaletteChange) colorWarnings();
    return QObject::eventFilter(watched, event);
}

/// Readable on what the window has. A style sheet of the window itself would keep its palette from changing.
void Theme::colorWarnings() {
    const bool isDark = window_.palette().color(QPalette::Window).lightness() < 128;
    const QString sheet =
        QString("QLabel { color: %1; } QPushButton { color: %1; border: none; padding: 0 6px; }")
            .arg(isDark ? s_warningOnDark : s_warningOnLight);
    for (QWidget * widget : window_.findChildren<QWidget *>())
        if (widget->property("isProblem").toBool() && widget->styleSheet() != sheet)
            widget->setStyleSheet(sheet);
}
