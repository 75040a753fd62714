// The facility's reading of what arrives on the topic tree, and what it serves from it, fed
// message by message without a broker.
#include "core/ProfileFile.h"
#include "facility/BrokerSettings.h"
#include "facility/FacilityModel.h"
#include "facility/JsonMember.h"
#include "facility/StatePayload.h"
#include "facility/Topics.h"
#include "support/MosquittoBroker.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace spinlane;
using namespace spinlane::facility;
using spinlane::testing::recordedState;

namespace {
QByteArray state(const QString& name, const QString& runState = QStringLiteral("running"), int items = 4)
{
    return recordedState(name, runState, items);
}
QJsonObject entryOf(const FacilityModel& model, const QString& name)
{
    return QJsonDocument::fromJson(model.entryJson(name)).object();
}
} // namespace

class FacilityModelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsOnlyWellFormedStates_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<int>("fault");
        const auto with = [](const char* key, const QJsonValue& value) {
            QJsonObject object = QJsonDocument::fromJson(state(QStringLiteral("nmr400"))).object();
            if (value.isUndefined())
                object.remove(QLatin1String(key));
            else
                object.insert(QLatin1String(key), value);
            return QJsonDocument(object).toJson(QJsonDocument::Compact);
        };
        const int ok = int(PayloadFault::None), malformed = int(PayloadFault::Malformed),
                  foreign = int(PayloadFault::Foreign), oversized = int(PayloadFault::Oversized);
        QTest::newRow("recorded") << state(QStringLiteral("nmr400")) << ok;
        QTest::newRow("no current, no updated") << with("updated", QJsonValue::Undefined) << ok;
        QTest::newRow("empty") << QByteArray() << malformed;
        QTest::newRow("an array") << QByteArray("[]") << malformed;
        QTest::newRow("cut short") << state(QStringLiteral("nmr400")).chopped(5) << malformed;
        QTest::newRow("nested too deep") << QByteArray(5000, '[') << malformed;
        QTest::newRow("schema as text") << with("schema", QStringLiteral("1")) << malformed;
        QTest::newRow("schema 2") << with("schema", 2) << foreign;
        QTest::newRow("another instrument") << with("instrument", QStringLiteral("nmr600")) << foreign;
        QTest::newRow("no instrument") << with("instrument", QJsonValue::Undefined) << malformed;
        QTest::newRow("run state unheard of") << with("runState", QStringLiteral("flying")) << malformed;
        QTest::newRow("spinlane as text") << with("spinlane", QStringLiteral("true")) << malformed;
        QTest::newRow("queue an object") << with("queue", QJsonObject()) << malformed;
        QTest::newRow("item without number") << with("queue", QJsonArray{QJsonObject{{QStringLiteral("user"), QStringLiteral("ann")}}}) << malformed;
        QTest::newRow("item number 1.5") << with("queue", QJsonArray{QJsonObject{{QStringLiteral("number"), 1.5}}}) << malformed;
        QTest::newRow("item user a number") << with("queue", QJsonArray{QJsonObject{{QStringLiteral("number"), 1}, {QStringLiteral("user"), 7}}}) << malformed;
        QTest::newRow("current a text") << with("current", QStringLiteral("S3")) << malformed;
        QTest::newRow("one byte over") << QByteArray(1025, ' ') << oversized;
    }

    void readsOnlyWellFormedStates()
    {
        QFETCH(QByteArray, payload);
        QFETCH(int, fault);
        const PayloadReading reading = readStatePayload(payload, QStringLiteral("nmr400"), fault == int(PayloadFault::Oversized) ? 1024 : 1 << 20);
        QCOMPARE(int(reading.fault), fault);
        QCOMPARE(reading.state.has_value(), fault == int(PayloadFault::None));
        if (reading.state) {
            QCOMPARE(reading.state->queue.size(), 4);
            QCOMPARE(reading.state->current->number, 2);
            // Served as written from what was read: valid JSON that reads back the same.
            const PayloadReading again = readStatePayload(reading.state->json, QStringLiteral("nmr400"), 1 << 20);
            QVERIFY(again.state);
            QCOMPARE(again.state->json, reading.state->json);
            QCOMPARE(again.state->queue.size(), 4);
        }
    }

    void findsOneMemberWithoutParsing_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QByteArray>("value"); // empty: not found
        QTest::newRow("array") << QByteArray("{\"a\":1,\"queue\":[1,2],\"b\":\"x\"}") << QByteArray("[1,2]");
        QTest::newRow("spaced") << QByteArray(" {\n \"queue\" :\t[ ] ,\"b\":true}\n") << QByteArray("[ ]");
        QTest::newRow("brackets and quotes in texts")
            << QByteArray("{\"s\":\"]}\\\"[{\",\"queue\":[{\"t\":\"a\\\"]}\\\\\"},[[\"}\"]]],\"z\":null}")
            << QByteArray("[{\"t\":\"a\\\"]}\\\\\"},[[\"}\"]]]");
        QTest::newRow("an object") << QByteArray("{\"queue\":{\"k\":[]}}") << QByteArray("{\"k\":[]}");
        QTest::newRow("named twice") << QByteArray("{\"queue\":[1],\"queue\":[2]}") << QByteArray();
        QTest::newRow("named with an escape") << QByteArray("{\"queue\":[1],\"q\\u0075eue\":[2]}") << QByteArray();
        QTest::newRow("a number") << QByteArray("{\"queue\":12}") << QByteArray();
        QTest::newRow("absent") << QByteArray("{\"queued\":[1]}") << QByteArray();
        QTest::newRow("in a deeper object") << QByteArray("{\"a\":{\"queue\":[1]}}") << QByteArray();
        QTest::newRow("text after the object") << QByteArray("{\"queue\":[1]} []") << QByteArray();
        QTest::newRow("never closed") << QByteArray("{\"queue\":[1,[2]") << QByteArray();
        QTest::newRow("text never ends") << QByteArray("{\"queue\":[\"a]") << QByteArray();
        QTest::newRow("not an object") << QByteArray("[{\"queue\":[1]}]") << QByteArray();
    }

    void findsOneMemberWithoutParsing()
    {
        QFETCH(QByteArray, json);
        QFETCH(QByteArray, value);
        const MemberSpan span = memberSpan(json, "queue");
        QCOMPARE(span.found(), !value.isEmpty());
        if (span.found())
            QCOMPARE(json.mid(span.begin, span.end - span.begin), value);
    }

    // The queue is read only when its bytes changed; whatever changed around it is read anew.
    void lendsTheQueueOnlyWhileItsBytesAreTheSame()
    {
        const QString name = QStringLiteral("nmr400");
        const PayloadReading first = readStatePayload(state(name), name, 1 << 20);
        QVERIFY(first.state);
        const QByteArray later = recordedState(name, QStringLiteral("running"), 4, QStringLiteral("2026-11-25T11:00:00.000Z"));
        const PayloadReading same = readStatePayload(later, name, 1 << 20, &*first.state);
        QVERIFY(same.state);
        QVERIFY(same.state->queue.isSharedWith(first.state->queue)); // not read again
        QCOMPARE(same.state->updated, QStringLiteral("2026-11-25T11:00:00.000Z"));
        QCOMPARE(same.state->json, readStatePayload(later, name, 1 << 20).state->json);

        QJsonObject changed = QJsonDocument::fromJson(later).object();
        QJsonArray queue = changed[QLatin1String("queue")].toArray();
        QJsonObject item = queue[2].toObject();
        item[QLatin1String("user")] = QStringLiteral("dee");
        queue[2] = item;
        changed[QLatin1String("queue")] = queue;
        const PayloadReading other = readStatePayload(QJsonDocument(changed).toJson(), name, 1 << 20, &*same.state);
        QVERIFY(other.state);
        QVERIFY(!other.state->queue.isSharedWith(first.state->queue));
        QCOMPARE(other.state->queue[2].user, QStringLiteral("dee"));
        QVERIFY(other.state->json.contains("\"user\":\"dee\""));

        // The same queue bytes in a state that is wrong elsewhere: still refused.
        QByteArray broken = later;
        broken.replace("\"schema\":1", "\"schema\":\"1\"");
        QCOMPARE(int(readStatePayload(broken, name, 1 << 20, &*first.state).fault), int(PayloadFault::Malformed));
        broken = later;
        broken.replace("\"running\"", "\"run\x01ning\"");
        QCOMPARE(int(readStatePayload(broken, name, 1 << 20, &*first.state).fault), int(PayloadFault::Malformed));
    }

    void topicsNameOneInstrument_data()
    {
        QTest::addColumn<QString>("topic");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("instrument");
        QTest::newRow("state") << QStringLiteral("spinlane/v1/nmr400/state") << int(TopicParts::State) << QStringLiteral("nmr400");
        QTest::newRow("online") << QStringLiteral("spinlane/v1/a.b-c_d/online") << int(TopicParts::Online) << QStringLiteral("a.b-c_d");
        QTest::newRow("deeper") << QStringLiteral("spinlane/v1/nmr400/state/x") << int(TopicParts::Other) << QString();
        QTest::newRow("other version") << QStringLiteral("spinlane/v2/nmr400/state") << int(TopicParts::Other) << QString();
        QTest::newRow("empty name") << QStringLiteral("spinlane/v1//state") << int(TopicParts::Other) << QString();
        QTest::newRow("space in name") << QStringLiteral("spinlane/v1/nmr 400/state") << int(TopicParts::Other) << QString();
        QTest::newRow("name ..") << QStringLiteral("spinlane/v1/../state") << int(TopicParts::Other) << QString();
        QTest::newRow("name .") << QStringLiteral("spinlane/v1/./online") << int(TopicParts::Other) << QString();
        QTest::newRow("name with a comma") << QStringLiteral("spinlane/v1/nmr,400/state") << int(TopicParts::Other) << QString();
        QTest::newRow("name ...") << QStringLiteral("spinlane/v1/.../state") << int(TopicParts::State) << QStringLiteral("...");
    }

    void topicsNameOneInstrument()
    {
        QFETCH(QString, topic);
        QFETCH(int, kind);
        QFETCH(QString, instrument);
        const TopicParts parts = parseTopic(topic);
        QCOMPARE(int(parts.kind), kind);
        QCOMPARE(parts.instrument, instrument);
    }

    void offlineByWillOrSilenceIsNeverRunning()
    {
        FacilityModel model;
        model.setLimits(2, 1 << 20);
        model.take(QStringLiteral("spinlane/v1/a/state"), state(QStringLiteral("a")));
        // A state without a word on the online topic: nobody says it is alive.
        QCOMPARE(model.entry(QStringLiteral("a"))->offline, FacilityModel::Offline::Silent);
        model.take(QStringLiteral("spinlane/v1/a/online"), "online");
        QVERIFY(model.entry(QStringLiteral("a"))->isOnline());
        QCOMPARE(entryOf(model, QStringLiteral("a")).value(QLatin1String("runState")).toString(), QStringLiteral("running"));
        QVERIFY(model.metricsText().contains("spinlane_instrument_running{instrument=\"a\"} 1\n"));

        QSignalSpy changed(&model, &FacilityModel::instrumentChanged);
        QTRY_COMPARE_WITH_TIMEOUT(model.entry(QStringLiteral("a"))->offline, FacilityModel::Offline::Silent, 5000);
        QCOMPARE(changed.count(), 1);
        const QJsonObject silent = entryOf(model, QStringLiteral("a"));
        QCOMPARE(silent.value(QLatin1String("runState")).toString(), QStringLiteral("offline"));
        QCOMPARE(silent.value(QLatin1String("offline")).toString(), QStringLiteral("silent"));
        QVERIFY(!silent.value(QLatin1String("lastHeard")).toString().isEmpty());
        QCOMPARE(silent.value(QLatin1String("instrument")).toObject().value(QLatin1String("runState")).toString(), QStringLiteral("unknown"));
        QVERIFY(model.metricsText().contains("spinlane_instrument_running{instrument=\"a\"} 0\n"));
        QVERIFY(model.metricsText().contains("spinlane_instrument_online{instrument=\"a\"} 0\n"));

        // Heard again: a heartbeat brings it back; its will takes it away at once.
        model.take(QStringLiteral("spinlane/v1/a/online"), "online");
        QVERIFY(model.entry(QStringLiteral("a"))->isOnline());
        model.take(QStringLiteral("spinlane/v1/a/online"), "offline");
        QCOMPARE(entryOf(model, QStringLiteral("a")).value(QLatin1String("offline")).toString(), QStringLiteral("will"));
        // A retained state arriving after the will does not make it alive.
        model.take(QStringLiteral("spinlane/v1/a/state"), state(QStringLiteral("a")));
        QCOMPARE(model.entry(QStringLiteral("a"))->offline, FacilityModel::Offline::Will);
    }

    void clearedTopicsRetireAnInstrument()
    {
        FacilityModel model;
        model.take(QStringLiteral("spinlane/v1/a/state"), state(QStringLiteral("a")));
        model.take(QStringLiteral("spinlane/v1/a/online"), "offline");
        model.take(QStringLiteral("spinlane/v1/a/state"), QByteArray());
        QCOMPARE(model.instruments(), QStringList{QStringLiteral("a")});
        QVERIFY(!model.entry(QStringLiteral("a"))->state);
        QVERIFY(model.entryJson(QStringLiteral("a")).endsWith("\"instrument\":null}"));
        model.take(QStringLiteral("spinlane/v1/a/online"), QByteArray());
        QVERIFY(model.instruments().isEmpty());
        QVERIFY(model.entryJson(QStringLiteral("a")).isEmpty());
    }

    void facilityJsonHoldsEveryInstrument()
    {
        FacilityModel model;
        const QByteArray big = state(QStringLiteral("b"), QStringLiteral("idle"), 999);
        model.take(QStringLiteral("spinlane/v1/b/state"), big);
        model.take(QStringLiteral("spinlane/v1/b/online"), "online");
        model.take(QStringLiteral("spinlane/v1/a\"q/online"), "online");
        model.take(QStringLiteral("spinlane/v1/b/state"), "junk");
        QJsonParseError error{};
        const QJsonObject json = QJsonDocument::fromJson(model.facilityJson(), &error).object();
        QCOMPARE(error.error, QJsonParseError::NoError);
        QCOMPARE(json.value(QLatin1String("schema")).toInt(), 1);
        QCOMPARE(json.value(QLatin1String("rejected")).toObject().value(QLatin1String("malformed")).toInt(), 1);
        // A name that is no instrument's (a quote in it) is refused as foreign.
        QCOMPARE(json.value(QLatin1String("rejected")).toObject().value(QLatin1String("foreign")).toInt(), 1);
        const QJsonArray instruments = json.value(QLatin1String("instruments")).toArray();
        QCOMPARE(instruments.size(), 1);
        const QJsonObject b = instruments[0].toObject();
        QVERIFY(b.value(QLatin1String("online")).toBool());
        QCOMPARE(b.value(QLatin1String("instrument"))[QLatin1String("queue")].toArray(),
                 QJsonDocument::fromJson(big).object().value(QLatin1String("queue")).toArray());
        QVERIFY(model.metricsText().contains("spinlane_instrument_queue_items{instrument=\"b\"} 999\n"));
    }

    void mySamplesAcrossInstrumentsSoonestFirst()
    {
        FacilityModel model;
        // "b" starts its queue an hour after "a": bob's items on "a" come first.
        QByteArray later = state(QStringLiteral("b"), QStringLiteral("idle"), 6);
        later.replace("2026-11-25T10:", "2026-11-25T11:");
        model.take(QStringLiteral("spinlane/v1/b/state"), later);
        model.take(QStringLiteral("spinlane/v1/a/state"), state(QStringLiteral("a"), QStringLiteral("running"), 6));
        model.take(QStringLiteral("spinlane/v1/a/online"), "online");
        const QJsonArray items = QJsonDocument::fromJson(model.samplesJson(QStringLiteral("BOB"))).object()
                                     .value(QLatin1String("items")).toArray();
        QStringList seen;
        for (const QJsonValue& item : items)
            seen << item[QLatin1String("instrument")].toString() + u':' + QString::number(item[QLatin1String("number")].toInt())
                        + u':' + item[QLatin1String("status")].toString();
        QCOMPARE(seen, (QStringList{QStringLiteral("a:2:In progress"), QStringLiteral("a:5:Queued"),
                                    QStringLiteral("b:2:Queued"), QStringLiteral("b:5:Queued")}));
        QCOMPARE(items[2][QLatin1String("online")].toBool(), false);
        // ann's first item is done: not hers to wait for.
        QVERIFY(!model.samplesJson(QStringLiteral("ann")).contains("\"number\":1,"));
    }

    void brokerSettingsComeFromTheFile_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("error");
        const int owner = int(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        const int everyone = owner | int(QFileDevice::ReadGroup | QFileDevice::ReadOther);
        QTest::newRow("password, owner only") << QByteArray("[broker]\nHost=b\nUser=u\nPassword=p\n") << owner << QString();
        QTest::newRow("no password, readable") << QByteArray("[broker]\nHost=b\nUser=u\n") << everyone << QString();
        QTest::newRow("password, readable") << QByteArray("[broker]\nHost=b\nUser=u\nPassword=p\n") << everyone
                                            << QStringLiteral("%1 holds a password and others can read it: chmod 600 %1");
        QTest::newRow("port out of range") << QByteArray("[broker]\nHost=b\nPort=70000\n") << owner
                                           << QStringLiteral("%1: [broker] Port: \"70000\" is not a whole number from 1 to 65535");
        QTest::newRow("TLS neither") << QByteArray("[broker]\nHost=b\nTLS=maybe\n") << owner
                                     << QStringLiteral("%1: [broker] TLS: \"maybe\" is neither true nor false");
        QTest::newRow("unknown key") << QByteArray("[web]\nPassword=x\n[broker]\nHost=b\nPasword=p\n") << everyone
                                     << QStringLiteral("%1: [broker] Pasword: unknown setting");
        QTest::newRow("password without user") << QByteArray("[broker]\nHost=b\nPassword=p\n") << owner
                                               << QStringLiteral("%1: [broker] Password: a password needs a User");
    }

    void brokerSettingsComeFromTheFile()
    {
        QFETCH(QByteArray, text);
        QFETCH(int, mode);
        QFETCH(QString, error);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("web.conf"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(text);
        file.close();
        QVERIFY(QFile::setPermissions(path, QFileDevice::Permissions(mode)));
        QStringList errors;
        const BrokerSettings settings = readBrokerSettings(ProfileDocument::load(path), path, &errors);
        QCOMPARE(errors, error.isEmpty() ? QStringList() : QStringList{error.arg(path)});
        QCOMPARE(settings.host, QStringLiteral("b"));
    }
};

QTEST_GUILESS_MAIN(FacilityModelTest)
#include "tst_facilitymodel.moc"
