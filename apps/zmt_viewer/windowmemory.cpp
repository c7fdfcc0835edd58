#include "windowmemory.h"

#include <algorithm>
#include <utility>

#include <QDockWidget>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QMenu>
#include <QScreen>

#include "theme.h"
#include "viewerwindow.h"

#include <nbx/data/file.h>
#include <nbx/data/locator.h>

namespace {

constexpr int s_leastInSight = 100; ///< of a window, in points, so that it can be moved
constexpr int s_menuWidth = 480;

/// Screens may have gone since.
bool isInSight(const QRect & place) {
    const auto screens = QGuiApplication::screens();
    return std::any_of(screens.begin(), screens.end(), [&](const QScreen * screen) {
        const QRect seen = screen->availableGeometry() & place;
        return seen.width() >= s_leastInSight && seen.height() >= s_leastInSight;
    });
}

/// Panels that have a name.
std::vector<QDockWidget *> panelsOf(const ViewerWindow & window) {
    std::vector<QDockWidget *> panels;
    for (QDockWidget * panel : window.findChildren<QDockWidget *>())
        if (!panel->objectName().isEmpty()) panels.push_back(panel);
    return panels;
}

} // namespace

WindowMemory::WindowMemory(ViewerWindow & window, std::string file)
    : window_(window), file_(std::move(file)), state_(WindowState::read(file_)),
      menu_(new QMenu(tr("Open re&cent"), &window)) {
    window.findChild<QMenu *>("file")->insertMenu(window.findChild<QAction *>("openUrl"), menu_);
    fillMenu();
    window.setStartFolder(state_.folder);
    connect(&window, &ViewerWindow::opened, this, &WindowMemory::remember);
}

void WindowMemory::apply(bool keepsSize) {
    window_.theme()->set(state_.theme);
    if (state_.place) {
        const WindowState::Place & place = *state_.place;
        if (!keepsSize) window_.resize(place.width, place.height);
        if (isInSight(QRect(QPoint(place.x, place.y), window_.size()))) window_.move(place.x, place.y);
    }
    if (state_.isMaximized && !keepsSize) window_.setWindowState(window_.windowState() | Qt::WindowMaximized);
    for (QDockWidget * panel : panelsOf(window_))
        if (const auto known = state_.panels.find(panel->objectName().toStdString());
            known != state_.panels.end())
            panel->setVisible(known->second);
}

void WindowMemory::save() {
    const QRect place =
        window_.isMaximized() ? window_.normalGeometry() : QRect(window_.pos(), window_.size());
    state_.place = {place.x(), place.y(), place.width(), place.height()};
    state_.isMaximized = window_.isMaximized();
    for (const QDockWidget * panel : panelsOf(window_))
        state_.panels[panel->objectName().toStdString()] = !panel->isHidden();
    state_.theme = window_.theme()->name();
    state_.write(file_);
}

void WindowMemory::remember(const std::vector<std::string> & files) {
    for (const std::string & file : files) {
        state_.addRecentFile(file);
        if (NBX::Locator(file).isFile())
            state_.folder = NBX::File::pathName(NBX::File::absolutePath(NBX::Locator(file).text()));
    }
    window_.setStartFolder(state_.folder);
    fillMenu();
}

void WindowMemory::fillMenu() {
    menu_->clear();
    menu_->setEnabled(!state_.recentFiles.empty());
    for (const std::string & file : state_.recentFiles) {
        QString shown = QString::fromStdString(NBX::Locator::shownIn(file));
        shown = menu_->fontMetrics().elidedText(shown, Qt::ElideMiddle, s_menuWidth);
        menu_->addAction(shown.replace('&', "&&"), &window_,
                         [window = &window_, file] { window->open({file}); });
    }
}
