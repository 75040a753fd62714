#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include "support/SettingsFiles.h"

#include <sys/resource.h>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace spinlane::testing;

namespace {

struct Result {
    int exitCode = -1;
    QString out;
    QString err;
};

// `fileSizeLimit`: the tool's writes fail beyond that many bytes, as on a full disk.
Result run(const QStringList& arguments, rlim_t fileSizeLimit = RLIM_INFINITY)
{
    QProcess tool;
    tool.setChildProcessModifier([fileSizeLimit] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{fileSizeLimit, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    });
    tool.start(QStringLiteral(SPINLANE_INI), arguments);
    if (!tool.waitForFinished(10000))
        return {};
    return {tool.exitCode(), QString::fromUtf8(tool.readAllStandardOutput()),
            QString::fromUtf8(tool.readAllStandardError())};
}

const QByteArray kFile = "; kept by hand\r\n[General]\r\nTotal Queue Items=2\r\n"
                         "Password = \"  s3cret \"\r\n\r\n"
                         "[Item 1]\r\nItem S/N=46348\r\nSample Num=12\r\nSample Name=Menthol\r\n"
                         "Exp Title Index=3\r\nUser ID=ann\r\nStatus=Done\r\n"
                         "[Item 2]\r\nSample Name=Caffeine in D2O\r\nStatus=Idle\r\n";

} // namespace

class TestSpinlaneIni : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_path;

private Q_SLOTS:
    void init()
    {
        m_path = m_dir.filePath(u"Spinlane.INI"_s);
        writeFile(m_path, kFile);
    }

    void getAndQueueReadAsTheProgramDoes()
    {
        QCOMPARE(run({u"get"_s, m_path, u"general"_s, u"PASSWORD"_s}).out, u"s3cret\n"_s);
        QCOMPARE(run({u"get"_s, m_path, u"Item 2"_s, u"Status"_s}).out, u"Idle\n"_s);
        QCOMPARE(run({u"get"_s, m_path, u"Item 2"_s, u"User ID"_s, u"nobody"_s}).out,
                 u"nobody\n"_s);
        QCOMPARE(run({u"get"_s, m_path, u"Item 2"_s, u"User ID"_s, u"\" no one \""_s}).out,
                 u"no one\n"_s);
        const Result missing = run({u"get"_s, m_path, u"Item 9"_s, u"Status"_s});
        QCOMPARE(missing.exitCode, 0);
        QCOMPARE(missing.out, u"\n"_s);

        const Result result = run({u"queue"_s, m_path});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out,
                 u"No.  Item S/N  Sample Pos.  Sample Name      Exp. Index  User ID  Status\n"
                 u"001  46348     12           Menthol          3           ann      Done\n"
                 u"002  00000     0            Caffeine in D2O  0                    Idle\n"_s);
    }

    void setAndClearChangeOnlyWhatTheyName()
    {
        QCOMPARE(run({u"set"_s, m_path, u"Item 2"_s, u"status"_s, u"Done"_s}).exitCode, 0);
        QCOMPARE(
            run({u"set"_s, m_path, u"Item 3"_s, u"Status"_s, u"Idle\r\nInjected=1"_s}).exitCode, 0);
        QByteArray expected = kFile;
        expected.replace("Caffeine in D2O\r\nStatus=Idle", "Caffeine in D2O\r\nStatus=Done");
        expected += "[Item 3]\r\nStatus=Idle  Injected=1\r\n";
        QCOMPARE(readFile(m_path), expected);

        QCOMPARE(run({u"clear"_s, m_path, u"item 1"_s}).exitCode, 0);
        expected.replace(expected.indexOf("Item S/N"),
                         expected.indexOf("[Item 2]") - expected.indexOf("Item S/N"), "");
        QCOMPARE(readFile(m_path), expected);
    }

    void optionsAndMistakes()
    {
        const Result version = run({u"--version"_s});
        QCOMPARE(version.exitCode, 0);
        QCOMPARE(version.out, u"spinlane-ini " SPINLANE_VERSION "\n"_s);
        const Result help = run({u"-h"_s, u"queue"_s});
        QCOMPARE(help.exitCode, 0);
        QVERIFY(help.out.startsWith(u"usage: spinlane-ini get FILE SECTION KEY [DEFAULT]"_s));
        // Behind the command they are values like any other; an unknown option is a mistake.
        QCOMPARE(run({u"set"_s, m_path, u"General"_s, u"Password"_s, u"--help"_s}).exitCode, 0);
        QCOMPARE(run({u"get"_s, m_path, u"General"_s, u"Password"_s}).out, u"--help\n"_s);
        QCOMPARE(run({u"--frobnicate"_s, u"--version"_s}).exitCode, 2);

        const Result usage = run({u"get"_s, m_path});
        QCOMPARE(usage.exitCode, 2);
        QVERIFY(usage.err.startsWith(u"usage: spinlane-ini get FILE SECTION KEY [DEFAULT]"_s));
        QCOMPARE(run({u"frobnicate"_s, m_path}).exitCode, 2);

        const QString nowhere = m_dir.filePath(u"missing.INI"_s);
        const Result missing = run({u"set"_s, nowhere, u"General"_s, u"Password"_s, u"x"_s});
        QCOMPARE(missing.exitCode, 1);
        QCOMPARE(missing.err, u"spinlane-ini: "_s + nowhere + u": no such file\n"_s);
        QVERIFY(!QFile::exists(nowhere));

        QCOMPARE(run({u"set"_s, m_path, u"Item 1"_s, u"Sample Num"_s, u"99999999999"_s}).exitCode,
                 0);
        const Result overflow = run({u"queue"_s, m_path});
        QCOMPARE(overflow.exitCode, 1);
        QCOMPARE(overflow.err, u"spinlane-ini: Run-time error '6': Overflow\n"_s);

        // A write that stops part way, as on a full disk, leaves the file and no temporary one.
        const QByteArray before = readFile(m_path);
        const Result full =
            run({u"set"_s, m_path, u"Item 2"_s, u"Sample Des"_s, QString(600, u'x')}, 450);
        QCOMPARE(full.err, u"spinlane-ini: cannot write "_s + m_path + u": File too large\n"_s);
        QCOMPARE(full.exitCode, 1);
        QCOMPARE(readFile(m_path), before);
        QCOMPARE(QDir(m_dir.path()).entryList(QDir::Files), QStringList{u"Spinlane.INI"_s});
    }
};

QTEST_GUILESS_MAIN(TestSpinlaneIni)
#include "tst_spinlaneini.moc"
