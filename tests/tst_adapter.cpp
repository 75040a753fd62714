// spinlane-adapter, the real process, on a private session bus: the interfaces it and the
// simulators offer, its configuration checks and command lines, and Spinlane's run loop driving
// the demo queue through the shipped example laboratory and through commands that fail.

#include "adapter/CommandTemplate.h"
#include "adapter/Values.h"
#include "core/ProfileFile.h"
#include "core/RuntimeError.h"
#include "core/SingleInstance.h"
#include "core/Startup.h"
#include "queue/QueueRows.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "queue/SettingsFile.h"
#include "runner/LabBus.h"
#include "runner/LabInterfaces.h"
#include "runner/ProgramLinks.h"
#include "runner/RunLog.h"
#include "runner/RunQueue.h"
#include "settings/RecoveryJournal.h"
#include "settings/Settings.h"
#include "support/QueueProbe.h"
#include "support/RealLabSeams.h"
#include "support/RunningAdapter.h"
#include "support/ScriptedSeams.h"
#include "support/SettingsFiles.h"
#include "support/SimulatedLab.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QLocale>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

const QString kAdapter = QStringLiteral(SPINLANE_ADAPTER);
const QString kExamples = QStringLiteral(SPINLANE_EXAMPLES);
const QString kDemoSettings = QStringLiteral(SPINLANE_DEMO_SETTINGS);

// The simulated laboratory as the example one: its experiments and solvents, short durations.
const QByteArray kSimulatedAsExample =
    "[Changer]\r\nLoadSeconds=1\r\nEjectSeconds=1\r\nSpinRamp=1000\r\nReadySeconds=0\r\n"
    "[Expedra]\r\nSolvents=CDCl3, D2O, DMSO\r\n"
    "[Experiment 1]\r\nTitle=PROTON\r\nDuration=1\r\n"
    "[Experiment 2]\r\nTitle=CARBON\r\nDuration=1\r\n"
    "[Experiment 3]\r\nTitle=COSY\r\nLockRequired=False\r\nSpin=False\r\nDuration=1\r\n";
const QStringList kExampleEnvironment{u"SPINLANE_LAB_EXPERIMENT_SECONDS=1"_s,
                                      u"SPINLANE_LAB_LOAD_SECONDS=1"_s};

// Quotes, blanks, a command separator, substitutions and line breaks: one argument all the same.
const QString kHostileName = u"it's \"x\" ; touch pwned $(touch pwned) `touch pwned`\nline 2"_s;

const QString kAutomationError = u"Run-time error '-2147467259':\r\n\r\nAutomation error\r\n"_s;

// The operations of the lab's interfaces an introspection offers: "Interface.Method(in)out".
QStringList offered(const QString& xml)
{
    QStringList operations;
    QXmlStreamReader reader(xml);
    QString interface, method, in, out;
    while (reader.readNextStartElement() || !reader.atEnd()) {
        if (reader.isEndElement() && reader.name() == u"method"_s
            && interface.startsWith(kLabBusPrefix))
            operations.append(interface + u'.' + method + u'(' + in + u')' + out);
        if (!reader.isStartElement())
            continue;
        const auto attribute = [&](const char* name) {
            return reader.attributes().value(QLatin1StringView(name)).toString();
        };
        if (reader.name() == u"interface"_s)
            interface = attribute("name");
        else if (reader.name() == u"method"_s)
            method = attribute("name"), in.clear(), out.clear();
        else if (reader.name() == u"arg"_s)
            (attribute("direction") == u"out"_s ? out : in) += attribute("type");
    }
    operations.sort();
    return operations;
}

QStringList described(const QString& className)
{
    QStringList operations;
    for (const LabInterface* interface : {labInterface(className), &labWindowInterface()}) {
        for (const LabOperation& op : interface->operations)
            operations.append(interface->name + u'.' + op.name + u'(' + op.inputSignature() + u')'
                              + op.output);
    }
    operations.sort();
    return operations;
}

