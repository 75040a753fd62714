#include "core/RuntimeError.h"
#include "core/SystemSeams.h"
#include "core/wait_in_seconds.h"
#include "support/ScriptedSeams.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <ctime>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

class TestUtilities : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void waitEndsWhenTheClockReachesItsEnd()
    {
        ScriptedSeams seams;
        seams.time.setNow(QDateTime(QDate(2026, 12, 31), QTime(23, 59, 58)));
        bool handled = false;
        seams.time.afterMs(2000, [&] { handled = true; }); // an event during the wait
        wait_in_seconds(5);
        QCOMPARE(seams.time.now(), QDateTime(QDate(2027, 1, 1), QTime(0, 0, 3)));
        QVERIFY(handled);
        // Each step of the wait is bounded, so Stop is noticed in good time.
        QCOMPARE(seams.time.waits, 5000 / kEventWaitMs);

        for (qint16 seconds : {qint16(0), qint16(-3)}) {
            seams.time.waits = 0;
            wait_in_seconds(seconds);
            QCOMPARE(seams.time.waits, 0);
        }
    }

    void realWaitHandlesEventsWithoutBurningAProcessor()
    {
        // The real clock reads whole seconds: a one-second wait ends at the next second. Started
        // just after a second begins, the wait lasts long enough for the timer to fire.
        const QTime begun = QTime::currentTime();
        while (QTime::currentTime().second() == begun.second())
            QThread::msleep(1);
        bool timerFired = false;
        QTimer::singleShot(50, this, [&] { timerFired = true; });
        const std::clock_t cpuStart = std::clock();
        QElapsedTimer wall;
        wall.start();
        wait_in_seconds(1);
        const double cpuSeconds = double(std::clock() - cpuStart) / CLOCKS_PER_SEC;
        QVERIFY(timerFired);
        QVERIFY2(wall.elapsed() <= 1100, qPrintable(QString::number(wall.elapsed())));
        QVERIFY2(cpuSeconds < 0.25, qPrintable(QString::number(cpuSeconds)));
    }

    void settingsStoreKeepsValuesWhereTold()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"store.ini"_s);
        {
            QSettingsStore store(path);
            QCOMPARE(store.value(u"Spinlane"_s, u"Position"_s, u"FormTop"_s, u"2000"_s), u"2000"_s);
            store.setValue(u"Spinlane"_s, u"Path"_s, u"Spinlane.INI"_s,
                           u"/korvo/config/Spinlane.INI"_s);
            store.setValue(u"Spinlane"_s, u"Position"_s, u"FormTop"_s, u"1500"_s);
        }
        QSettingsStore reopened(path);
        QCOMPARE(reopened.value(u"Spinlane"_s, u"Path"_s, u"Spinlane.INI"_s, u"0"_s),
                 u"/korvo/config/Spinlane.INI"_s);
        QCOMPARE(reopened.value(u"Spinlane"_s, u"Position"_s, u"FormTop"_s, {}), u"1500"_s);
        QCOMPARE(reopened.value(u"Other"_s, u"Position"_s, u"FormTop"_s, u"none"_s), u"none"_s);
    }

    void runtimeErrorsAreReportedAndEndTheProgram()
    {
        ScriptedSeams seams;
        bool after = false;
        guarded([&] {
            throw RuntimeError(RuntimeError::TypeMismatch);
            after = true;
        });
        QVERIFY(!after); // its box is the settings test's
        QCOMPARE(seams.programEnd.ends, 1);
        QCOMPARE(seams.programEnd.lastStatus, 1); // scripts and service managers see the failure

        // An end requested by the handler itself stops it quietly.
        guarded([&] {
            EndProgram();
            after = true;
        });
        QVERIFY(!after);
        QCOMPARE(seams.programEnd.ends, 2);
        QCOMPARE(seams.programEnd.lastStatus, 0);
        QCOMPARE(seams.messageBoxes.shown.size(), 1);
    }
};

QTEST_MAIN(TestUtilities)
#include "tst_utilities.moc"
