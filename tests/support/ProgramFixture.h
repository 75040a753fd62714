#pragma once

// With everything a window test reaches for.
#include "core/ProgramSettings.h"
#include "core/Startup.h"
#include "queue/QueueList.h"
#include "queue/QueueStore.h"
#include "runner/RunControls.h"
#include "support/FakePrograms.h"
#include "support/QueueProbe.h"
#include "support/ScriptedSeams.h"
#include "support/SettingsFiles.h"
#include "ui/ItemDialogControl.h"
#include "ui/QueueView.h"
#include "ui/frmItemDialog.h"
#include "ui/frmSpinlane.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMenu>
#include <QPushButton>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

#include <memory>

// Starts the whole program for a GUI test: a settings file in a folder of the test's own, the
// first start's two questions answered, scripted seams and the fake laboratory installed. Each
// test gets a fresh program and window.
namespace spinlane::testing {

class ProgramFixture {
public:
    ProgramFixture();
    ~ProgramFixture();

    QString iniPath() const { return m_dir.filePath(QStringLiteral("config/Spinlane.INI")); }
    QString path(const QString& name) const { return m_dir.filePath(name); }

    // Writes the settings file, answers "Please locate" with the file and runs Main. Returns the
    // main window, or nullptr when start-up ended the program. The boxes of the start are cleared.
    frmSpinlane* start(const QByteArray& settings, const QStringList& arguments = {});
    // Starts the program again on the settings file as the last run left it; `answers` go to
    // the questions after the locate message. The boxes of the start are kept in startBoxes.
    frmSpinlane* restart(const QStringList& arguments = {}, const QList<MsgAnswer>& answers = {});
    // Types the user ID and presses Enter.
    void logIn(const QString& userID, const QString& password = {});

    ScriptedSeams seams;
    FakeLab lab;
    QList<MessageBoxRequest> startBoxes;
    frmSpinlane* form = nullptr;

private:
    QTemporaryDir m_dir;
};

// The base of a GUI test class: a fresh ProgramFixture for each test function.
class ProgramTest : public QObject {
    Q_OBJECT

protected:
    ProgramFixture& program() { return *m_program; }
    ScriptedSeams& seams() { return m_program->seams; }
    FakeLab& lab() { return m_program->lab; }

    // Starts on a settings file holding `items`, logs `user` in (an empty one stays logged out)
    // and clears the start's calls from the log.
    frmSpinlane* start(const QList<QueueEntry>& items,
                       const QList<std::pair<QString, QString>>& general = {},
                       const QString& user = QStringLiteral("ann"));
    QueueView* list() const;
    QPoint rowPoint(int row) const; // the middle of list row `row`'s second cell
    void select(int row, Qt::KeyboardModifiers modifiers = {}); // a click on the row
    void trigger(const QString& menu, int index); // the menu item, which must exist

private Q_SLOTS:
    void init() { m_program = std::make_unique<ProgramFixture>(); }
    void cleanup() { m_program.reset(); }

private:
    std::unique_ptr<ProgramFixture> m_program;
};

// In a ProgramTest: `form`, the main window of start(...); the test fails unless it came up.
#define START_PROGRAM(...)                                                                         \
    frmSpinlane* form = start(__VA_ARGS__);                                                        \
    QVERIFY(form)

void click(QWidget* widget);
void typeInto(QLineEdit* box, const QString& text); // replaces the text, key by key

// The test's main: the offscreen platform, 96 dpi, the C locale and test-mode standard paths.
int runGuiTest(QObject& test, int argc, char** argv);

} // namespace spinlane::testing

#define SPINLANE_GUI_TEST_MAIN(TestClass)                                                          \
    int main(int argc, char** argv)                                                                \
    {                                                                                              \
        TestClass test;                                                                            \
        return spinlane::testing::runGuiTest(test, argc, argv);                                    \
    }
