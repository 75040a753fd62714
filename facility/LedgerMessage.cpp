#include "facility/LedgerMessage.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

using namespace Qt::StringLiterals;

namespace spinlane::facility {
namespace {

constexpr int kLongestText = 1024;
constexpr double kLongestSeconds = 7 * 24 * 3600.0;
// Record and queue numbers are whole numbers a double holds exactly.
constexpr double kLargestNumber = 9007199254740991.0;

// Reads the members of one message, remembering the first fault.
class Reader {
public:
    explicit Reader(const QJsonObject& object) : m_object(object) {}

    QString text(const char* name)
    {
        const QJsonValue value = m_object.value(QLatin1String(name));
        if (!value.isString())
            return fault(name, "is not a text"), QString();
        QString text = value.toString();
        if (text.size() > kLongestText)
            return fault(name, "is too long"), QString();
        if (!text.isValidUtf16())
            return fault(name, "is not valid Unicode"), QString();
        for (const QChar c : text) {
            if (c.unicode() < 0x20 || c.unicode() == 0x7f)
                return fault(name, "holds a control character"), QString();
        }
        return text;
    }
    double number(const char* name, double lowest, double highest, bool whole)
    {
        const QJsonValue value = m_object.value(QLatin1String(name));
        const double number = value.toDouble();
        if (!value.isDouble() || !std::isfinite(number) || number < lowest || number > highest
            || (whole && number != std::floor(number)))
            return fault(name, "is not a number in range"), 0;
        return number;
    }
    bool flag(const char* name)
    {
        const QJsonValue value = m_object.value(QLatin1String(name));
        if (!value.isBool())
            return fault(name, "is not true or false"), false;
        return value.toBool();
    }
    QDateTime time(const char* name)
    {
        const QString text = this->text(name);
        const QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
        if (m_why.isEmpty() && (!time.isValid() || time.timeSpec() != Qt::UTC))
            fault(name, "is not a time in UTC");
        return time;
    }
    void fault(const char* name, const char* what)
    {
        if (m_why.isEmpty())
            m_why = u"\"%1\" %2"_s.arg(QLatin1String(name), QLatin1String(what));
    }
    const QString& why() const { return m_why; }

private:
    const QJsonObject& m_object;
    QString m_why;
};

} // namespace

QByteArray ledgerMessage(const LedgerRecord& r)
{
    const RunRecord& run = r.run;
    return QJsonDocument(
               QJsonObject{{u"schema"_s, kLedgerMessageSchema},
                           {u"ledger"_s, r.ledger},
                           {u"record"_s, double(r.number)},
                           {u"itemSerial"_s, r.itemSerial},
                           {u"queueNumber"_s, r.queueNumber},
                           {u"user"_s, r.user},
                           {u"organization"_s, r.organization},
                           {u"sample"_s, r.sampleName},
                           {u"position"_s, r.samplePosition},
                           {u"solvent"_s, run.solvent},
                           {u"title"_s, run.title},
                           {u"dataFile"_s, r.dataFile},
                           {u"takenUp"_s, run.takenUp.toUTC().toString(Qt::ISODateWithMs)},
                           {u"ended"_s, run.ended.toUTC().toString(Qt::ISODateWithMs)},
                           {u"outcome"_s, run.outcome},
                           {u"mode"_s, QString::fromLatin1(runModeName(run.mode))},
                           {u"loaded"_s, run.loaded},
                           {u"ejected"_s, run.ejected},
                           {u"loadSeconds"_s, run.loadSeconds},
                           {u"spinSeconds"_s, run.spinSeconds},
                           {u"ejectSeconds"_s, run.ejectSeconds},
                           {u"experimentSeconds"_s, run.experimentSeconds}})
        .toJson(QJsonDocument::Compact);
}

std::optional<LedgerRecord> readLedgerMessage(const QString& instrument, const QByteArray& message,
                                              QString* why)
{
    const auto fail = [&](const QString& reason) {
        *why = reason;
        return std::nullopt;
    };
    if (message.size() > kMaxLedgerMessageBytes)
        return fail(u"larger than %1 bytes"_s.arg(kMaxLedgerMessageBytes));
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(message, &error);
    if (!document.isObject())
        return fail(u"not a JSON object"_s);
    const QJsonObject object = document.object();
    if (object.value(u"schema"_s).toInt() != kLedgerMessageSchema)
        return fail(u"not of schema %1"_s.arg(kLedgerMessageSchema));
    Reader read(object);
    LedgerRecord r;
    RunRecord& run = r.run;
    r.instrument = instrument;
    r.ledger = read.text("ledger");
    r.number = qint64(read.number("record", 1, kLargestNumber, true));
    r.itemSerial = read.text("itemSerial");
    r.queueNumber = qint32(read.number("queueNumber", 0, 2147483647, true));
    r.user = read.text("user");
    r.organization = read.text("organization");
    r.sampleName = read.text("sample");
    r.samplePosition = qint32(read.number("position", -2147483648.0, 2147483647, true));
    run.solvent = read.text("solvent");
    run.title = read.text("title");
    r.dataFile = read.text("dataFile");
    run.takenUp = read.time("takenUp");
    run.ended = read.time("ended");
    run.outcome = read.text("outcome");
    const std::optional<RunMode> mode = runModeFromName(read.text("mode").toLatin1());
    run.loaded = read.flag("loaded");
    run.ejected = read.flag("ejected");
    run.loadSeconds = read.number("loadSeconds", 0, kLongestSeconds, false);
    run.spinSeconds = read.number("spinSeconds", 0, kLongestSeconds, false);
    run.ejectSeconds = read.number("ejectSeconds", 0, kLongestSeconds, false);
    run.experimentSeconds = read.number("experimentSeconds", 0, kLongestSeconds, false);
    if (!read.why().isEmpty())
        return fail(read.why());
    if (r.ledger.isEmpty() || r.ledger.size() > 64)
        return fail(u"\"ledger\" is not a ledger's identity"_s);
    if (!isRunOutcome(run.outcome))
        return fail(u"\"outcome\" is not Done, Failed or Stopped"_s);
    if (!mode)
        return fail(u"\"mode\" is not none, experiments or changer"_s);
    run.mode = *mode;
    return r;
}

} // namespace spinlane::facility
