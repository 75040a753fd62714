#include "app/Conversions.h"
#include "app/RuntimeError.h"

#include <QLocale>
#include <QTest>

#include "support/ScriptedSeams.h"

using namespace Qt::StringLiterals;
using namespace spinlane;
using spinlane::testing::errorNumber;

class TestConversions : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void leadingNumber_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("expected");
        QTest::newRow("plain") << u"42"_s << 42.0;
        QTest::newRow("blanks anywhere") << u" 1 2\t3\n4"_s << 1234.0;
        QTest::newRow("stops at letter") << u"12ab34"_s << 12.0;
        QTest::newRow("no number") << u"abc"_s << 0.0;
        QTest::newRow("two signs") << u"--5"_s << 0.0;
        QTest::newRow("negative with blank") << u"- 5"_s << -5.0;
        QTest::newRow("fraction") << u"-2.5"_s << -2.5;
        QTest::newRow("leading point") << u".5"_s << 0.5;
        QTest::newRow("exponent") << u"1e3"_s << 1000.0;
        QTest::newRow("negative exponent") << u"5E-1"_s << 0.5;
        QTest::newRow("exponent without digits") << u"3e"_s << 3.0;
        QTest::newRow("NUL ends") << QString(u"12"_s + QChar(0) + u"34"_s) << 12.0;
        QTest::newRow("non-ASCII ends") << u"7\u00b58"_s << 7.0;
        QTest::newRow("hex") << u"&H1F"_s << 31.0;
        QTest::newRow("hex 16-bit sign") << u"&HFFFF"_s << -1.0;
        QTest::newRow("hex 16-bit min") << u"&H8000"_s << -32768.0;
        QTest::newRow("hex 32-bit") << u"&H10000"_s << 65536.0;
        QTest::newRow("hex stops") << u"&h1g"_s << 1.0;
        QTest::newRow("octal") << u"&O17"_s << 15.0;
        QTest::newRow("ampersand alone") << u"&5"_s << 0.0;
    }
    void leadingNumber()
    {
        QFETCH(QString, text);
        QFETCH(double, expected);
        QCOMPARE(spinlane::leadingNumber(text), expected);
    }

    void leadingNumberOverflows()
    {
        QCOMPARE(errorNumber([] { spinlane::leadingNumber(u"1e400"_s); }), RuntimeError::Overflow);
        QCOMPARE(errorNumber([] { spinlane::leadingNumber(u"&H100000000"_s); }),
                 RuntimeError::Overflow);
    }

    void integerRounding()
    {
        // Halves go to the even neighbour.
        QCOMPARE(toInt16(0.5), qint16(0));
        QCOMPARE(toInt16(1.5), qint16(2));
        QCOMPARE(toInt16(2.5), qint16(2));
        QCOMPARE(toInt16(-0.5), qint16(0));
        QCOMPARE(toInt16(-1.5), qint16(-2));
        QCOMPARE(toInt16(-2.5), qint16(-2));
        QCOMPARE(toInt16(2.4999), qint16(2));
        QCOMPARE(toInt16(2.5001), qint16(3));
        QCOMPARE(toInt32(1234567.5), qint32(1234568));
        QCOMPARE(toInt32(1234568.5), qint32(1234568));

        // The range ends, and the first values past them.
        QCOMPARE(toInt16(32767.0), qint16(32767));
        QCOMPARE(toInt16(-32768.5), qint16(-32768));
        QCOMPARE(errorNumber([] { toInt16(32767.5); }), RuntimeError::Overflow);
        QCOMPARE(errorNumber([] { toInt16(-32769.0); }), RuntimeError::Overflow);
        QCOMPARE(toInt32(2147483647.0), qint32(2147483647));
        QCOMPARE(toInt32(-2147483648.0), qint32(-2147483647 - 1));
        QCOMPARE(errorNumber([] { toInt32(2147483647.5); }), RuntimeError::Overflow);
        QCOMPARE(errorNumber([] { toInt32(-2147483649.0); }), RuntimeError::Overflow);
        QCOMPARE(errorNumber([] { toInt32(std::numeric_limits<double>::quiet_NaN()); }),
                 RuntimeError::Overflow);
    }

    void toBoolean_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("expected");
        QTest::newRow("True") << u"True"_s << true;
        QTest::newRow("false in small letters") << u"false"_s << false;
        QTest::newRow("blanks around") << u" True "_s << true;
        QTest::newRow("zero") << u"0"_s << false;
        QTest::newRow("minus one") << u"-1"_s << true;
        QTest::newRow("fraction") << u"0.25"_s << true;
        QTest::newRow("hex zero") << u"&H0"_s << false;
    }
    void toBoolean()
    {
        QFETCH(QString, text);
        QFETCH(bool, expected);
        QCOMPARE(spinlane::toBoolean(text), expected);
    }

    void toBooleanRejectsOtherTexts()
    {
        for (const QString& text : {u"maybe"_s, u""_s, u"Yes"_s, u"1 2"_s, u"12abc"_s, u"Truex"_s,
                                    u"-"_s, u"1\u00b5"_s}) {
            QCOMPARE(errorNumber([&] { spinlane::toBoolean(text); }), RuntimeError::TypeMismatch);
        }
        QCOMPARE(booleanText(true), u"True"_s);
        QCOMPARE(booleanText(false), u"False"_s);
    }

    void formats()
    {
        QCOMPARE(formatQueueNumber(1), u"001"_s);
        QCOMPARE(formatQueueNumber(42), u"042"_s);
        QCOMPARE(formatQueueNumber(999), u"999"_s);
        QCOMPARE(formatQueueNumber(1000), u"1000"_s);
        QCOMPARE(formatQueueNumber(0), u"000"_s);
        QCOMPARE(formatQueueNumber(-5), u"-005"_s);
        QCOMPARE(formatQueueNumber(2.5), u"003"_s); // the format rounds halves away from zero
        QCOMPARE(formatQueueNumber(6.4), u"006"_s);

        QCOMPARE(formatOneDecimal(0), u"0.0"_s);
        QCOMPARE(formatOneDecimal(7), u"7.0"_s);
        QCOMPARE(formatOneDecimal(0.04), u"0.0"_s);
        QCOMPARE(formatOneDecimal(0.05), u"0.1"_s);
        QCOMPARE(formatOneDecimal(0.15), u"0.2"_s); // a half as written, not as stored in binary
        QCOMPARE(formatOneDecimal(19.96), u"20.0"_s);
        QCOMPARE(formatOneDecimal(1234.56), u"1234.6"_s);
        QCOMPARE(formatOneDecimal(-3.25), u"-3.3"_s);
        QCOMPARE(formatOneDecimal(-0.01), u"0.0"_s);

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
    }

    void generalDate()
    {
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
    }
};

QTEST_GUILESS_MAIN(TestConversions)
#include "tst_conversions.moc"
