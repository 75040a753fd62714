#pragma once

#include "core/Seams.h"

#include <QList>
#include <QMap>
#include <QStringList>

#include <functional>
#include <vector>

// Scripted seams: tests queue the answers a person would give, advance a virtual clock and
// observe every box, dialog and program end.
namespace spinlane::testing {

class ScriptedMessageBoxes : public MessageBoxes {
public:
    // Answers are used in order by boxes that ask a question; a box with only OK needs none.
    void queueAnswer(MsgAnswer answer) { m_answers.append(answer); }
    MsgAnswer show(const MessageBoxRequest& request) override;

    QList<MessageBoxRequest> shown;
    QStringList texts() const; // of the boxes shown, in order
    QStringList unanswered; // questions shown while no answer was queued
    int unusedAnswers() const { return int(m_answers.size()); }

private:
    QList<MsgAnswer> m_answers;
};

class ScriptedFileDialogs : public FileDialogs {
public:
    // The next dialog returns this path; an empty path is a cancel.
    void queueChoice(const QString& path) { m_choices.append(path); }
    QString openFile(const FileDialogRequest& request) override { return next(opened, request); }
    QString saveFile(const FileDialogRequest& request) override { return next(saved, request); }

    QList<FileDialogRequest> opened;
    QList<FileDialogRequest> saved;
    int unexpected = 0; // dialogs shown while no choice was queued (they were cancelled)
    int unusedChoices() const { return int(m_choices.size()); }

private:
    QString next(QList<FileDialogRequest>& log, const FileDialogRequest& request);
    QStringList m_choices;
};

class MemorySettingsStore : public SettingsStore {
public:
    QString value(const QString& app, const QString& section, const QString& key,
                  const QString& defaultValue) const override
    {
        return values.value(app + u'/' + section + u'/' + key, defaultValue);
    }
    void setValue(const QString& app, const QString& section, const QString& key,
                  const QString& value) override
    {
        values.insert(app + u'/' + section + u'/' + key, value);
    }

    QMap<QString, QString> values; // "app/section/key" -> value
};

// A clock that only moves when the program waits: each wait advances it by the wait's timeout and
// then runs the actions that have come due (a click on Stop at t = 7 s, a program finishing).
class VirtualTime : public Clock, public EventPump {
public:
    explicit VirtualTime(const QDateTime& start = QDateTime(QDate(2026, 11, 22), QTime(9, 0)))
        : m_now(start)
    {
    }

    QDateTime now() const override { return m_now; }
    void waitForEvents(int maxMs) override;

    void setNow(const QDateTime& now) { m_now = now; }
    void at(const QDateTime& when, std::function<void()> action);
    void afterMs(qint64 ms, std::function<void()> action)
    {
        at(m_now.addMSecs(ms), std::move(action));
    }

    int waits = 0; // how often the program waited for events

private:
    struct Scheduled {
        QDateTime when;
        std::function<void()> action;
    };
    QDateTime m_now;
    std::vector<Scheduled> m_scheduled;
};

class RecordingProgramEnd : public ProgramEnd {
public:
    void end(int status) override
    {
        ++ends;
        lastStatus = status;
    }
    int ends = 0;
    int lastStatus = -1;
};

class RecordingDesktopPrograms : public DesktopPrograms {
public:
    void showTextFile(const QString& path) override { shownFiles.append(path); }
    QString systemInformationTool() const override { return tool; }
    void start(const QString& program) override { started.append(program); }

    QString tool; // none unless a test installs one
    QStringList shownFiles;
    QStringList started;
};

// A fresh set of scripted seams for one test, installed for the fixture's lifetime. At the end
// the test fails if it left queued answers or choices unused, or a question unanswered.
class ScriptedSeams {
public:
    ScriptedSeams();
    ~ScriptedSeams();
    ScriptedSeams(const ScriptedSeams&) = delete;
    ScriptedSeams& operator=(const ScriptedSeams&) = delete;

    ScriptedMessageBoxes messageBoxes;
    ScriptedFileDialogs fileDialogs;
    MemorySettingsStore settingsStore;
    VirtualTime time;
    RecordingProgramEnd programEnd;
    RecordingDesktopPrograms desktopPrograms;

private:
    Seams m_previous;
};

MessageBoxRequest box(const QString& text, MsgButtons buttons, MsgIcon icon);

// Runs `action` and reports whether it ended the program.
bool endsProgram(const std::function<void()>& action);

// Runs `action` and returns the number of the run-time error it raised, or 0.
qint32 errorNumber(const std::function<void()>& action);

} // namespace spinlane::testing

namespace spinlane {
char* toString(const MessageBoxRequest& request); // readable QCOMPARE failures
}
