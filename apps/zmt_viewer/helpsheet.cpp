#include "helpsheet.h"

#include <QAction>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QTextBrowser>
#include <QVBoxLayout>

#include "landscapeview.h"

namespace {

constexpr int s_sheetWidth = 560, s_sheetHeight = 640;

/// Without the marks of a menu.
QString plainText(QString text) {
    return text.remove('&').remove("...");
}

QString keysOf(const QAction & action) {
    QStringList keys;
    for (const QKeySequence & key : action.shortcuts())
        keys.append(key.toString(QKeySequence::NativeText));
    return keys.join(", ");
}

/// Actions of one text that stand together are one line.
void append(std::vector<HelpSheet::Line> & lines, const QString & group, const QAction & action) {
    const QString keys = keysOf(action), what = plainText(action.text());
    if (keys.isEmpty()) return;
    if (!lines.empty() && lines.back().group == group && lines.back().what == what)
        lines.back().keys =
            lines.back().keys.section(HelpSheet::tr(" to "), 0, 0) + HelpSheet::tr(" to ") + keys;
    else
        lines.push_back({group, keys, what});
}

void append(std::vector<HelpSheet::Line> & lines, const QString & group, const QMenu & menu) {
    for (const QAction * action : menu.actions())
        if (const auto * below = action->menu<const QMenu *>())
            append(lines, group, *below);
        else
            append(lines, group, *action);
}

/// Keys that lists know, and menus do not.
std::vector<HelpSheet::Line> listKeys() {
    const QString lists = HelpSheet::tr("In lists");
    return {
        {lists, HelpSheet::tr("Up, Down"), HelpSheet::tr("Select")},
        {lists, HelpSheet::tr("Ctrl+Up, Ctrl+Down"), HelpSheet::tr("Move a layer or a bookmark")},
        {lists, HelpSheet::tr("Space"), HelpSheet::tr("Switch a layer on or off")},
        {lists, HelpSheet::tr("Enter, F2, Del"), HelpSheet::tr("Fly to a bookmark, rename it, remove it")},
        {lists, HelpSheet::tr("F2, Enter, Ins, Del"),
         HelpSheet::tr("Edit a height of the colours, its colour, add a step, remove it")}};
}

QString htmlOf(const std::vector<HelpSheet::Line> & lines) {
    QString html = "<table cellspacing='0' cellpadding='3'>", group;
    for (const HelpSheet::Line & line : lines) {
        if (line.group != group)
            html.append("<tr><td colspan='2'><br><b>" + line.group.toHtmlEscaped() + "</b></td></tr>");
        group = line.group;
        html.append("<tr><td>" + line.keys.toHtmlEscaped() + "&nbsp;&nbsp;&nbsp;</td><td>" +
                    line.what.toHtmlEscaped() + "</td></tr>");
    }
    return html + "</table>";
}

} // namespace

HelpSheet::HelpSheet(QWidget & window) : QDialog(&window) {
    setObjectName("help");
    setWindowTitle(tr("Keys and mouse"));
    setAttribute(Qt::WA_DeleteOnClose);
    resize(s_sheetWidth, s_sheetHeight);
    auto * text = new QTextBrowser;
    text->setHtml(htmlOf(linesOf(window)));
    (new QVBoxLayout(this))->addWidget(text);
}

std::vector<HelpSheet::Line> HelpSheet::linesOf(const QWidget & window) {
    std::vector<Line> lines;
    for (const auto & [keys, what] : LandscapeView::controls())
        lines.push_back({tr("In the picture"), keys, what});
    for (const QAction * action : window.actions())
        append(lines, tr("In the picture"), *action);
    if (const auto * bar = window.findChild<QMenuBar *>())
        for (const QAction * action : bar->actions())
            if (const auto * menu = action->menu<const QMenu *>())
                append(lines, plainText(action->text()), *menu);
    const auto lists = listKeys();
    lines.insert(lines.end(), lists.begin(), lists.end());
    return lines;
}
