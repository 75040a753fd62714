#pragma once

#include "adapter/Outcome.h"
#include "runner/LabInterfaces.h"

#include <QObject>
#include <QProcess>
#include <QTimer>

namespace spinlane::adapter {

// A section's helper: one long-running process that carries out its program's operations marked
// `helper`, one call at a time. Each call is one JSON object on a line of the helper's standard
// input, {"id":7,"call":"LoadSample","args":[12]}, and the answer one on a line of its standard
// output, {"id":7,"result":true} or {"id":7,"error":"text"}. Its standard error goes on to the
// adapter's, each line marked with `name`. A call without an answer within its time fails; an
// answer that comes later is dropped.
class Helper : public QObject {
    Q_OBJECT
public:
    Helper(const QStringList& words, const QString& folder, const QString& name,
           QObject* parent = nullptr);
    ~Helper() override; // closes the helper's standard input, then ends it

    bool start(QString* error);
    void call(const LabOperation& operation, const QVariantList& arguments, int timeoutMs,
              OutcomeHandler done);

Q_SIGNALS:
    // The helper has gone: why, with the last lines of its standard error. A call it was
    // carrying out has failed first.
    void ended(const QString& why);

private:
    void readAnswers();
    void readErrors();
    void answer(const QByteArray& line);
    void settle(const Outcome& outcome);
    void died(const QString& reason);

    QProcess m_process;
    QStringList m_words;
    QString m_name;
    QTimer m_timer;
    qint64 m_lastId = 0;
    QString m_signature; // of the call being carried out
    OutcomeHandler m_done; // empty while no call is
    QByteArray m_errors;
    QByteArray m_partialErrorLine;
    bool m_dead = false;
};

} // namespace spinlane::adapter