QString introspect(const QString& className)
{
    const QDBusMessage reply = QDBusConnection::sessionBus().call(
        QDBusMessage::createMethodCall(labBusName(className), kLabObjectPath,
                                       u"org.freedesktop.DBus.Introspectable"_s, u"Introspect"_s),
        QDBus::Block, 5000);
    return reply.arguments().value(0).toString();
}

bool anyLabNameOwned()
{
    const auto bus = QDBusConnection::sessionBus().interface();
    return std::any_of(labClasses().cbegin(), labClasses().cend(), [&](const QString& c) {
        return bus->isServiceRegistered(labBusName(c)).value();
    });
}

QString exampleLab(const QTemporaryDir& dir, const Changes& changes = {})
{
    return copyExampleLab(kExamples, dir.path(), changes);
}

} // namespace

class TestAdapter : public QObject {
    Q_OBJECT

    std::unique_ptr<ScriptedSeams> m_seams;
    std::unique_ptr<RealLabSeams> m_lab;
    QTemporaryDir m_dir; // the settings file and the run log

    struct Run {
        QStringList log; // every date and time as "T"
        QStringList statuses;
        QStringList boxes;
        int ends = 0;
        QStringList journal; // the items in the recovery journal at the end
    };

    // The demo queue, its first sample renamed to kHostileName, run as the Start button does on
    // whatever laboratory the bus has.
    Run runDemoQueue()
    {
        const QString ini = m_dir.filePath(u"Spinlane.INI"_s);
        for (const QString& file : {ini, ini + u".recovery"_s})
            QFile::remove(file); // a fresh start: the last run's journal would be offered
        QFile::copy(kDemoSettings, ini);
        QFile::setPermissions(ini, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        const QByteArray before = readFile(ini);
        m_seams->messageBoxes.queueAnswer(MsgAnswer::Ok);
        m_seams->fileDialogs.queueChoice(ini);
        Run run;
        guarded([&] {
            LoadSettings();
            gRecoveryJournal.start();
            ConnectPrograms();
            gExpTitles = linked(gExpedra).GetExperimentTitles();
            gSolvents = linked(gExpedra).GetSolvents();
            gQueue(1).SampleName = kHostileName;
            PopulateQueueList();
            gCurrentUserID = u"administrator"_s;
            gLogOn = OpenLogFile(m_dir.filePath(u"run.log"_s), false);
            gRecoveryJournal.flush();
            RunQueue();
            CloseLogFile();
        });
        gRecoveryJournal.stop();
        run.log = runLogLines(m_dir.filePath(u"run.log"_s));
        run.statuses = statuses();
        run.boxes = m_seams->messageBoxes.texts().mid(1); // after the start-up question
        run.ends = m_seams->programEnd.ends;
        run.journal = queueInFile(recoveryJournalPath(), &QueueItem::SampleName);
        if (readFile(ini) != before)
            run.journal.append(u"the settings file changed"_s);
        return run;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QLocale::setDefault(QLocale::c());
        QVERIFY2(QDBusConnection::sessionBus().isConnected(),
                 "needs the private lab bus: run through CTest");
    }

    void init()
    {
        m_seams = std::make_unique<ScriptedSeams>();
        m_lab = std::make_unique<RealLabSeams>();
        resetStartupState();
        resetSettingsState();
        resetQueueState();
        resetProgramLinks();
        resetRunState();
        resetRecoveryState();
        gExeVersion = QStringLiteral(SPINLANE_VERSION);
    }

    void cleanup()
    {
        releaseInstanceLock();
        resetProgramLinks();
        m_lab.reset();
        m_seams.reset();
    }

    void interfacesAreTheTable()
    {
        {
            SimulatedLab lab;
            QVERIFY(lab.isReady());
            for (const QString& className : labClasses()) {
                const QDBusMessage started = QDBusConnection::sessionBus().call(
                    QDBusMessage::createMethodCall(
                        u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                        u"org.freedesktop.DBus"_s, u"StartServiceByName"_s)
                    << labBusName(className) << 0u);
                QCOMPARE(started.type(), QDBusMessage::ReplyMessage);
                QCOMPARE(offered(introspect(className)), described(className));
            }
        }
        QTemporaryDir dir;
        RunningAdapter adapter(kAdapter, exampleLab(dir));
        QVERIFY2(adapter.waitUntilServing(), qPrintable(adapter.errors()));
        static const QRegularExpression unnamed(u"<arg (?!name=\"\\w+\")"_s);
        for (const QString& className : labClasses()) {
            const QString xml = introspect(className);
            QCOMPARE(offered(xml), described(className));
            QVERIFY2(!xml.contains(unnamed), qPrintable(xml)); // every argument has a name
        }
        QVERIFY(introspect(kExpedraClass)
                    .contains(u"<arg name=\"OutputFile\" type=\"s\" direction=\"in\"/>"_s));
        QVERIFY(introspect(kSampleChangerClass)
                    .contains(u"<arg name=\"Ready\" type=\"b\" direction=\"out\"/>"_s));
    }

    void commandLines_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("words"); // {1} is kHostileName, {Pos} 5
        QTest::newRow("blanks") << u"  load\t {1}  now "_s
                                << QStringList{u"load"_s, kHostileName, u"now"_s};
        QTest::newRow("quotes") << u"a 'b c' \"d \\\"e\\\" \\x\" f\\ g '' h'i'\"j\""_s
                                << QStringList{u"a"_s,   u"b c"_s,  u"d \"e\" \\x"_s,
                                               u"f g"_s, QString(), u"hij"_s};
        QTest::newRow("placeholders inside words and quotes")
            << u"--at={Pos} '{1}' {Pos}{Pos} {x y} {}"_s
            << QStringList{u"--at=5"_s, kHostileName, u"55"_s, u"{x"_s, u"y}"_s, u"{}"_s};
        QTest::newRow("no expansion")
            << u"echo $HOME ~ * $(date) ;"_s
            << QStringList{u"echo"_s, u"$HOME"_s, u"~"_s, u"*"_s, u"$(date)"_s, u";"_s};
        QTest::newRow("open quote") << u"echo 'half"_s << QStringList();
        QTest::newRow("nothing") << u"  "_s << QStringList();
    }
    void commandLines()
    {
        QFETCH(QString, line);
        QFETCH(QStringList, words);
        QString error;
        const auto command = adapter::CommandTemplate::parse(line, &error);
        QCOMPARE(bool(command), !words.isEmpty());
        if (command)
            QCOMPARE(command->expand([](const QString& name) {
                return name == u"1"_s ? kHostileName : name == u"Pos"_s ? u"5"_s : u"?"_s;
            }),
                     words);
        else
            QVERIFY(!error.isEmpty());
    }

