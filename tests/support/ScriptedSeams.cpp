#include "support/ScriptedSeams.h"

#include "core/RuntimeError.h"

#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace spinlane::testing {

MsgAnswer ScriptedMessageBoxes::show(const MessageBoxRequest& request)
{
    shown.append(request);
    if (request.buttons == MsgButtons::Ok)
        return MsgAnswer::Ok;
    if (m_answers.isEmpty()) {
        unanswered.append(request.text);
        return request.buttons == MsgButtons::YesNo ? MsgAnswer::No : MsgAnswer::Cancel;
    }
    return m_answers.takeFirst();
}

QStringList ScriptedMessageBoxes::texts() const
{
    QStringList result;
    for (const MessageBoxRequest& box : shown)
        result.append(box.text);
    return result;
}

QString ScriptedFileDialogs::next(QList<FileDialogRequest>& log, const FileDialogRequest& request)
{
    log.append(request);
    if (m_choices.isEmpty()) {
        ++unexpected;
        return {};
    }
    return m_choices.takeFirst();
}

void VirtualTime::at(const QDateTime& when, std::function<void()> action)
{
    m_scheduled.push_back({when, std::move(action)});
    std::stable_sort(m_scheduled.begin(), m_scheduled.end(),
                     [](const Scheduled& a, const Scheduled& b) { return a.when < b.when; });
}

void VirtualTime::waitForEvents(int maxMs)
{
    ++waits;
    m_now = m_now.addMSecs(std::max(maxMs, 0));
    while (!m_scheduled.empty() && m_scheduled.front().when <= m_now) {
        auto action = std::move(m_scheduled.front().action);
        m_scheduled.erase(m_scheduled.begin());
        action();
    }
}

ScriptedSeams::ScriptedSeams()
    : m_previous(installSeams(
        {&messageBoxes, &fileDialogs, &settingsStore, &time, &time, &programEnd, &desktopPrograms}))
{
}

ScriptedSeams::~ScriptedSeams()
{
    installSeams(m_previous);
    if (QTest::currentTestFailed())
        return;
    if (messageBoxes.unusedAnswers() > 0)
        QTest::qFail("queued message box answers were left unused", __FILE__, __LINE__);
    else if (!messageBoxes.unanswered.isEmpty())
        QTest::qFail(qPrintable(u"question shown without a queued answer: "_s
                                + messageBoxes.unanswered.first()),
                     __FILE__, __LINE__);
    else if (fileDialogs.unusedChoices() > 0 || fileDialogs.unexpected > 0)
        QTest::qFail("file dialog choices and dialogs shown do not match", __FILE__, __LINE__);
}

MessageBoxRequest box(const QString& text, MsgButtons buttons, MsgIcon icon)
{
    return {text, buttons, icon, programTitle()};
}

bool endsProgram(const std::function<void()>& action)
{
    try {
        action();
    } catch (const ProgramEnded&) {
        return true;
    }
    return false;
}

qint32 errorNumber(const std::function<void()>& action)
{
    try {
        action();
    } catch (const RuntimeError& error) {
        return error.number();
    }
    return 0;
}

} // namespace spinlane::testing

namespace spinlane {

char* toString(const MessageBoxRequest& request)
{
    static const char* const buttons[] = {"Ok", "OkCancel", "YesNo"};
    static const char* const icons[] = {"None", "Critical", "Question", "Exclamation",
                                        "Information"};
    const QString text = QString::fromLatin1(buttons[int(request.buttons)]) + u'|'
                         + QString::fromLatin1(icons[int(request.icon)]) + u'|' + request.title
                         + u'|' + QString(request.text).replace(u"\r\n"_s, u"\\r\\n"_s);
    return qstrdup(text.toUtf8().constData());
}

} // namespace spinlane
