#pragma once

#include <string>
#include <vector>

#include <QObject>
#include <QUndoStack>

#include "scene/scene.h"

class QAction;
class ViewerWindow;

/// Saves what a window shows as a scene and opens it again, and takes back what its user has changed of the
/// layers. Its entries stand in the menus of the window.
class SceneKeeper : public QObject {
    Q_OBJECT
public:
    /// The window, which owns it, has its menu of files.
    explicit SceneKeeper(ViewerWindow & window);
    ~SceneKeeper() override;

    /// Whether anything can be saved.
    void setEnabled(bool isEnabled);
    /// Finds the files of the scene, asks for those that are missing, and has the window load them. What
    /// fails is shown.
    void open(const std::string & file);
    /// In the file that the scene has, or else one that the user is asked for. False where nothing was saved.
    bool save();
    bool saveAs();
    /// A name without the suffix of scenes gets it. A failure is shown.
    bool saveIn(const std::string & file);
    /// Asks what is to become of changes of a scene that has a file, and of bookmarks that are in none. False
    /// where the user would rather stay.
    bool mayLeave();

    /// That of the scene; empty for what was opened otherwise.
    const std::string & file() const { return file_; }
    bool isModified() const { return isChanged_ || !edits_.isClean(); }
    QUndoStack & edits() { return edits_; }

private:
    class Edit;

    void noteOpened(const std::vector<std::string> & files);
    void noteEdit(const QString & what);
    void noteChange();
    void showState();

    ViewerWindow & window_;
    std::string file_;
    std::string opening_; ///< that of a scene that is loaded
    std::string main_;    ///< what the window showed when a scene was opened or saved last
    std::vector<std::string> missing_;
    bool isChanged_ = false; ///< files, layers or bookmarks are others than the file of the scene has
    LandscapeLook look_;     ///< after the last edit
    QUndoStack edits_;
    QAction * save_;
    QAction * saveAs_;
};