    void answers_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QVariant>("answer"); // invalid: refused
        QTest::newRow("true") << u" TRUE\n"_s << u"b"_s << QVariant(true);
        QTest::newRow("yes") << u"Yes"_s << u"b"_s << QVariant(true);
        QTest::newRow("0") << u"0\r\n"_s << u"b"_s << QVariant(false);
        QTest::newRow("not a Boolean") << u"ok"_s << u"b"_s << QVariant();
        QTest::newRow("number") << u"-12\n"_s << u"i"_s << QVariant(-12);
        QTest::newRow("not whole") << u"1.5"_s << u"i"_s << QVariant();
        QTest::newRow("too large") << u"4294967296"_s << u"i"_s << QVariant();
        QTest::newRow("decimal") << u"20.5\n"_s << u"d"_s << QVariant(20.5);
        QTest::newRow("empty number") << u""_s << u"d"_s << QVariant();
        QTest::newRow("text") << u" two\nlines \n"_s << u"s"_s << QVariant(u" two\nlines "_s);
        QTest::newRow("lines") << u"a b\r\n\nc\n"_s << u"as"_s
                               << QVariant(QStringList{u"a b"_s, QString(), u"c"_s});
        QTest::newRow("no lines") << u""_s << u"as"_s << QVariant(QStringList());
    }
    void answers()
    {
        QFETCH(QString, text);
        QFETCH(QString, type);
        QFETCH(QVariant, answer);
        QString why;
        const std::optional<QVariant> read = adapter::answerFromText(text, type, &why);
        QCOMPARE(read.value_or(QVariant()), answer);
        QCOMPARE(why.isEmpty(), answer.isValid());
    }

    // Each mistake names the file, the line and the key; the adapter ends with status 2 without
    // taking any bus name.
    void configurationMistakes_data()
    {
        QTest::addColumn<QByteArray>("lines"); // after a complete changer section of 12 lines
        QTest::addColumn<QStringList>("dropped"); // operations left out of it
        QTest::addColumn<QStringList>("errors"); // without "FILE:"
        const auto row = [](const char* name, const QByteArray& lines, const QStringList& dropped,
                            const QStringList& errors) {
            QTest::newRow(name) << lines << dropped << errors;
        };
        row("unknown program", "[Korvo.Console]\nx=1\n", {},
            {u"13: [Korvo.Console]: is not a program Spinlane drives (Korvo.Application, "
             "Expedra.BrelixExpedra, Tubelink.Tubelink, Carousio.clsCarousio)"_s});
        row("unknown operation", "IsBusy=const: true\n", {},
            {u"13: IsBusy: is not an operation of Carousio.clsCarousio"_s});
        row("operation left out", {}, {u"GetLoadFailed"_s},
            {u"1: GetLoadFailed: is missing from [Carousio.clsCarousio]"_s});
        row("given twice", "isloading=const: true\n", {},
            {u"13: isloading: is given twice (first on line 4)"_s});
        row("unknown placeholders",
            "GetActualSpinRate=run: echo {1} {Position.1} {OutputFile} {Spin}{SpinRate}\n",
            {u"GetActualSpinRate"_s},
            {u"13: GetActualSpinRate: unknown placeholder {1}"_s,
             u"13: GetActualSpinRate: unknown placeholder {Position.1}"_s,
             u"13: GetActualSpinRate: unknown placeholder {OutputFile}"_s});
        row("no such way", "Timeout=10\nQuit=ignore\n", {u"Quit"_s},
            {u"13: Timeout: \"10\" is not a number of seconds from 0.1 to below 10"_s,
             u"14: Quit: \"ignore\" is none of run: COMMAND, helper, store, const: VALUE"_s});
        row("bad answers", "IsReady=const: maybe\nSetSpin=const: true\n",
            {u"IsReady"_s, u"SetSpin"_s},
            {u"13: IsReady: the answer \"maybe\" is not true or false"_s,
             u"14: SetSpin: gives no answer: write \"const:\" alone"_s});
        row("bad commands",
            "EjectSample=run: ./nowhere.sh\nGetActualSpinRate=run: {1}x\n"
            "GetEjectFailed=run: echo 'no\n",
            {u"EjectSample"_s, u"GetActualSpinRate"_s, u"GetEjectFailed"_s},
            {u"13: EjectSample: DIR/nowhere.sh is not an executable file"_s,
             u"14: GetActualSpinRate: the program cannot be a placeholder"_s,
             u"15: GetEjectFailed: the quote ' is not closed"_s});
        row("no helper", "IsLoading=helper\n", {u"IsLoading"_s},
            {u"1: Helper: is missing from [Carousio.clsCarousio], whose operations go to the "
             "helper"_s});
        row("store without a value", "Quit=store\n", {u"Quit"_s},
            {u"13: Quit: store is only for operations that set a value"_s});
    }
    void configurationMistakes()
    {
        QFETCH(QByteArray, lines);
        QFETCH(QStringList, dropped);
        QFETCH(QStringList, errors);
        QByteArray config = "[Carousio.clsCarousio]\n";
        for (const char* line :
             {"IsReady=const: true", "LoadSample=run: true {1} {Position}",
              "IsLoading=const: false", "GetLoadFailed=const: false", "EjectSample=const:",
              "IsEjecting=const: false", "GetEjectFailed=const: false", "SetSpinRate=store",
              "SetSpin=store", "GetActualSpinRate=run: echo {SpinRate}", "Quit=const:"}) {
            if (dropped.contains(QString::fromUtf8(line).section(u'=', 0, 0)))
                config += "; left out\n"; // the lines keep their numbers
            else
                config += QByteArray(line) + '\n';
        }
        QTemporaryDir dir;
        const QString path = dir.filePath(u"adapter.ini"_s);
        writeFile(path, config + lines);
        QProcess adapter;
        adapter.start(kAdapter, {u"--config"_s, path});
        QVERIFY(adapter.waitForFinished(10000));
        const QString said = QString::fromUtf8(adapter.readAllStandardError());
        QStringList expected;
        for (const QString& error : errors)
            expected.append(path + u':' + QString(error).replace(u"DIR"_s, dir.path()));
        QCOMPARE(said.split(u'\n', Qt::SkipEmptyParts), expected);
        QCOMPARE(adapter.exitCode(), 2);
        QVERIFY(!anyLabNameOwned());
    }

    // The demo queue to its end through the example laboratory, once with its scripts and once
    // with its changer helper: the same run log and statuses as in the simulated laboratory, and
    // the hostile sample name reached the set-up command as one argument.
    void demoQueueAsInTheSimulatedLab()
    {
        Run simulated;
        {
            SimulatedLab lab(kSimulatedAsExample);
            QVERIFY(lab.isReady() && lab.startConsole());
            simulated = runDemoQueue();
            ReleasePrograms();
        }
        QCOMPARE(simulated.statuses, QStringList(4, u"Done"_s));
        QCOMPARE(simulated.boxes, QStringList());

        for (const bool helper : {false, true}) {
            cleanup();
            init();
            QTemporaryDir dir;
            const QString config = exampleLab(
                dir,
                helper ? changerServedBy(u"helper"_s)
                             + Changes{{kSampleChangerClass, u"Helper"_s, u"python3 changer.py"_s}}
                       : Changes{});
            RunningAdapter adapter(
                kAdapter, config,
                kExampleEnvironment
                    + QStringList{u"SPINLANE_LAB_STATE="_s + dir.filePath(u"state"_s)});
            QVERIFY2(adapter.waitUntilServing(), qPrintable(adapter.errors()));
            const Run run = runDemoQueue();
            ReleasePrograms();
            QCOMPARE(run.boxes, QStringList());
            QCOMPARE(run.log, simulated.log);
            QCOMPARE(run.statuses, simulated.statuses);
            const QStringList experiments =
                QString::fromUtf8(readFile(dir.filePath(u"state/experiments.log"_s)))
                    .split(u'\n', Qt::SkipEmptyParts);
            QCOMPARE(experiments.size(), 4);
            QCOMPARE(experiments.first(), u"PROTON\t/korvo/Data/ann/menthol-proton.kvd\t"_s
                                              + QString(kHostileName).replace(u'\n', u' ')
                                              + u"  reference sample"_s);
            QVERIFY(!QFile::exists(dir.filePath(u"pwned"_s)));
        }
    }

    // A changer command that fails ends the run with the automation error, which says why; the
    // queue is all in the recovery journal and the settings file is as it was.
    void failingCommandsEndTheRun_data()
    {
        QTest::addColumn<Changes>("changes");
        QTest::addColumn<QString>("detail");
        const auto changer = [](const QString& key, const QString& value) {
            return std::array<QString, 3>{kSampleChangerClass, key, value};
        };
        QTest::newRow("exit status")
            << QList{changer(u"LoadSample"_s, u"run: sh -c 'echo jammed at $0 >&2; exit 1' {1}"_s)}
            << u"LoadSample: SH -c 'echo jammed at $0 >&2; exit 1' 1: exit status 1\n"
               "jammed at 1"_s;
        QTest::newRow("timeout") << Changes{changer(u"Timeout"_s, u"0.5"_s),
                                            changer(u"GetLoadFailed"_s, u"run: sleep 30"_s)}
                                 << u"GetLoadFailed: SLEEP 30: gave no answer within 0.5 s and was "
                                    "stopped"_s;
        QTest::newRow("endless answer")
            << Changes{changer(u"GetLoadFailed"_s, u"run: yes"_s)}
            << u"GetLoadFailed: YES: answered more than 1 MiB"_s;
        QTest::newRow("answer that does not read")
            << Changes{changer(u"GetLoadFailed"_s, u"run: echo maybe"_s)}
            << u"GetLoadFailed: ECHO maybe: the answer \"maybe\" is not true or false"_s;
        QTest::newRow("helper that dies")
            << changerServedBy(u"helper"_s) + QList{changer(u"Helper"_s, u"sh dying-helper.sh"_s)}
            << u"LoadSample: the helper SH dying-helper.sh: ended with exit status 3\n"
               "the carousel jammed"_s;
    }
    void failingCommandsEndTheRun()
    {
        QFETCH(Changes, changes);
        QFETCH(QString, detail);
        for (const QString& program : {u"sh"_s, u"sleep"_s, u"echo"_s, u"yes"_s})
            detail.replace(program.toUpper(), QStandardPaths::findExecutable(program));
        QTemporaryDir dir;
        // Answers false to all but LoadSample, at which it ends.
        writeFile(
            dir.filePath(u"dying-helper.sh"_s),
            "while read -r line; do\n"
            "  case $line in *LoadSample*) echo 'the carousel jammed' >&2; exit 3;; esac\n"
            "  id=${line#*\\\"id\\\":}; echo \"{\\\"id\\\":${id%%,*},\\\"result\\\":false}\"\n"
            "done\n");
        RunningAdapter adapter(
            kAdapter, exampleLab(dir, changes),
            kExampleEnvironment + QStringList{u"SPINLANE_LAB_STATE="_s + dir.filePath(u"state"_s)});
        QVERIFY2(adapter.waitUntilServing(), qPrintable(adapter.errors()));
        const auto bus = QDBusConnection::sessionBus().interface();
        const QString changerProcess = bus->serviceOwner(labBusName(kSampleChangerClass));
        const Run run = runDemoQueue();
        QCOMPARE(run.ends, 1);
        QCOMPARE(run.boxes,
                 QStringList{kAutomationError + detail + u" (org.spinlane.lab.Error.Failed)"_s});
        QCOMPARE(run.statuses, (QStringList{u"In progress"_s, u"Idle"_s, u"Idle"_s, u"Idle"_s}));
        QCOMPARE(run.journal,
                 (QStringList{u"00001 "_s + QString(kHostileName).replace(u'\n', u' '),
                              u"00002 Menthol"_s, u"00003 Caffeine"_s, u"00004 Vanillin"_s}));
        // A helper takes its program's name with it; the other programs are still served.
        const bool helperDied = QTest::currentDataTag() == "helper that dies"_ba;
        QCOMPARE(errorNumber([] { automation().GetObject(kExpedraClass); }), 0);
        // The adapter hears of the helper's end a moment after Spinlane's call failed.
        QTRY_COMPARE_WITH_TIMEOUT(
            errorNumber([] { automation().GetObject(kSampleChangerClass); }),
            helperDied ? RuntimeError::CannotCreateObject : 0, 10000);
        // Spinlane's links call the process, so its own name must go too, as with a dead program.
        QTRY_COMPARE(bus->isServiceRegistered(changerProcess).value(), !helperDied);
    }
};

QTEST_GUILESS_MAIN(TestAdapter)
#include "tst_adapter.moc"
