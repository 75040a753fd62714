#pragma once

#include <QDateTime>
#include <QString>

// Everything that blocks on a person or on time goes through one of these small interfaces.
// The program installs the real implementations at start-up; tests install scripted ones.
namespace spinlane {

QString programTitle(); // "Spinlane": the caption of every message box

enum class MsgButtons { Ok, OkCancel, YesNo };
enum class MsgIcon { None, Critical, Question, Exclamation, Information };
enum class MsgAnswer { Ok, Cancel, Yes, No };

struct MessageBoxRequest {
    QString text; // line breaks as CR LF
    MsgButtons buttons = MsgButtons::Ok;
    MsgIcon icon = MsgIcon::None;
    QString title;

    bool operator==(const MessageBoxRequest& o) const
    {
        return text == o.text && buttons == o.buttons && icon == o.icon && title == o.title;
    }
};

class MessageBoxes {
public:
    virtual ~MessageBoxes() = default;
    virtual MsgAnswer show(const MessageBoxRequest& request) = 0;
};

// Common file dialog flags, as the callers pass them.
enum FileDialogFlag : qint32 {
    OverwritePrompt = 2,
    FileMustExist = 4096,
    CreatePrompt = 8192,
};

struct FileDialogRequest {
    QString title;
    QString filter; // "(*.ini)|*.ini|(*.*)|*.*": description and pattern pairs
    qint32 flags = 0;
    QString fileName; // initial name; may hold a folder and a pattern

    bool operator==(const FileDialogRequest& o) const
    {
        return title == o.title && filter == o.filter && flags == o.flags && fileName == o.fileName;
    }
};

class FileDialogs {
public:
    virtual ~FileDialogs() = default;
    // The chosen full path; empty when the user cancels.
    virtual QString openFile(const FileDialogRequest& request) = 0;
    virtual QString saveFile(const FileDialogRequest& request) = 0;
};

// The per-user settings store, addressed by application, section and key.
class SettingsStore {
public:
    virtual ~SettingsStore() = default;
    virtual QString value(const QString& app, const QString& section, const QString& key,
                          const QString& defaultValue) const = 0;
    virtual void setValue(const QString& app, const QString& section, const QString& key,
                          const QString& value) = 0;
};

class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0; // local date and time
};

class EventPump {
public:
    virtual ~EventPump() = default;
    // Handles the window's events as they arrive, for at most maxMs milliseconds, without
    // keeping a processor busy.
    virtual void waitForEvents(int maxMs) = 0;
};

class ProgramEnd {
public:
    virtual ~ProgramEnd() = default;
    // Ends the process at once with `status` (0 for a normal end); a scripted implementation
    // records the end and returns.
    virtual void end(int status) = 0;
};

// The desktop's other programs that Spinlane starts: the text editor for the run log and the
// system-information tool of the About box.
class DesktopPrograms {
public:
    virtual ~DesktopPrograms() = default;
    virtual void showTextFile(const QString& path) = 0;
    // The tool's program, or empty when the platform has none.
    virtual QString systemInformationTool() const = 0;
    virtual void start(const QString& program) = 0;
};

struct Seams {
    MessageBoxes* messageBoxes = nullptr;
    FileDialogs* fileDialogs = nullptr;
    SettingsStore* settingsStore = nullptr;
    Clock* clock = nullptr;
    EventPump* eventPump = nullptr;
    ProgramEnd* programEnd = nullptr;
    DesktopPrograms* desktopPrograms = nullptr;
};

// The seams in use. Until something is installed, the store, clock, pump and program end are
// the real ones; message boxes go to standard error and are answered Cancel or No; file
// dialogs are cancelled.
const Seams& seams();
// Installs the non-null members of `replacement`; returns the previous set.
Seams installSeams(const Seams& replacement);

MsgAnswer msgBox(const QString& text, MsgButtons buttons, MsgIcon icon,
                 const QString& title = programTitle());

// Ends the program: status 0 for a normal end, 1 after a run-time error.
[[noreturn]] void EndProgram(int status = 0);

} // namespace spinlane
