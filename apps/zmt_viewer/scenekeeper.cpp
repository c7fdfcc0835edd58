// Edits are kept as the looks before and after them, so that one step serves all kinds of layers; what a
// slider runs through is one step. Opening anything but another layer begins a new list of them.

#include "scenekeeper.h"

#include <algorithm>
#include <exception>

#include <QFileDialog>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>

#include "bookmarkmenu.h"
#include "bookmarkpanel.h"
#include "landscape/errors.h"
#include "landscape/outputfiles.h"
#include "landscapeview.h"
#include "viewerwindow.h"

#include <nbx/data/file.h>
#include <nbx/data/locator.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/externallinksolver.h>

namespace {

using NBX::StringUtils;
using ZMT::UTIL::ExternalLinkSolver;

constexpr int s_mostEdits = 200;
constexpr double s_longestPause = 1.0; ///< in seconds, within one drag of a slider
constexpr int s_lookEditId = 1;

/// While it lives the user is asked where missing files are, in front of `window`. Nothing loads meanwhile,
/// so that no other thread asks.
class LinkQuestions {
public:
    explicit LinkQuestions(QWidget & window) {
        s_window = &window;
        ExternalLinkSolver::resetModified();
        ExternalLinkSolver::setPickFileCallback(ask);
    }
    ~LinkQuestions() {
        ExternalLinkSolver::setPickFileCallback(nullptr);
        s_window = nullptr;
    }
    LinkQuestions(const LinkQuestions &) = delete;
    LinkQuestions & operator=(const LinkQuestions &) = delete;

private:
    static bool ask(ZMT::UTIL::LinkType, std::wstring & name) {
        const std::string path = StringUtils::WString2Utf8String(name);
        const QString title =
            QObject::tr("Where is %1?").arg(QString::fromStdString(NBX::File::fileName(path)));
        const QString chosen =
            QFileDialog::getOpenFileName(s_window, title, QString::fromStdString(NBX::File::pathName(path)));
        name = chosen.toStdWString();
        return !chosen.isEmpty();
    }

    static inline QWidget * s_window = nullptr;
};

} // namespace

/// One change of a look, which is made already.
class SceneKeeper::Edit : public QUndoCommand {
public:
    Edit(SceneKeeper & keeper, const QString & what, const LandscapeLook & after)
        : QUndoCommand(what), keeper_(keeper), before_(keeper.look_), after_(after),
          time_(NBX::NBXTime::now()) {}

    int id() const override { return s_lookEditId; }
    bool mergeWith(const QUndoCommand * other) override {
        const auto * next = static_cast<const Edit *>(other);
        if (next->text() != text() || next->time_ - time_ > s_longestPause ||
            !before_.hasSameSwitches(next->after_))
            return false;
        after_ = next->after_;
        time_ = next->time_;
        return true;
    }
    void undo() override { show(before_); }
    void redo() override {
        if (isShown_) show(after_);
        isShown_ = true;
    }

private:
    void show(const LandscapeLook & look) {
        keeper_.look_ = look;
        keeper_.window_.setLook(look);
    }

    SceneKeeper & keeper_;
    LandscapeLook before_, after_;
    double time_; ///< of the last change
    bool isShown_ = false;
};

SceneKeeper::SceneKeeper(ViewerWindow & window) : QObject(&window), window_(window) {
    edits_.setUndoLimit(s_mostEdits);
    auto * file = window.findChild<QMenu *>("file");
    save_ = new QAction(tr("&Save scene"), this);
    saveAs_ = new QAction(tr("Save scene &as..."), this);
    save_->setShortcut(QKeySequence::Save);
    saveAs_->setShortcut(tr("Ctrl+Shift+S"));
    connect(save_, &QAction::triggered, this, &SceneKeeper::save);
    connect(saveAs_, &QAction::triggered, this, &SceneKeeper::saveAs);
    file->insertActions(window.findChild<QAction *>("reload"), {save_, saveAs_});

    auto * edit = new QMenu(tr("&Edit"), &window);
    window.menuBar()->insertMenu(window.findChild<QMenu *>("view")->menuAction(), edit);
    QAction * undo = edits_.createUndoAction(this, tr("&Undo"));
    undo->setShortcut(QKeySequence::Undo);
    QAction * redo = edits_.createRedoAction(this, tr("&Redo"));
    redo->setShortcuts({tr("Ctrl+Shift+Z"), tr("Ctrl+Y")});
    edit->addActions({undo, redo});

    connect(&window, &ViewerWindow::edited, this, &SceneKeeper::noteEdit);
    connect(&window, &ViewerWindow::opened, this, &SceneKeeper::noteOpened);
    connect(window.bookmarks()->panel(), &BookmarkPanel::changed, this, &SceneKeeper::noteChange);
    connect(&window, &ViewerWindow::changed, this, &SceneKeeper::noteChange);
    connect(&edits_, &QUndoStack::cleanChanged, this, &SceneKeeper::showState);
}

