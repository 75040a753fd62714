#include "adapter/CommandRun.h"

#include "adapter/CommandTemplate.h"
#include "adapter/Values.h"

#include <csignal>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace spinlane::adapter {
namespace {

constexpr qsizetype kMaxAnswerBytes = 1 << 20;
constexpr qsizetype kKeptErrorBytes = 4096;
constexpr int kShownErrorLines = 3;

} // namespace

QString lastLines(const QByteArray& errors)
{
    QStringList lines = QString::fromUtf8(errors).split(u'\n', Qt::SkipEmptyParts);
    lines = lines.mid(std::max<qsizetype>(0, lines.size() - kShownErrorLines));
    QString text;
    for (const QString& line : lines)
        text += u'\n' + line.trimmed();
    return text;
}

void keepTail(QByteArray& kept, const QByteArray& more)
{
    kept += more;
    if (kept.size() > kKeptErrorBytes)
        kept.remove(0, kept.size() - kKeptErrorBytes);
}

CommandRun::CommandRun(const QStringList& words, const QString& folder, const QString& signature,
                       int timeoutMs, OutcomeHandler done, QObject* parent)
    : QObject(parent)
    , m_words(words)
    , m_signature(signature)
    , m_timeoutMs(timeoutMs)
    , m_done(std::move(done))
{
    m_process.setProgram(words.first());
    m_process.setArguments(words.mid(1));
    m_process.setWorkingDirectory(folder);
    m_process.setStandardInputFile(QProcess::nullDevice());
    // A group of its own, so that a timeout also ends whatever the command started.
    m_process.setChildProcessModifier([] { ::setpgid(0, 0); });
    connect(&m_process, &QProcess::readyReadStandardOutput, this, [this] {
        m_output += m_process.readAllStandardOutput();
        if (m_output.size() > kMaxAnswerBytes) {
            killGroup();
            fail(u"answered more than 1 MiB"_s);
        }
    });
    connect(&m_process, &QProcess::readyReadStandardError, this,
            [this] { keepTail(m_errors, m_process.readAllStandardError()); });
    connect(&m_process, &QProcess::finished, this, &CommandRun::finished);
    connect(&m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            fail(u"cannot be started: "_s + m_process.errorString());
    });
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        m_timedOut = true;
        killGroup();
    });
    m_timer.start(timeoutMs);
    m_process.start();
}

CommandRun::~CommandRun()
{
    // The process outlives this object's other members while it is destroyed: nothing it reports
    // from now on may reach them.
    m_process.disconnect(this);
    killGroup();
    m_process.waitForFinished(1000);
}

void CommandRun::killGroup()
{
    if (m_process.state() != QProcess::NotRunning)
        ::kill(-pid_t(m_process.processId()), SIGKILL);
}

void CommandRun::finished(int exitCode, QProcess::ExitStatus status)
{
    m_output += m_process.readAllStandardOutput();
    keepTail(m_errors, m_process.readAllStandardError());
    if (m_timedOut)
        return fail(u"gave no answer within "_s + QString::number(m_timeoutMs / 1000.0)
                    + u" s and was stopped"_s);
    if (status == QProcess::CrashExit)
        return fail(u"ended by signal "_s + QString::number(exitCode));
    if (exitCode != 0)
        return fail(u"exit status "_s + QString::number(exitCode));
    Outcome outcome;
    if (!m_signature.isEmpty()) {
        QString why;
        const std::optional<QVariant> answer =
            answerFromText(QString::fromUtf8(m_output), m_signature, &why);
        if (!answer)
            return fail(why);
        outcome.answer = *answer;
    }
    report(outcome);
}

void CommandRun::fail(const QString& reason)
{
    report({{}, displayCommand(m_words) + u": "_s + reason + lastLines(m_errors)});
}

void CommandRun::report(const Outcome& outcome)
{
    if (!m_done)
        return;
    m_timer.stop();
    const OutcomeHandler done = std::exchange(m_done, nullptr);
    deleteLater();
    done(outcome);
}

} // namespace spinlane::adapter
