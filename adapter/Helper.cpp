#include "adapter/Helper.h"

#include "adapter/CommandRun.h"
#include "adapter/CommandTemplate.h"
#include "adapter/Values.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace spinlane::adapter {
namespace {

constexpr qint64 kLongestLine = 1 << 20;
constexpr qsizetype kLongestErrorLine = 4096; // longer ones go on in pieces

} // namespace

Helper::Helper(const QStringList& words, const QString& folder, const QString& name,
               QObject* parent)
    : QObject(parent)
    , m_words(words)
    , m_name(name)
{
    m_process.setProgram(words.first());
    m_process.setArguments(words.mid(1));
    m_process.setWorkingDirectory(folder);
    connect(&m_process, &QProcess::readyReadStandardOutput, this, &Helper::readAnswers);
    connect(&m_process, &QProcess::readyReadStandardError, this, &Helper::readErrors);
    connect(&m_process, &QProcess::finished, this, [this](int code, QProcess::ExitStatus status) {
        died(status == QProcess::CrashExit ? u"ended by signal "_s + QString::number(code)
                                           : u"ended with exit status "_s + QString::number(code));
    });
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        settle({{},
                u"the helper gave no answer within "_s
                    + QString::number(m_timer.interval() / 1000.0) + u" s"_s});
    });
}

Helper::~Helper()
{
    m_dead = true; // what follows is no death to report
    // An answer read while the helper ends must not reach the program being destroyed.
    m_process.disconnect(this);
    m_done = nullptr;
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.closeWriteChannel();
    if (!m_process.waitForFinished(1000))
        m_process.kill();
    m_process.waitForFinished(1000);
}

bool Helper::start(QString* error)
{
    m_process.start();
    if (m_process.waitForStarted())
        return true;
    *error = displayCommand(m_words) + u": cannot be started: "_s + m_process.errorString();
    m_dead = true;
    return false;
}

void Helper::call(const LabOperation& operation, const QVariantList& arguments, int timeoutMs,
                  OutcomeHandler done)
{
    if (m_dead) {
        done({{}, u"the helper has ended"_s});
        return;
    }
    m_signature = operation.output;
    m_done = std::move(done);
    // Written by hand to keep the keys in this order, which a JSON object would sort.
    const QByteArray name =
        QJsonDocument(QJsonArray{operation.name}).toJson(QJsonDocument::Compact);
    m_process.write(
        "{\"id\":" + QByteArray::number(++m_lastId) + ",\"call\":" + name.mid(1, name.size() - 2)
        + ",\"args\":"
        + QJsonDocument(QJsonArray::fromVariantList(arguments)).toJson(QJsonDocument::Compact)
        + "}\n");
    m_timer.start(timeoutMs);
}

void Helper::readAnswers()
{
    while (m_process.canReadLine())
        answer(m_process.readLine().trimmed());
    if (m_process.bytesAvailable() > kLongestLine) {
        m_process.kill();
        died(u"wrote more than 1 MiB without a line break"_s);
    }
}

void Helper::answer(const QByteArray& line)
{
    if (line.isEmpty())
        return;
    const QJsonObject object = QJsonDocument::fromJson(line).object();
    const QJsonValue id = object.value(u"id"_s);
    if (id.isDouble() && id.toInteger() != m_lastId)
        return; // the answer to a call that has timed out
    if (!m_done)
        return;
    if (object.isEmpty() || !id.isDouble()
        || (!object.contains(u"result"_s) && !object.contains(u"error"_s))) {
        settle({{},
                u"the helper answered "_s + QString::fromUtf8(line).left(200) + u", not {\"id\":"_s
                    + QString::number(m_lastId) + u",\"result\":...} or {\"id\":"_s
                    + QString::number(m_lastId) + u",\"error\":\"...\"}"_s});
        return;
    }
    if (object.contains(u"error"_s)) {
        settle({{}, u"the helper refused: "_s + object.value(u"error"_s).toVariant().toString()});
        return;
    }
    if (m_signature.isEmpty()) {
        settle({});
        return;
    }
    QString why;
    const std::optional<QVariant> result =
        answerFromJson(object.value(u"result"_s), m_signature, &why);
    settle(result ? Outcome{*result, {}} : Outcome{{}, u"the helper's "_s + why});
}

void Helper::readErrors()
{
    const QByteArray text = m_process.readAllStandardError();
    keepTail(m_errors, text);
    m_partialErrorLine += text;
    qsizetype end;
    while ((end = m_partialErrorLine.indexOf('\n')) >= 0
           || (end = m_partialErrorLine.size()) > kLongestErrorLine) {
        std::fprintf(stderr, "%s: %s\n", qPrintable(m_name),
                     m_partialErrorLine.left(end).constData());
        m_partialErrorLine.remove(0, end + 1);
    }
}

void Helper::settle(const Outcome& outcome)
{
    m_timer.stop();
    if (const OutcomeHandler done = std::exchange(m_done, nullptr))
        done(outcome);
}

void Helper::died(const QString& reason)
{
    if (m_dead)
        return;
    m_dead = true;
    readErrors();
    const QString why = displayCommand(m_words) + u": "_s + reason + lastLines(m_errors);
    settle({{}, u"the helper "_s + why});
    Q_EMIT ended(why);
}

} // namespace spinlane::adapter
