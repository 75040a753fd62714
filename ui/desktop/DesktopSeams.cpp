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

// An initial name such as "/korvo/Data/*.kvd" names a folder and a pattern: the dialog opens
// in the folder. A name that is not there opens the nearest folder above it that is, never the
// folder the program was started from.
QString startLocation(const QString& fileName)
{
    const bool pattern = fileName.contains(u'*') || fileName.contains(u'?');
    const QString location = pattern ? QFileInfo(fileName).path() : fileName;
    if (location.isEmpty() || QFileInfo::exists(location))
        return location;
    QString folder = QFileInfo(location).absolutePath();
    while (!QFileInfo(folder).isDir()) {
        const QString up = QFileInfo(folder).absolutePath();
        if (up == folder)
            break;
        folder = up;
    }
    return folder;
}

// Qt's own dialog on every desktop. A desktop's native open dialog accepts only files that exist,
// so a new log file could not be named, and the create prompt would never be reached.
void useOwnDialog(QFileDialog& dialog) { dialog.setOption(QFileDialog::DontUseNativeDialog); }

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
    QFileDialog dialog(QApplication::activeWindow(), request.title, startLocation(request.fileName),
                       qtNameFilters(request.filter));
    useOwnDialog(dialog);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setFileMode((request.flags & FileMustExist) ? QFileDialog::ExistingFile
                                                       : QFileDialog::AnyFile);
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
    QFileDialog dialog(QApplication::activeWindow(), request.title, startLocation(request.fileName),
                       qtNameFilters(request.filter));
    useOwnDialog(dialog);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setOption(QFileDialog::DontConfirmOverwrite, !(request.flags & OverwritePrompt));
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
