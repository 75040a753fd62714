#include "ui/desktop/DesktopSeams.h"

#include "core/stay_on_top.h"

#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QWidget>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

QMessageBox::Icon qtIcon(MsgIcon icon)
{
    switch (icon) {
    case MsgIcon::Critical: return QMessageBox::Critical;
    case MsgIcon::Question: return QMessageBox::Question;
    case MsgIcon::Exclamation: return QMessageBox::Warning;
    case MsgIcon::Information: return QMessageBox::Information;
    case MsgIcon::None: break;
    }
    return QMessageBox::NoIcon;
}

QMessageBox::StandardButtons qtButtons(MsgButtons buttons)
{
    switch (buttons) {
    case MsgButtons::Ok: break;
    case MsgButtons::OkCancel: return QMessageBox::Ok | QMessageBox::Cancel;
    case MsgButtons::YesNo: return QMessageBox::Yes | QMessageBox::No;
    }
    return QMessageBox::Ok;
}

MsgAnswer answerFor(int button)
{
    switch (button) {
    case QMessageBox::Yes: return MsgAnswer::Yes;
    case QMessageBox::No: return MsgAnswer::No;
    case QMessageBox::Ok: return MsgAnswer::Ok;
    default: return MsgAnswer::Cancel;
    }
}

// Where a dialog opens and the name it proposes. An initial name such as "/korvo/Data/*.kvd"
// names a folder and a pattern: the dialog opens in the folder and proposes no name (the filter
// shows the pattern's files). Any other name is proposed whether or not it exists yet, in its
// folder or, when that is not there, in the nearest folder above it that is: never in the folder
// the program was started from.
struct StartLocation {
    QString folder;
    QString name;
};

StartLocation startLocation(const QString& fileName)
{
    if (fileName.isEmpty())
        return {};
    const QFileInfo info(fileName);
    const bool pattern = fileName.contains(u'*') || fileName.contains(u'?');
    if (info.isDir())
        return {info.absoluteFilePath(), {}};
    QString folder = info.absolutePath();
    while (!QFileInfo(folder).isDir()) {
        const QString up = QFileInfo(folder).absolutePath();
        if (up == folder)
            break;
        folder = up;
    }
    return {folder, pattern ? QString() : info.fileName()};
}

// A dialog of Qt's own on every desktop, opened at the request's start location. A desktop's
// native open dialog accepts only files that exist, so a new log file could not be named, and
// the create prompt would never be reached.
void prepare(QFileDialog& dialog, const FileDialogRequest& request)
{
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setWindowTitle(request.title);
    dialog.setNameFilter(qtNameFilters(request.filter));
    const StartLocation start = startLocation(request.fileName);
    if (!start.folder.isEmpty())
        dialog.setDirectory(start.folder);
    if (!start.name.isEmpty())
        dialog.selectFile(start.name);
}

} // namespace

MsgAnswer WidgetMessageBoxes::show(const MessageBoxRequest& request)
{
    QMessageBox box(qtIcon(request.icon), request.title,
                    QString(request.text).replace(u"\r\n"_s, u"\n"_s), qtButtons(request.buttons),
                    QApplication::activeWindow());
    return answerFor(box.exec());
}

QString WidgetFileDialogs::openFile(const FileDialogRequest& request)
{
    QFileDialog dialog(QApplication::activeWindow());
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setFileMode((request.flags & FileMustExist) ? QFileDialog::ExistingFile
                                                       : QFileDialog::AnyFile);
    prepare(dialog, request);
    for (;;) {
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
            return {};
        const QString chosen = QDir::toNativeSeparators(dialog.selectedFiles().constFirst());
        // With the create prompt, a name that does not exist yet is taken only when the user
        // agrees to create it; No goes back to the dialog.
        if (!(request.flags & CreatePrompt) || QFileInfo::exists(chosen)
            || msgBox(chosen + u"\r\nThis file does not exist.\r\nDo you want to create it?"_s,
                      MsgButtons::YesNo, MsgIcon::Exclamation, request.title)
                   == MsgAnswer::Yes)
            return chosen;
    }
}

QString WidgetFileDialogs::saveFile(const FileDialogRequest& request)
{
    QFileDialog dialog(QApplication::activeWindow());
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setOption(QFileDialog::DontConfirmOverwrite, !(request.flags & OverwritePrompt));
    prepare(dialog, request);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return {};
    return QDir::toNativeSeparators(dialog.selectedFiles().constFirst());
}

QString qtNameFilters(const QString& descriptionPatternPairs)
{
    const QStringList parts = descriptionPatternPairs.split(u'|');
    QStringList filters;
    for (qsizetype i = 0; i + 1 < parts.size(); i += 2) {
        const QString patterns = QString(parts[i + 1]).replace(u';', u' ');
        const QString& description = parts[i];
        filters.append(description.endsWith(u'(' + patterns + u')')
                           ? description
                           : description + u" ("_s + patterns + u')');
    }
    return filters.join(u";;"_s);
}

void stay_on_top(QWidget* window, bool onTop)
{
    if (!window || window->windowFlags().testFlag(Qt::WindowStaysOnTopHint) == onTop)
        return;
    // overrideWindowFlags records the hint without re-creating (and so hiding) the window; the
    // native window, when there is one, gets it directly.
    window->overrideWindowFlags(window->windowFlags() ^ Qt::WindowStaysOnTopHint);
    stay_on_top(window->windowHandle(), onTop);
}

} // namespace spinlane
