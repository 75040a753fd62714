#include "support/ProgramFixture.h"

#include "app/Main.h"
#include "core/SingleInstance.h"

using namespace Qt::StringLiterals;

namespace spinlane::testing {

ProgramFixture::ProgramFixture()
{
    resetProgramState();
    setInstanceLockPath(m_dir.filePath(u"Spinlane.lock"_s));
}

ProgramFixture::~ProgramFixture()
{
    resetProgramState();
    setInstanceLockPath({});
}

frmSpinlane* ProgramFixture::start(const QByteArray& settings, const QStringList& arguments)
{
    writeFile(iniPath(), settings);
    return restart(arguments);
}

frmSpinlane* ProgramFixture::restart(const QStringList& arguments, const QList<MsgAnswer>& answers)
{
    resetProgramState();
    form = nullptr;
    seams.messageBoxes.queueAnswer(MsgAnswer::Ok);
    for (MsgAnswer answer : answers)
        seams.messageBoxes.queueAnswer(answer);
    seams.fileDialogs.queueChoice(iniPath());
    if (endsProgram([&] { Main(arguments); }))
        return nullptr;
    startBoxes = std::exchange(seams.messageBoxes.shown, {});
    seams.fileDialogs.opened.clear();
    form = MainForm();
    return form;
}

void ProgramFixture::logIn(const QString& userID, const QString& password)
{
    form->txtUserID->setText(userID);
    form->txtPW->setText(password);
    QTest::mouseClick(form->cmdEnter, Qt::LeftButton);
}

frmSpinlane* ProgramTest::start(const QList<QueueEntry>& items,
                                const QList<std::pair<QString, QString>>& general,
                                const QString& user)
{
    frmSpinlane* form = program().start(settingsFile(items, general));
    if (form && !user.isEmpty())
        program().logIn(user);
    lab().log.clear();
    return form;
}

QueueView* ProgramTest::list() const { return m_program->form->lvwSpinlane; }

QPoint ProgramTest::rowPoint(int row) const
{
    return list()->visualRect(gQueueList.index(row - 1, 1)).center();
}

void ProgramTest::select(int row, Qt::KeyboardModifiers modifiers)
{
    QTest::mouseClick(list()->viewport(), Qt::LeftButton, modifiers, rowPoint(row));
}

void ProgramTest::trigger(const QString& menu, int index)
{
    QAction* item = m_program->form->menuItem(menu, index);
    QVERIFY2(item, qPrintable(menu + QString::number(index)));
    item->trigger();
}

void click(QWidget* widget) { QTest::mouseClick(widget, Qt::LeftButton); }

void typeInto(QLineEdit* box, const QString& text)
{
    box->clear();
    QTest::keyClicks(box, text);
}

int runGuiTest(QObject& test, int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_FONT_DPI", "96");
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QStandardPaths::setTestModeEnabled(true);
    QLocale::setDefault(QLocale::c());
    return QTest::qExec(&test, argc, argv);
}

} // namespace spinlane::testing
