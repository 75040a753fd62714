#include "core/Conversions.h"
#include "core/RuntimeError.h"

#include <QLocale>
#include <QTest>

#include "support/ScriptedSeams.h"

using namespace Qt::StringLiterals;
using namespace spinlane;
using spinlane::testing::errorNumber;

class TestConversions : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void leadingNumber()
    {
        // Blanks anywhere; signs, exponents, and hex and octal, "&HFFFF" with the 16-bit sign.
        const QStringList in{u" 1 2\t3\n4"_s, u"12ab34"_s, u"abc"_s,    u"--5"_s,     u"- 5"_s,
                             u"-2.5"_s,       u".5"_s,     u"1e3"_s,    u"5E-1"_s,    u"3e"_s,
                             u"7\u00b58"_s,   u"&H1F"_s,   u"&HFFFF"_s, u"&H10000"_s, u"&h1g"_s,
                             u"&O17"_s,       u"&5"_s};
        const double out[] = {1234, 12, 0,  0,  -5,    -2.5, 0.5, 1000, 0.5,
                              3,    7,  31, -1, 65536, 1,    15,  0};
        QCOMPARE(std::size(out), size_t(in.size()));
        for (qsizetype i = 0; i < in.size(); ++i)
            QCOMPARE(spinlane::leadingNumber(in[i]), out[i]);
        QCOMPARE(spinlane::leadingNumber(u"12"_s + QChar(0) + u"34"_s), 12.0);
        QCOMPARE(errorNumber([] { spinlane::leadingNumber(u"1e400"_s); }), RuntimeError::Overflow);
        QCOMPARE(errorNumber([] { spinlane::leadingNumber(u"&H100000000"_s); }),
                 RuntimeError::Overflow);
    }

    void integerRounding()
    {
        // Halves go to the even neighbour; the range ends, and the first values past them.
        const double in16[] = {0.5, 1.5, 2.5, -0.5, -1.5, -2.5, 2.4999, 2.5001, 32767.0, -32768.5};
        const qint16 out16[] = {0, 2, 2, 0, -2, -2, 2, 3, 32767, -32768};
        for (size_t i = 0; i < std::size(in16); ++i)
            QCOMPARE(toInt16(in16[i]), out16[i]);
        const double in32[] = {1234567.5, 1234568.5, 2147483647.0, -2147483648.0};
        const qint32 out32[] = {1234568, 1234568, 2147483647, -2147483647 - 1};
        for (size_t i = 0; i < std::size(in32); ++i)
            QCOMPARE(toInt32(in32[i]), out32[i]);
        for (double value : {32767.5, -32769.0})
            QCOMPARE(errorNumber([=] { toInt16(value); }), RuntimeError::Overflow);
        for (double value : {2147483647.5, -2147483649.0, std::numeric_limits<double>::quiet_NaN()})
            QCOMPARE(errorNumber([=] { toInt32(value); }), RuntimeError::Overflow);
    }

    void booleans()
    {
        for (const auto& [text, expected] : {std::pair{u"True"_s, true},
                                             {u"false"_s, false},
                                             {u" True "_s, true},
                                             {u"0"_s, false},
                                             {u"-1"_s, true},
                                             {u"0.25"_s, true},
                                             {u"&H0"_s, false}})
            QCOMPARE(spinlane::toBoolean(text), expected);
        for (const QString& text : {u"maybe"_s, u""_s, u"Yes"_s, u"1 2"_s, u"12abc"_s, u"Truex"_s,
                                    u"-"_s, u"1\u00b5"_s}) {
            QCOMPARE(errorNumber([&] { spinlane::toBoolean(text); }), RuntimeError::TypeMismatch);
        }
        QCOMPARE(booleanText(true), u"True"_s);
        QCOMPARE(booleanText(false), u"False"_s);
    }

    void formats()
    {
        // The queue number rounds halves away from zero, the one decimal a half as written.
        const double numbers[] = {1, 42, 999, 1000, 0, -5, 2.5, 6.4};
        const QStringList numberTexts = u"001 042 999 1000 000 -005 003 006"_s.split(u' ');
        for (size_t i = 0; i < std::size(numbers); ++i)
            QCOMPARE(formatQueueNumber(numbers[i]), numberTexts.at(qsizetype(i)));
        const double decimals[] = {0, 7, 0.04, 0.05, 0.15, 19.96, 1234.56, -3.25, -0.01};
        const QStringList decimalTexts = u"0.0 7.0 0.0 0.1 0.2 20.0 1234.6 -3.3 0.0"_s.split(u' ');
        for (size_t i = 0; i < std::size(decimals); ++i)
            QCOMPARE(formatOneDecimal(decimals[i]), decimalTexts.at(qsizetype(i)));
        QCOMPARE(singleText(2000.0f), u"2000"_s);
        QCOMPARE(singleText(1234.5f), u"1234.5"_s);
        QCOMPARE(singleText(-15.0f), u"-15"_s);
        QCOMPARE(trimSpaces(u"  a b \t "_s), u"a b \t"_s);
        QCOMPARE(trimSpaces(u"   "_s), QString());
    }

    void dates()
    {
        QCOMPARE(dateSerial(QDate(1899, 12, 30)), 0);
        QCOMPARE(dateSerial(QDate(1900, 1, 1)), 2);
        QCOMPARE(dateSerial(QDate(2026, 11, 22)), 46348);
        QCOMPARE(dateSerial(QDateTime(QDate(2026, 11, 22), QTime(18, 0))), 46348.75);
        // Before the origin the fraction still counts forward from the whole day.
        QCOMPARE(dateSerial(QDateTime(QDate(1899, 12, 29), QTime(6, 0))), -1.25);

        const QLocale previous;
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        QCOMPARE(spinlane::generalDate(QDateTime(QDate(2026, 11, 22), QTime(14, 5, 9))),
                 u"11/22/2026 2:05:09 PM"_s);
        QCOMPARE(spinlane::generalDate(QDateTime(QDate(2026, 11, 22), QTime(0, 0))),
                 u"11/22/2026"_s);
        QCOMPARE(spinlane::generalDate(QDateTime(QDate(1899, 12, 30), QTime(8, 0, 1))),
                 u"8:00:01 AM"_s);
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        QCOMPARE(spinlane::generalDate(QDateTime(QDate(2026, 3, 4), QTime(9, 7, 0))),
                 u"04.03.2026 09:07:00"_s);
        QLocale::setDefault(previous);

        // ISO 8601 with the offset, whatever kind of time, read back as the same moment.
        const QDate day(2026, 11, 25);
        const QDateTime times[] = {
            QDateTime(day, QTime(10, 15, 2), Qt::UTC),
            QDateTime(day, QTime(10, 15, 2), Qt::OffsetFromUTC, -5 * 3600 - 1800),
            QDateTime(day, QTime(23, 59, 59, 999), Qt::OffsetFromUTC, 3600),
            QDateTime(day, QTime(7, 0))};
        QCOMPARE(isoDateTimeWithOffset(times[0]), u"2026-11-25T10:15:02+00:00"_s);
        QCOMPARE(isoDateTimeWithOffset(times[1]), u"2026-11-25T10:15:02-05:30"_s);
        QCOMPARE(isoDateTimeWithOffset(times[2]), u"2026-11-25T23:59:59+01:00"_s);
        for (const QDateTime& time : times)
            QCOMPARE(QDateTime::fromString(isoDateTimeWithOffset(time), Qt::ISODate),
                     time.addMSecs(-time.time().msec()));
        QCOMPARE(isoDateTimeWithOffset({}), QString());
    }

    // The one rule for shown times: to the nearest minute, the locale's 12 or 24 hours, the date
    // when it is not today.
    void clockTime_data()
    {
        QTest::addColumn<QTime>("time");
        QTest::addColumn<int>("daysAhead");
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<QString>("shown");
        const QLocale c = QLocale::c();
        const QLocale us(QLocale::English, QLocale::UnitedStates);
        const QLocale de(QLocale::German, QLocale::Germany);
        QTest::newRow("seconds round up") << QTime(21, 59, 54) << 0 << c << u"22:00"_s;
        QTest::newRow("half a minute up") << QTime(21, 59, 30) << 0 << c << u"22:00"_s;
        QTest::newRow("under half down") << QTime(21, 59, 29, 999) << 0 << c << u"21:59"_s;
        QTest::newRow("12-hour locale") << QTime(21, 59, 54) << 0 << us << u"10:00 PM"_s;
        QTest::newRow("24-hour locale") << QTime(9, 4, 10) << 0 << de << u"09:04"_s;
        QTest::newRow("other day") << QTime(8, 0) << 1 << c << u"2026-11-26 08:00"_s;
        QTest::newRow("rounds into tomorrow")
            << QTime(23, 59, 40) << 0 << c << u"2026-11-26 00:00"_s;
    }
    void clockTime()
    {
        QFETCH(QTime, time);
        QFETCH(int, daysAhead);
        QFETCH(QLocale, locale);
        const QDate today(2026, 11, 25);
        QTEST(spinlane::clockTime(QDateTime(today.addDays(daysAhead), time), locale, today),
              "shown");
        QCOMPARE(spinlane::clockTime({}, locale, today), QString());
    }
};

QTEST_GUILESS_MAIN(TestConversions)
#include "tst_conversions.moc"
