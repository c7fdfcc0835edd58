#pragma once

#include <vector>

#include <QDialog>
#include <QString>

/// The keys of a window, as its actions have them, and what the mouse does. A window of its own, beside which
/// everything goes on.
class HelpSheet : public QDialog {
    Q_OBJECT
public:
    /// What `window` has now.
    explicit HelpSheet(QWidget & window);

    struct Line {
        QString group; ///< the menu, or where the keys work
        QString keys;
        QString what;
    };
    /// Mouse and flight first, then each action of `window` that has a key, menu by menu, and those of lists.
    static std::vector<Line> linesOf(const QWidget & window);
};
