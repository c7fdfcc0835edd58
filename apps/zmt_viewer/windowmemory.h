#pragma once

#include <string>
#include <vector>

#include <QObject>

#include "program/windowstate.h"

class QMenu;
class ViewerWindow;

/// Lets a window look as its user left it, and knows which files were opened: place, size, panels, the folder
/// of the last file, theme, and a menu of recent files.
class WindowMemory : public QObject {
    Q_OBJECT
public:
    /// Reads `file`, which may be missing, and adds the menu. Neither of the two outlives `window`.
    WindowMemory(ViewerWindow & window, std::string file);

    /// Before the window is shown for the first time. With `keepsSize` it has a size that the user asked for.
    void apply(bool keepsSize);
    /// Writes the file.
    void save();

    const WindowState & state() const { return state_; }

private:
    void remember(const std::vector<std::string> & files);
    void fillMenu();

    ViewerWindow & window_;
    std::string file_;
    WindowState state_;
    QMenu * menu_;
};
