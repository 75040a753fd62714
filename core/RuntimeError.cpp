#include "core/RuntimeError.h"

#include "core/Seams.h"

using namespace Qt::StringLiterals;

namespace spinlane {

namespace {
void (*gBeforeReport)() = nullptr;
}

RuntimeError::RuntimeError(qint32 number)
    : RuntimeError(number, standardDescription(number))
{
}

RuntimeError::RuntimeError(qint32 number, QString description)
    : m_number(number)
    , m_description(std::move(description))
    , m_what(runtimeErrorText(*this).toUtf8())
{
}

QString RuntimeError::standardDescription(qint32 number)
{
    switch (number) {
    case InvalidProcedureCall: return u"Invalid procedure call or argument"_s;
    case Overflow: return u"Overflow"_s;
    case OutOfMemory: return u"Out of memory"_s;
    case SubscriptOutOfRange: return u"Subscript out of range"_s;
    case TypeMismatch: return u"Type mismatch"_s;
    case BadFileNameOrNumber: return u"Bad file name or number"_s;
    case FileNotFound: return u"File not found"_s;
    case DeviceIOError: return u"Device I/O error"_s;
    case PermissionDenied: return u"Permission denied"_s;
    case PathFileAccessError: return u"Path/File access error"_s;
    case ObjectNotSet: return u"Object variable or With block variable not set"_s;
    case InvalidPropertyValue: return u"Invalid property value"_s;
    case CannotCreateObject: return u"ActiveX component can't create object"_s;
    case IndexOutOfBounds: return u"Index out of bounds"_s;
    case AutomationError: return u"Automation error"_s;
    default: return u"Application-defined or object-defined error"_s;
    }
}

QString runtimeErrorText(const RuntimeError& error)
{
    return u"Run-time error '"_s + QString::number(error.number()) + u"':\r\n\r\n"_s
           + error.description();
}

void reportRuntimeError(const RuntimeError& error)
{
    if (gBeforeReport)
        gBeforeReport();
    msgBox(runtimeErrorText(error), MsgButtons::Ok, MsgIcon::Critical);
    EndProgram(1);
}

void setBeforeRuntimeErrorReport(void (*hook)()) { gBeforeReport = hook; }

} // namespace spinlane
