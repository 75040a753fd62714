#include "support/ProgramFixture.h"

#include "app/Main.h"
#include "app/SingleInstance.h"
#include "ui/frmSpinlane.h"

#include <QLineEdit>
#include <QPushButton>

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

frmSpinlane* ProgramFixture::restart(const QStringList& arguments)
{
    resetProgramState();
    form = nullptr;
    seams.messageBoxes.queueAnswer(MsgAnswer::Ok);
    seams.fileDialogs.queueChoice(iniPath());
    if (endsProgram([&] { Main(arguments); }))
        return nullptr;
    seams.messageBoxes.shown.clear();
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