/// The list of edits tells that it ends, when the window is hardly there any more.
SceneKeeper::~SceneKeeper() {
    edits_.disconnect(this);
}

void SceneKeeper::setEnabled(bool isEnabled) {
    save_->setEnabled(isEnabled);
    saveAs_->setEnabled(isEnabled);
}

void SceneKeeper::open(const std::string & file) {
    if (window_.loader()->isRunning() || !mayLeave()) return;
    try {
        const LinkQuestions questions(window_);
        const ReadScene read = readScene(file);
        opening_ = NBX::File::absolutePath(NBX::Locator(file).text());
        missing_ = read.missing;
        window_.open(read.scene, opening_);
    } catch (const std::exception & error) {
        window_.showFailure(tr("The scene cannot be opened"), QString::fromStdString(messageOf(error)));
    }
}

bool SceneKeeper::save() {
    return file_.empty() ? saveAs() : saveIn(file_);
}

bool SceneKeeper::saveAs() {
    if (!window_.view()->landscape()) return false;
    const QString proposed =
        file_.empty() ? "landscape." + QString::fromStdString(s_sceneSuffix) : QString::fromStdString(file_);
    const QString chosen = QFileDialog::getSaveFileName(
        &window_, tr("Save scene"), proposed, tr("Scenes (*.%1)").arg(QString::fromStdString(s_sceneSuffix)));
    return !chosen.isEmpty() && saveIn(chosen.toStdString());
}

bool SceneKeeper::saveIn(const std::string & file) {
    if (!window_.view()->landscape()) return false;
    const bool hasSuffix = NBX::File::extensionName(file) == s_sceneSuffix;
    const std::string target = NBX::File::absolutePath(hasSuffix ? file : file + "." + s_sceneSuffix);
    try {
        const Scene scene = window_.scene();
        checkOutputs(inputFiles(scene.landscape), {{"the scene", target}});
        writeScene(scene, target);
    } catch (const std::exception & error) {
        window_.showFailure(tr("The scene was not saved"), QString::fromStdString(messageOf(error)));
        return false;
    }
    file_ = target;
    main_ = window_.shownFile();
    isChanged_ = false;
    edits_.setClean();
    showState();
    return true;
}

bool SceneKeeper::mayLeave() {
    const bool hasLooseBookmarks = file_.empty() && !window_.bookmarks()->panel()->bookmarks().empty();
    const bool isAsked = hasLooseBookmarks || (!file_.empty() && isModified());
    if (!isAsked || !window_.view()->landscape()) return true;
    const QString words =
        hasLooseBookmarks
            ? tr("The bookmarks are in no scene yet. Save one?")
            : tr("%1 has changed. Save it?").arg(QString::fromStdString(NBX::File::fileName(file_)));
    QMessageBox box(QMessageBox::Question, tr("Changes of the scene"), words,
                    QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, &window_);
    box.setTextFormat(Qt::PlainText);
    const int answer = box.exec();
    return answer == QMessageBox::Discard || (answer == QMessageBox::Save && save());
}

/// Another terrain ends the scene; more layers belong to it.
void SceneKeeper::noteOpened(const std::vector<std::string> & files) {
    const bool isScene = !opening_.empty() && files == std::vector{opening_};
    const bool isSame = !isScene && main_ == window_.shownFile();
    isChanged_ = isSame ? isChanged_ || !files.empty() : isScene && ExternalLinkSolver::modified();
    if (!isSame) file_ = isScene ? opening_ : "";
    if (!isSame && !isScene) window_.bookmarks()->panel()->setBookmarks({});
    main_ = window_.shownFile();
    opening_.clear();
    look_ = window_.look();
    edits_.clear();
    showState();
    if (isScene && !missing_.empty()) {
        QStringList names;
        for (const std::string & name : missing_)
            names.append(QString::fromStdString(name));
        window_.showFailure(tr("Files of the scene are missing"), tr("Not there: %1").arg(names.join(", ")));
    }
    missing_.clear();
}

void SceneKeeper::noteEdit(const QString & what) {
    const LandscapeLook after = window_.look();
    if (after == look_) return;
    edits_.push(new Edit(*this, what, after));
    look_ = after;
}

void SceneKeeper::noteChange() {
    isChanged_ = true;
    showState();
}

void SceneKeeper::showState() {
    window_.showTitle(file_);
    window_.setWindowModified(!file_.empty() && isModified());
}
