#pragma once

#include <string>

#include <QObject>

class QActionGroup;
class ViewerWindow;

/// The colours of the windows of the process: those of the system, or light or dark ones. What a style has no
/// colours for, such as warnings, follows them. The picture stays as it is.
class Theme : public QObject {
    Q_OBJECT
public:
    /// The window, which owns it, has its menu. Colours are as they were.
    explicit Theme(ViewerWindow & window);

    /// "system", "light" or "dark", as a window's state keeps it.
    const std::string & name() const { return name_; }
    /// Another name is taken for "system".
    void set(const std::string & name);

protected:
    /// For colours that the system changes.
    bool eventFilter(QObject * watched, QEvent * event) override;

private:
    void colorWarnings();

    ViewerWindow & window_;
    std::string name_ = "system";
    QActionGroup * choices_;
};
