// Writes PNG pictures of the main window under the offscreen platform: the login panel, the
// queue with an item of every status, the window enlarged, and the item dialog adding an item
// and showing one, each at 96 dpi and at twice that.
// The laboratory programs are the test fakes, so nothing outside this process is touched.
//
//     spinlane-screenshots [OUTPUT-FOLDER]     (default: screenshots)
#include "app/Main.h"
#include "core/Seams.h"
#include "core/SingleInstance.h"
#include "core/Startup.h"
#include "queue/QueueStore.h"
#include "runner/RunControls.h"
#include "support/FakePrograms.h"
#include "support/ScriptedSeams.h"
#include "ui/ItemDialogControl.h"
#include "ui/QueueView.h"
#include "ui/frmItemDialog.h"
#include "ui/frmSpinlane.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QHelpEvent>
#include <QImage>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTextStream>
#include <QToolTip>
#include <QTreeView>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

struct Item {
    int sample;
    const char* name;
    int experiment;
    const char* user;
    const char* status;
};

QByteArray settingsFile()
{
    const Item items[] = {
        {1, "Menthol", 0, "ann", "Done"},        {1, "Menthol", 1, "ann", "Done"},
        {2, "Caffeine", 2, "ann", "Failed"},     {3, "Ibuprofen", 0, "bob", "Stopped"},
        {4, "Aspirin", 3, "bob", "In progress"}, {5, "Vanillin", 1, "carla", "Idle"},
        {6, "Limonene", 4, "carla", "Idle"},     {7, "Glucose in D2O", 0, "dev", "Waiting"},
    };
    QByteArray text;
    QTextStream out(&text);
    out << "[General]\r\nVersion Number=" << programVersion()
        << "\r\nAlwaysOnTop=False\r\nExpQueueOnly=False\r\nSample Control=2\r\nQueue Layout=1\r\n"
           "Current Queue Num=5\r\nTotal Queue Items="
        << std::size(items) << "\r\n";
    int n = 0;
    for (const Item& item : items) {
        ++n;
        out << "[Item " << n << "]\r\nItem S/N=2611" << QString::number(n).rightJustified(2, u'0')
            << "\r\nSample Num=" << item.sample << "\r\nSample Name=" << item.name
            << "\r\nSample Des=\r\nSolvent=CDCl3\r\nExp Title Index=" << item.experiment
            << "\r\nUser ID=" << item.user << "\r\nOrganization=Chemistry\r\nOutput File Path="
            << "/korvo/Data/" << item.user << "/" << QString::fromLatin1(item.name).toLower() << "-"
            << n << ".kvd\r\nStatus=" << item.status << "\r\n";
    }
    // The lab's default experiment times, so that the forecast has times to show.
    out << "[Forecast]\r\nPROTON=90\r\nCARBON=1800\r\nCOSY=600\r\nHSQC=1200\r\n";
    out.flush();
    return text;
}

// The tooltip on show, if any: a window of its own, which a window's picture leaves out.
QWidget* shownToolTip()
{
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->isVisible() && widget->inherits("QTipLabel"))
            return widget;
    }
    return nullptr;
}

bool save(QWidget& window, const QString& folder, const QString& name)
{
    bool ok = true;
    for (int scale : {1, 2}) {
        QImage image(window.size() * scale, QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(scale);
        image.fill(Qt::transparent);
        window.render(&image);
        if (QWidget* tip = shownToolTip())
            tip->render(&image, window.mapFromGlobal(tip->pos()));
        const QString path = QDir(folder).filePath(name + (scale == 1 ? u".png"_s : u"@2x.png"_s));
        ok = image.save(path) && ok;
        std::printf("%s\n", qPrintable(path));
    }
    return ok;
}

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_FONT_DPI", "96");
    QApplication app(argc, argv);
    const QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : u"screenshots"_s;
    QDir().mkpath(folder);

    QTemporaryDir work;
    const QString iniPath = work.filePath(u"Spinlane.INI"_s);
    QFile ini(iniPath);
    if (!ini.open(QIODevice::WriteOnly) || ini.write(settingsFile()) < 0)
        return 1;
    ini.close();

    ScriptedMessageBoxes messageBoxes;
    ScriptedFileDialogs fileDialogs;
    MemorySettingsStore settingsStore;
    VirtualTime time;
    RecordingProgramEnd programEnd;
    RecordingDesktopPrograms desktopPrograms;
    installSeams(
        {&messageBoxes, &fileDialogs, &settingsStore, &time, &time, &programEnd, &desktopPrograms});
    FakeLab lab;
    lab.expedra->titles = {u"PROTON"_s, u"CARBON"_s,   u"COSY"_s,
                           u"HSQC"_s,   u"NOESY 2D"_s, u"(end)"_s};
    setInstanceLockPath(work.filePath(u"Spinlane.lock"_s));
    messageBoxes.queueAnswer(MsgAnswer::Ok); // "Please locate the 'Spinlane.ini' file."
    fileDialogs.queueChoice(iniPath);

    Main({});
    frmSpinlane* form = MainForm();
    if (!form || programEnd.ends > 0)
        return 1;
    bool ok = save(*form, folder, u"login"_s);

    form->txtUserID->setText(u"ann"_s);
    form->cmdEnter->click();
    gRunControls.setStartOverVisible(true); // as after a Stop: every run control shown
    ok = save(*form, folder, u"queue"_s) && ok;

    form->resize(form->width() + 240, form->height() + 160);
    ok = save(*form, folder, u"queue-larger"_s) && ok;

    // The forecast in the tooltip of a waiting row, as the pointer rests on it.
    QTreeView* list = form->lvwSpinlane;
    const QPoint at = list->visualRect(list->model()->index(5, 1)).center();
    QHelpEvent help(QEvent::ToolTip, at, list->viewport()->mapToGlobal(at));
    QCoreApplication::sendEvent(list->viewport(), &help);
    ok = save(*form, folder, u"queue-tooltip"_s) && ok;
    QToolTip::hideText();

    // A new item for a queued sample, with an experiment that needs the lock.
    messageBoxes.queueAnswer(MsgAnswer::No); // "Do you want to insert an item?"
    form->cmdAdd->click();
    frmItemDialog* dialog = ItemDialog();
    if (!dialog)
        return 1;
    dialog->txtSampleNum->setText(u"5"_s);
    dialog->cboExpList->setCurrentIndex(1);
    dialog->cboSolList->setCurrentIndex(0);
    dialog->txtOutputFile->setText(u"/korvo/Data/carla/vanillin-9.kvd"_s);
    ok = save(*dialog, folder, u"item-dialog"_s) && ok;

    gQueueList.selectOnly(4);
    ShowItemProperties();
    if (!(dialog = ItemDialog()))
        return 1;
    ok = save(*dialog, folder, u"item-properties"_s) && ok;
    DeleteMainForm();
    releaseInstanceLock();
    return ok ? 0 : 1;
}
