#include "ui/desktop/DesktopSeams.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QWidget>

#include <functional>

using namespace Qt::StringLiterals;
using namespace spinlane;

namespace {

// Runs `inspect` on the next dialog of type T from inside its exec() loop: the dialog's show
// event queues the call, so no timer races the dialog. A dialog still open ten seconds later is
// rejected and fails the test instead of hanging it.
template <typename T> void whenShown(std::function<void(T*)> inspect)
{
    class ShowFilter : public QObject {
    public:
        explicit ShowFilter(std::function<void(T*)> inspect)
            : m_inspect(std::move(inspect))
        {
        }
        bool eventFilter(QObject* watched, QEvent* event) override
        {
            auto* dialog = qobject_cast<T*>(watched);
            if (event->type() != QEvent::Show || !dialog)
                return false;
            QMetaObject::invokeMethod(
                dialog, [dialog, inspect = m_inspect] { inspect(dialog); }, Qt::QueuedConnection);
            QTimer::singleShot(10'000, dialog, [dialog] {
                QTest::qFail("the dialog was still open at its deadline", __FILE__, __LINE__);
                dialog->reject();
            });
            deleteLater();
            qApp->removeEventFilter(this);
            return false;
        }

    private:
        std::function<void(T*)> m_inspect;
    };
    qApp->installEventFilter(new ShowFilter(std::move(inspect)));
}

} // namespace

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
        whenShown<QFileDialog>([&](QFileDialog* dialog) {
            filters = dialog->nameFilters();
            mode = dialog->fileMode();
            // The name field takes a selected file only while it has no focus.
            if (QWidget* focused = dialog->focusWidget())
                focused->clearFocus();
            dialog->selectFile(existing);
            QMetaObject::invokeMethod(dialog, "accept");
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
            directory = dialog->directory().absolutePath();
            dialog->reject();
        });
        QCOMPARE(dialogs.saveFile({u"Choose"_s, u"Data files|*.kvd"_s, OverwritePrompt,
                                   dir.filePath(u"*.kvd"_s)}),
                 QString());
        QVERIFY(confirmsOverwrite);
        QCOMPARE(directory, QDir(dir.path()).absolutePath()); // the pattern names a folder
        QCOMPARE(qtNameFilters(u"(*.ini)|*.ini|(*.*)|*.*"_s), u"(*.ini);;(*.*)"_s);
        QCOMPARE(qtNameFilters(u"Logs|*.log;*.txt"_s), u"Logs (*.log *.txt)"_s);
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
