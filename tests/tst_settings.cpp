#include "core/Conversions.h"
#include "core/RuntimeError.h"
#include "core/Startup.h"
#include "queue/QueueStore.h"
#include "settings/Settings.h"
#include "support/QueueProbe.h"
#include "support/ScriptedSeams.h"
#include "support/SettingsFiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

const QString kLocateText = u"Please locate the 'Spinlane.ini' file."_s;
const QString kStorePath = u"Spinlane/Path/Spinlane.INI"_s;

// The version question at load (`overwrite` false) or at save.
QString versionQuestion(const QString& fileVersion, const QString& programVersion, bool overwrite)
{
    return u"Versions of initialization ("_s + fileVersion + u") and excutable ("_s + programVersion
           + u") files do not match each other.\r\n"_s
           + (overwrite
                  ? u"Overwrite the initialization file anyway? Click No to back up old ini file."_s
                  : u"Run the program anyway?"_s);
}

QByteArray itemSection(int n, const QByteArray& serial, int sample, const QByteArray& name,
                       const QByteArray& status)
{
    return "[Item " + QByteArray::number(n) + "]\r\nItem S/N=" + serial
           + "\r\nSample Num=" + QByteArray::number(sample) + "\r\nSample Name=" + name
           + "\r\nSample Des=\r\nSolvent=CDCl3\r\nExp Title Index=1\r\nUser ID=ann\r\n"
             "Organization=Chem\r\nOutput File Path=/korvo/Data/"
           + name + ".kvd\r\nStatus=" + status + "\r\n";
}

// The general settings as loaded, "|" between them: form top and left, on top, experiments only,
// password, sample control, layout, current item, item count, log file.
QString generalSettings()
{
    return QStringList{singleText(gFormTop),
                       singleText(gFormLeft),
                       booleanText(gAlwaysOnTop),
                       booleanText(gExpQueueOnly),
                       gAdminPassword,
                       QString::number(gSampleControl),
                       QString::number(gQueueLayout),
                       QString::number(gCurrentQueueNum),
                       QString::number(gTotalQueueItems),
                       gLogFile}
        .join(u'|');
}

void showRows(int count)
{
    gQueueList.clear();
    for (int i = 0; i < count; ++i)
        gQueueList.add();
}

} // namespace

class TestSettings : public QObject {
    Q_OBJECT

    QTemporaryDir m_root;
    QString m_iniPath;
    std::unique_ptr<ScriptedSeams> m_seams;

    ScriptedSeams& seams() { return *m_seams; }
    // Fresh seams, as at another start of the program; the old ones check their answers.
    void renewSeams()
    {
        m_seams.reset();
        m_seams = std::make_unique<ScriptedSeams>();
    }

