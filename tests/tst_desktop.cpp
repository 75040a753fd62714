#include "support/DialogDriver.h"
#include "support/ScriptedSeams.h"
#include "ui/desktop/DesktopSeams.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFileDialog>
#include <QLineEdit>
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

    // The program's three file dialogs, as it asks for them: each opens in the proposed file's
    // folder (the nearest one above when that is gone) and proposes the file's name, whether or
    // not the file is there yet; a pattern opens its folder with no name.
    void fileDialogsProposeTheirName_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("filter");
        QTest::addColumn<int>("flags");
        QTest::addColumn<QString>("proposed"); // below the test's folder
        QTest::addColumn<bool>("present");
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("name");

        const struct {
            const char* dialog;
            QString title, filter, file;
            int flags;
        } dialogs[] = {
            {"locate", u"Locate the 'Spinlane.ini' file."_s, u"(*.ini)|*.ini|(*.*)|*.*"_s,
             u"Spinlane.INI"_s, FileMustExist},
            {"log", u"Set Log File"_s, u"(*.log)|*.log|(*.*)|*.*"_s, u"Spinlane.log"_s,
             CreatePrompt},
            {"data", u"Choose a Location & Enter a File Name:"_s, u"(*.kvd)|*.kvd|(*.*)|*.*"_s,
             u"menthol-proton.kvd"_s, OverwritePrompt},
        };
        for (const auto& d : dialogs) {
            const auto row = [&](const char* state, const QString& proposed, bool present,
                                 const QString& folder, const QString& name) {
                QTest::addRow("%s, %s", d.dialog, state)
                    << d.title << d.filter << d.flags << proposed << present << folder << name;
            };
            row("present", u"config/"_s + d.file, true, u"config"_s, d.file);
            row("absent", u"config/"_s + d.file, false, u"config"_s, d.file);
            row("folder gone", u"config/gone/deeper/"_s + d.file, false, u"config"_s, d.file);
        }
        QTest::addRow("data, pattern") << u"Choose a Location & Enter a File Name:"_s
                                       << u"(*.kvd)|*.kvd|(*.*)|*.*"_s << int(OverwritePrompt)
                                       << u"config/*.kvd"_s << false << u"config"_s << QString();
        QTest::addRow("data, pattern in a folder gone")
            << u"Choose a Location & Enter a File Name:"_s << u"(*.kvd)|*.kvd|(*.*)|*.*"_s
            << int(OverwritePrompt) << u"config/Data/*.kvd"_s << false << u"config"_s
            << QString();
    }

    void fileDialogsProposeTheirName()
    {
        QFETCH(QString, title);
        QFETCH(QString, filter);
        QFETCH(int, flags);
        QFETCH(QString, proposed);
        QFETCH(bool, present);
        QFETCH(QString, folder);
        QFETCH(QString, name);

        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkpath(u"config"_s));
        const QString proposedPath = dir.filePath(proposed);
        if (present)
            QVERIFY(QFile(proposedPath).open(QIODevice::WriteOnly));

        QString openedIn;
        QString nameField;
        QString selectedFilter;
        whenShown<QFileDialog>([&](QFileDialog* dialog) {
            openedIn = dialog->directory().absolutePath();
            auto* edit = dialog->findChild<QLineEdit*>(u"fileNameEdit"_s);
            nameField = edit ? edit->text() : u"(no name field)"_s;
            selectedFilter = dialog->selectedNameFilter();
            dialog->reject();
        });
        WidgetFileDialogs dialogs;
        const FileDialogRequest request{title, filter, flags, proposedPath};
        const QString chosen = (flags & OverwritePrompt) ? dialogs.saveFile(request)
                                                         : dialogs.openFile(request);
        QCOMPARE(chosen, QString());
        QCOMPARE(openedIn, QDir(dir.filePath(folder)).absolutePath());
        QCOMPARE(nameField, name);
        QCOMPARE(selectedFilter, qtNameFilters(filter).section(u";;"_s, 0, 0));
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
