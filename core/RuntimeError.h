#pragma once

#include <QString>

#include <exception>

namespace spinlane {

// The one exception type for run-time errors. The numbers are the classic ones that lab staff
// know from the error box ("Run-time error '13':"); nothing catches them but the guard around
// each event handler and main, which report them and end the program.
class RuntimeError : public std::exception {
public:
    enum Number : qint32 {
        InvalidProcedureCall = 5,
        Overflow = 6,
        OutOfMemory = 7,
        SubscriptOutOfRange = 9,
        TypeMismatch = 13,
        BadFileNameOrNumber = 52,
        FileNotFound = 53,
        DeviceIOError = 57,
        PermissionDenied = 70,
        PathFileAccessError = 75,
        ObjectNotSet = 91,
        InvalidPropertyValue = 380,
        CannotCreateObject = 429,
        IndexOutOfBounds = 35600,
        AutomationError = -2147467259, // 0x80004005
    };

    explicit RuntimeError(qint32 number);
    RuntimeError(qint32 number, QString description);

    qint32 number() const { return m_number; }
    const QString& description() const { return m_description; }
    const char* what() const noexcept override { return m_what.constData(); }

    static QString standardDescription(qint32 number);

private:
    qint32 m_number;
    QString m_description;
    QByteArray m_what;
};

// Thrown by EndProgram when the program-end seam returns (tests record the end instead of
// exiting); it unwinds to the nearest guard, which swallows it.
struct ProgramEnded { };

// "Run-time error 'N':" + blank line + description.
QString runtimeErrorText(const RuntimeError& error);

// Shows the error box (critical icon, OK, the program's title) and ends the program at once,
// without saving, with exit status 1; the recovery journal stays as it was last written.
[[noreturn]] void reportRuntimeError(const RuntimeError& error);

// Runs first when a run-time error is reported: the recovery journal stops writing there.
void setBeforeRuntimeErrorReport(void (*hook)());

// Wraps every event handler and main: no exception ever unwinds into Qt's own frames.
template <typename Handler> void guarded(Handler&& handler) noexcept
{
    try {
        try {
            handler();
        } catch (const RuntimeError& error) {
            reportRuntimeError(error);
        }
    } catch (const ProgramEnded&) {
    }
}

} // namespace spinlane