    // A settings file at the default path that the store already remembers, with the program's
    // own version, so a load asks nothing.
    void useDefaultFile(const QByteArray& bytes)
    {
        writeFile(m_iniPath, bytes);
        seams().settingsStore.setValue(u"Spinlane"_s, u"Path"_s, u"Spinlane.INI"_s, m_iniPath);
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_root.isValid());
        resetStartupState();
        resetSettingsState();
        resetQueueState();
        gProgramDrive = m_root.path() + u'/';
        gExeVersion = u"2.0.5"_s;
        m_iniPath = defaultSettingsPath();
        QCOMPARE(m_iniPath, m_root.path() + u"/korvo/config/Spinlane.INI"_s);
        QDir(m_root.path()).removeRecursively();
        QDir().mkpath(m_root.path());
        renewSeams();
    }
    void cleanup() { m_seams.reset(); }

    void locatingTheFile()
    {
        // Cancelled, at the question or in the file dialog: the program ends.
        seams().messageBoxes.queueAnswer(MsgAnswer::Cancel);
        QVERIFY(endsProgram(LoadSettings));
        QCOMPARE(seams().programEnd.ends, 1);
        QVERIFY(seams().fileDialogs.opened.isEmpty());
        renewSeams();
        seams().messageBoxes.queueAnswer(MsgAnswer::Ok);
        seams().fileDialogs.queueChoice({});
        QVERIFY(endsProgram(LoadSettings));
        QCOMPARE(seams().programEnd.ends, 1);
        QVERIFY(!seams().settingsStore.values.contains(kStorePath));

        renewSeams();
        writeFile(m_iniPath, "[General]\r\nVersion Number=2.0.5\r\n");
        // Nothing remembered: the file must be confirmed once, even at the default path.
        seams().messageBoxes.queueAnswer(MsgAnswer::Ok);
        seams().fileDialogs.queueChoice(m_iniPath);
        LoadSettings();
        QCOMPARE(seams().messageBoxes.shown,
                 QList{box(kLocateText, MsgButtons::OkCancel, MsgIcon::Critical)});
        const FileDialogRequest expected{u"Locate the 'Spinlane.ini' file."_s,
                                         u"(*.ini)|*.ini|(*.*)|*.*"_s, 4096, m_iniPath};
        QCOMPARE(seams().fileDialogs.opened, QList{expected});
        QCOMPARE(seams().settingsStore.values.value(kStorePath), m_iniPath);

        // Remembered now, in another case: no question at the next start.
        seams().settingsStore.values[kStorePath] = m_iniPath.toUpper();
        LoadSettings();
        QCOMPARE(seams().messageBoxes.shown.size(), 1);
        QCOMPARE(gIniPath, m_iniPath);
        // A file kept elsewhere is used, but the question comes back at every start.
        const QString elsewhere = m_root.path() + u"/elsewhere/Spinlane.INI"_s;
        writeFile(elsewhere, "[General]\r\nVersion Number=2.0.5\r\nSample Control=2\r\n");
        renewSeams();
        for (int start = 0; start < 2; ++start) {
            seams().messageBoxes.queueAnswer(MsgAnswer::Ok);
            seams().fileDialogs.queueChoice(elsewhere);
            LoadSettings();
            QCOMPARE(gIniPath, elsewhere);
            QCOMPARE(gSampleControl, qint16(2));
        }
        QCOMPARE(seams().messageBoxes.shown.size(), 2);
        QCOMPARE(seams().settingsStore.values.value(kStorePath), elsewhere);
        // Each dialog opens at the file remembered when it was shown, else at the default one.
        QCOMPARE(seams().fileDialogs.opened.size(), 2);
        QCOMPARE(seams().fileDialogs.opened[0].fileName, m_iniPath); // nothing remembered
        QCOMPARE(seams().fileDialogs.opened[1].fileName, elsewhere);
    }

    void versionQuestionAtLoad()
    {
        const QByteArray bytes = "[General]\r\nVersion Number=2.0.4\r\nSample Control=2\r\n";
        useDefaultFile(bytes);
        seams().messageBoxes.queueAnswer(MsgAnswer::No);
        QVERIFY(endsProgram(LoadSettings));
        QCOMPARE(seams().messageBoxes.shown,
                 QList{box(versionQuestion(u"2.0.4"_s, u"2.0.5"_s, false), MsgButtons::YesNo,
                           MsgIcon::Question)});
        QCOMPARE(gSampleControl, qint16(0)); // ended before reading the settings
        renewSeams();
        useDefaultFile(bytes);
        seams().messageBoxes.queueAnswer(MsgAnswer::Yes);
        LoadSettings();
        QCOMPARE(gIniVersion, u"2.0.4"_s);
        QCOMPARE(gSampleControl, qint16(2));
        // A new file has no version and asks once; a version in other capitals asks nothing.
        renewSeams();
        useDefaultFile("");
        seams().messageBoxes.queueAnswer(MsgAnswer::Yes);
        LoadSettings();
        QCOMPARE(seams().messageBoxes.shown.first().text, versionQuestion({}, u"2.0.5"_s, false));
        gExeVersion = u"2.0.5-RC"_s;
        useDefaultFile("[General]\r\nVersion Number=2.0.5-rc\r\n");
        LoadSettings();
        QCOMPARE(seams().messageBoxes.shown.size(), 1);
    }

    void defaultsWhenTheFileHasNoGeneralSection()
    {
        useDefaultFile("[Other]\r\nVersion Number=2.0.5\r\nAlwaysOnTop=False\r\n");
        seams().messageBoxes.queueAnswer(MsgAnswer::Yes);
        gQueue.redim(3);
        LoadSettings();
        QCOMPARE(generalSettings(), u"2000|2500|True|False||1|1|0|1|"_s);
        QCOMPARE(gQueue.upperBound(), 1);
        QCOMPARE(recordOf(1), u"00000|0||||0||||"_s);
    }

    void readingRules()
    {
        seams().settingsStore.setValue(u"Spinlane"_s, u"Position"_s, u"FormTop"_s,
                                       u"1234.5twips"_s);
        seams().settingsStore.setValue(u"Spinlane"_s, u"Position"_s, u"FormLeft"_s, u"left"_s);
        const QByteArray longName(300, 'x');
        useDefaultFile("[general]\r\nversion number = 2.0.5\r\nAlwaysOnTop=false\r\n"
                       "ExpQueueOnly=-1\r\nPassword=\"  Secret \"\r\nSample Control=3\r\n"
                       "Queue Layout=2.5\r\nCurrent Queue Num= 1 2abc\r\n"
                       "Total Queue Items=2\r\nLogFile=  /var/log/run.log  \r\n"
                       "[Item 1]\r\nSample Name="
                       + longName
                       + "\r\nSample Num=&H10\r\n"
                         "Exp Title Index=3.5\r\nStatus='Done'\r\n"
                         "[Item 2]\r\nItem S/N=\r\nSample Num=-7\r\nUser ID\r\n");
        LoadSettings();
        // Layout: halves go to the even neighbour.
        QCOMPARE(generalSettings(), u"1234.5|0|False|True|Secret|3|2|12|2|/var/log/run.log"_s);
        QCOMPARE(gQueue.upperBound(), 2);
        QCOMPARE(recordOf(1), u"00000|16|"_s + QString(254, u'x') + u"|||4||||Done"_s);
        // A serial present but empty has no default; a key without "=" reads as missing.
        QCOMPARE(recordOf(2), u"|-7||||0||||"_s);
    }

    void emptyCountLeavesTheQueue()
    {
        for (const char* count : {"0", "-4"}) {
            useDefaultFile("[General]\r\nVersion Number=2.0.5\r\nTotal Queue Items="
                           + QByteArray(count) + "\r\n[Item 1]\r\nSample Name=from file\r\n");
            gQueue.redim(2);
            gQueue(2).SampleName = u"kept"_s;
            LoadSettings();
            QCOMPARE(gQueue.upperBound(), 2);
            QCOMPARE(gQueue(1).SampleName, QString());
            QCOMPARE(gQueue(2).SampleName, u"kept"_s);
        }
    }

    void rejectedValuesEndTheProgramUnsaved_data()
    {
        QTest::addColumn<QByteArray>("general");
        QTest::addColumn<QByteArray>("item");
        QTest::addColumn<QString>("message");
        QTest::newRow("not a boolean") << QByteArray("AlwaysOnTop=maybe") << QByteArray()
                                       << u"Run-time error '13':\r\n\r\nType mismatch"_s;
        QTest::newRow("16-bit overflow") << QByteArray("Sample Control=32768") << QByteArray()
                                         << u"Run-time error '6':\r\n\r\nOverflow"_s;
        QTest::newRow("item sample overflow") << QByteArray() << QByteArray("Sample Num=2147483648")
                                              << u"Run-time error '6':\r\n\r\nOverflow"_s;
        QTest::newRow("absurd item count")
            << QByteArray("Total Queue Items=2000000000") << QByteArray()
            << u"Run-time error '7':\r\n\r\nOut of memory"_s;
    }
    void rejectedValuesEndTheProgramUnsaved()
    {
        QFETCH(QByteArray, general);
        QFETCH(QByteArray, item);
        QFETCH(QString, message);
        const QByteArray bytes =
            "[General]\r\nVersion Number=2.0.5\r\n" + general + "\r\n[Item 1]\r\n" + item + "\r\n";
        useDefaultFile(bytes);
        guarded(LoadSettings);
        QCOMPARE(seams().programEnd.ends, 1);
        QCOMPARE(seams().messageBoxes.shown.size(), 1);
        QCOMPARE(seams().messageBoxes.shown.first(),
                 box(message, MsgButtons::Ok, MsgIcon::Critical));
        QCOMPARE(readFile(m_iniPath), bytes);
    }

    void saveWritesEverySettingInOrder()
    {
        QDir().mkpath(QFileInfo(m_iniPath).path());
        gIniPath = m_iniPath; // no file yet: the save creates it
        gIniVersion = gExeVersion;
        gAlwaysOnTop = true;
        gSampleControl = 2;
        gQueueLayout = 1;
        gCurrentQueueNum = 1;
        gAdminPassword = u"never written"_s;
        gLogFile = u"/korvo/config/Spinlane.log"_s;
        gQueue.redim(2);
        gQueue(1) = {
            u"00001"_s, 5, u"A"_s, {}, u"CDCl3"_s, 1, u"ann"_s, u"Chem"_s, u"/korvo/Data/A.kvd"_s,
            u"Done"_s};
        gQueue(2) = {
            u"00002"_s, 6, u"B"_s, {}, u"CDCl3"_s, 1, u"ann"_s, u"Chem"_s, u"/korvo/Data/B.kvd"_s,
            u"Idle"_s};
        showRows(2);
        SaveSettings(WindowPosition{1500, 3000});
        QCOMPARE(readFile(m_iniPath),
                 "[General]\r\nVersion Number=2.0.5\r\nAlwaysOnTop=True\r\nExpQueueOnly=False\r\n"
                 "Sample Control=2\r\nQueue Layout=1\r\nCurrent Queue Num=1\r\n"
                 "Total Queue Items=2\r\nLogFile=/korvo/config/Spinlane.log\r\n"
                     + itemSection(1, "00001", 5, "A", "Done")
                     + itemSection(2, "00002", 6, "B", "Idle"));
        QCOMPARE(seams().settingsStore.values.value(u"Spinlane/Position/FormTop"_s), u"1500"_s);
        QCOMPARE(seams().settingsStore.values.value(u"Spinlane/Position/FormLeft"_s), u"3000"_s);

        // A minimized or maximized window leaves the stored position alone.
        seams().settingsStore.values.clear();
        SaveSettings(std::nullopt);
        QVERIFY(seams().settingsStore.values.isEmpty());
        QCOMPARE(gFormTop, 1500.0f);
    }

    void roundTripKeepsTheFileAsItWas()
    {
        const QByteArray bytes =
            "; Spinlane settings, kept by the lab\r\n\r\n[General]\r\nVersion Number=2.0.5\r\n"
            "AlwaysOnTop = True\r\nExpQueueOnly=False\r\nPassword=secret\r\nSample Control=2\r\n"
            "Queue Layout=1\r\nCurrent Queue Num=0\r\nTotal Queue Items=2\r\nLogFile=\r\n\r\n"
            "[Lab Notes]\r\nmagnet=600 MHz\r\n\r\n"
            + itemSection(1, "00001", 5, "A", "Idle") + "\r\n"
            + itemSection(2, "00002", 6, "B", "Idle");
        useDefaultFile(bytes);
        LoadSettings();
        showRows(gTotalQueueItems);
        SaveSettings(std::nullopt);
        QCOMPARE(readFile(m_iniPath), bytes);

        // Only the changed line differs; an edit made by hand meanwhile survives the save.
        writeFile(m_iniPath, QByteArray(bytes).replace("Password=secret", "Password=changed"));
        gQueue(2).Status = u"Done"_s;
        SaveSettings(std::nullopt);
        QByteArray expected = bytes;
        expected.replace("Password=secret", "Password=changed");
        expected.replace(expected.lastIndexOf("Status=Idle"), 11, "Status=Done");
        QCOMPARE(readFile(m_iniPath), expected);

        // Fewer rows: the count follows them, the stale item's section stays.
        showRows(1);
        SaveSettings(std::nullopt);
        const QByteArray saved = readFile(m_iniPath);
        QVERIFY(saved.contains("Total Queue Items=1\r\n"));
        QVERIFY(saved.endsWith(itemSection(2, "00002", 6, "B", "Done")));
        QCOMPARE(gTotalQueueItems, 1);
        // More rows than records: the save stops before writing anything.
        showRows(3);
        guarded([] { SaveSettings(std::nullopt); });
        QCOMPARE(seams().messageBoxes.shown.last().text,
                 u"Run-time error '9':\r\n\r\nSubscript out of range"_s);
        QCOMPARE(readFile(m_iniPath), saved);
    }

    void versionQuestionAtSave()
    {
        const QByteArray old = "[General]\r\nVersion Number=2.0.4\r\n";
        const QString backup = m_root.path() + u"/korvo/config/Spinlane_2.0.4.INI"_s;
        writeFile(m_iniPath, old);
        writeFile(backup, "an older back-up");
        gIniPath = m_iniPath;
        gIniVersion = u"2.0.4"_s;
        seams().messageBoxes.queueAnswer(MsgAnswer::No);
        SaveSettings(std::nullopt);
        QCOMPARE(seams().messageBoxes.shown,
                 QList{box(versionQuestion(u"2.0.4"_s, u"2.0.5"_s, true), MsgButtons::YesNo,
                           MsgIcon::Question)});
        QCOMPARE(readFile(backup), old);
        QVERIFY(readFile(m_iniPath).startsWith("[General]\r\nVersion Number=2.0.5\r\n"));
        renewSeams();
        QFile::remove(backup);
        writeFile(m_iniPath, old);
        seams().messageBoxes.queueAnswer(MsgAnswer::Yes);
        SaveSettings(std::nullopt);
        QVERIFY(!QFile::exists(backup));
        QVERIFY(readFile(m_iniPath).contains("Version Number=2.0.5"));
        // A back-up that fails part way (a full disk) is a run-time error; the earlier back-up and
        // the file keep their bytes.
        renewSeams();
        writeFile(m_iniPath, old);
        writeFile(backup, "an older back-up");
        seams().messageBoxes.queueAnswer(MsgAnswer::No);
        {
            const FileSizeLimit diskFull(8);
            guarded([] { SaveSettings(std::nullopt); });
        }
        QCOMPARE(readFile(backup), QByteArray("an older back-up"));
        QCOMPARE(seams().messageBoxes.shown.last(),
                 box(u"Run-time error '75':\r\n\r\nPath/File access error"_s, MsgButtons::Ok,
                     MsgIcon::Critical));
        QCOMPARE(seams().programEnd.ends, 1);
        QCOMPARE(readFile(m_iniPath), old);
    }
};

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"
