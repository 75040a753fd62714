#include "support/DialogDriver.h"
#include "support/ScriptedSeams.h"
#include "ui/desktop/DesktopSeams.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTest>
#include <QWidget>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

class TestDesktop : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void messageBoxShowsTheRequest()
    {
        QString text;
        QString title;
        QMessageBox::Icon icon = QMessageBox::NoIcon;
        QMessageBox::StandardButtons buttons;
        whenShown<QMessageBox>([&](QMessageBox* box) {
            text = box->text();
            title = box->windowTitle();
            icon = box->icon();
            buttons = box->standardButtons();
            box->button(QMessageBox::No)->click();
        });
        WidgetMessageBoxes boxes;
        const MsgAnswer answer = boxes.show({u"First line.\r\nRun the program anyway?"_s,
                                             MsgButtons::YesNo, MsgIcon::Question, u"Spinlane"_s});
        QCOMPARE(answer, MsgAnswer::No);
        QCOMPARE(text, u"First line.\nRun the program anyway?"_s);
        QCOMPARE(title, u"Spinlane"_s);
        QCOMPARE(icon, QMessageBox::Question);
        QCOMPARE(buttons, QMessageBox::Yes | QMessageBox::No);

        whenShown<QMessageBox>([&](QMessageBox* box) {
            icon = box->icon();
            box->button(QMessageBox::Cancel)->click();
        });
        QCOMPARE(boxes.show({u"Please locate"_s, MsgButtons::OkCancel, MsgIcon::Critical, {}}),
                 MsgAnswer::Cancel);
        QCOMPARE(icon, QMessageBox::Critical);
    }

    void fileDialogsFollowTheRequest()
    {
        QTemporaryDir dir;
        const QString existing = dir.filePath(u"Spinlane.INI"_s);
        QFile(existing).open(QIODevice::WriteOnly);
        QStringList filters;
        QFileDialog::FileMode mode = QFileDialog::Directory;
        bool ownDialogs = false;
        whenShown<QFileDialog>([&](QFileDialog* dialog) {
            filters = dialog->nameFilters();
            mode = dialog->fileMode();
            ownDialogs = dialog->testOption(QFileDialog::DontUseNativeDialog);
            chooseFile(dialog, existing);
        });
        WidgetFileDialogs dialogs;
        QCOMPARE(dialogs.openFile(
                     {u"Locate"_s, u"(*.ini)|*.ini|(*.*)|*.*"_s, FileMustExist, dir.path()}),
                 existing);
        QCOMPARE(filters, (QStringList{u"(*.ini)"_s, u"(*.*)"_s}));
        QCOMPARE(mode, QFileDialog::ExistingFile);

        bool confirmsOverwrite = false;
        QString directory;
        whenShown<QFileDialog>([&](QFileDialog* dialog) {
            confirmsOverwrite = !dialog->testOption(QFileDialog::DontConfirmOverwrite);
            ownDialogs = ownDialogs && dialog->testOption(QFileDialog::DontUseNativeDialog);
            directory = dialog->directory().absolutePath();
            dialog->reject();
        });
        QCOMPARE(dialogs.saveFile({u"Choose"_s, u"Data files|*.kvd"_s, OverwritePrompt,
                                   dir.filePath(u"*.kvd"_s)}),
                 QString());
        QVERIFY(confirmsOverwrite);
        QVERIFY(ownDialogs); // the same dialog on every desktop: see README
        QCOMPARE(directory, QDir(dir.path()).absolutePath()); // the pattern names a folder

        // A file opens in its folder; a name whose folder is not there, in the nearest one above.
        const auto openedIn = [&](const QString& fileName) {
            whenShown<QFileDialog>([&](QFileDialog* dialog) {
                directory = dialog->directory().absolutePath();
                dialog->reject();
            });
            dialogs.openFile({u"Locate"_s, u"(*.ini)|*.ini"_s, FileMustExist, fileName});
            return directory;
        };
        QCOMPARE(openedIn(existing), QDir(dir.path()).absolutePath());
        QCOMPARE(openedIn(dir.filePath(u"config/korvo/Spinlane.INI"_s)),
                 QDir(dir.path()).absolutePath());
        QCOMPARE(openedIn(dir.filePath(u"gone/*.kvd"_s)), QDir(dir.path()).absolutePath());
        QCOMPARE(qtNameFilters(u"(*.ini)|*.ini|(*.*)|*.*"_s), u"(*.ini);;(*.*)"_s);
        QCOMPARE(qtNameFilters(u"Logs|*.log;*.txt"_s), u"Logs (*.log *.txt)"_s);

        // With the create prompt a new name is taken only on Yes; No goes back to the dialog.
        ScriptedSeams scripted;
        const QString fresh = dir.filePath(u"new.log"_s);
        int dialogsShown = 0;
        const auto choose = [&](QFileDialog* dialog) {
            ++dialogsShown;
            chooseFile(dialog, fresh);
        };
        whenShown<QFileDialog>([&](QFileDialog* dialog) {
            whenShown<QFileDialog>(choose); // shown again after the first No
            choose(dialog);
        });
        scripted.messageBoxes.queueAnswer(MsgAnswer::No);
        scripted.messageBoxes.queueAnswer(MsgAnswer::Yes);
        QCOMPARE(dialogs.openFile({u"Set Log File"_s, u"(*.log)|*.log"_s, CreatePrompt, fresh}),
                 fresh);
        const MessageBoxRequest create{
            fresh + u"\r\nThis file does not exist.\r\nDo you want to create it?"_s,
            MsgButtons::YesNo, MsgIcon::Exclamation, u"Set Log File"_s};
        QCOMPARE(scripted.messageBoxes.shown, (QList{create, create}));
        QCOMPARE(dialogsShown, 2);
    }

    void stayOnTopKeepsTheWindowShown()
    {
        QWidget window;
        window.setGeometry(50, 60, 320, 240);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        const QRect placed = window.geometry();
        for (bool onTop : {true, true, false, false}) {
            stay_on_top(&window, onTop);
            QCOMPARE(window.windowFlags().testFlag(Qt::WindowStaysOnTopHint), onTop);
            QCOMPARE(window.windowHandle()->flags().testFlag(Qt::WindowStaysOnTopHint), onTop);
            QVERIFY(window.isVisible());
            QCOMPARE(window.geometry(), placed);
        }
    }
};

QTEST_MAIN(TestDesktop)
#include "tst_desktop.moc"
