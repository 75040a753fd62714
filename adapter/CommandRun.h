#pragma once

#include "adapter/Outcome.h"

#include <QObject>
#include <QProcess>
#include <QStringList>
#include <QTimer>

namespace spinlane::adapter {

// One command run for one call: started without a shell in `folder` with an empty standard input
// and a process group of its own. Its standard output, read as `signature`, is the answer when it
// exits with status 0. Another status, a signal, an answer that does not read, or a run past
// `timeoutMs` (which kills the whole group) is an error naming the command and the last lines of
// its standard error. `done` is called once, then the object deletes itself.
class CommandRun : public QObject {
    Q_OBJECT
public:
    CommandRun(const QStringList& words, const QString& folder, const QString& signature,
               int timeoutMs, OutcomeHandler done, QObject* parent);
    ~CommandRun() override;

private:
    void finished(int exitCode, QProcess::ExitStatus status);
    void fail(const QString& reason);
    void report(const Outcome& outcome);
    void killGroup();

    QProcess m_process;
    QTimer m_timer;
    QStringList m_words;
    QString m_signature;
    int m_timeoutMs;
    OutcomeHandler m_done;
    QByteArray m_output;
    QByteArray m_errors;
    bool m_timedOut = false;
};

// The last few lines of a program's standard error, each after a line break, for an error text.
QString lastLines(const QByteArray& errors);
// Keeps the end of a stream that only matters for its last lines.
void keepTail(QByteArray& kept, const QByteArray& more);

} // namespace spinlane::adapter
