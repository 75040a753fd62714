#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>
#include <QStringView>

// The classic conversion rules the settings file, the queue and the run log rely on. Every rule
// lives here once; a value a rule rejects raises the matching RuntimeError.
namespace spinlane {

// The leading number of a text: blanks, tabs and line feeds anywhere are skipped, then an
// optional sign, digits, a decimal point and an exponent (E or D) are read up to the first
// character that cannot continue the number; "&H" and "&O" read hexadecimal and octal, as 16-bit
// values when they fit. A text without a leading number gives 0. Overflow when out of range.
double leadingNumber(QStringView text);

// Rounding to 16- and 32-bit integers: halves go to the even neighbour; Overflow out of range.
qint16 toInt16(double value);
qint32 toInt32(double value);

// "True"/"False" in any case, or a number (0 is false); anything else is a TypeMismatch.
bool toBoolean(QStringView text);
QString booleanText(bool value); // "True" / "False"

// Format "000": at least three digits, zero-padded; halves rounded away from zero.
QString formatQueueNumber(double value);
// Format "#0.0": at least one integer digit and one decimal; halves rounded away from zero.
QString formatOneDecimal(double value);
// A single-precision number as decimal text (seven significant digits).
QString singleText(float value);

// Removes leading and trailing spaces (only spaces: tabs stay).
QString trimSpaces(QStringView text);

// Days since 30 December 1899, the time of day as the fraction.
double dateSerial(const QDateTime& dateTime);
qint32 dateSerial(QDate date);

// The general date form: the short date, a space, the long time; the date alone at midnight and
// the time alone on 30 December 1899. Follows the default locale.
QString generalDate(const QDateTime& dateTime);

// ISO 8601 to the second with the offset from UTC ("2026-11-25T10:15:02+01:00"), whatever the
// time's kind; empty for an invalid time.
QString isoDateTimeWithOffset(const QDateTime& dateTime);

// An expected or past time as every Spinlane program shows it to the minute: rounded to the
// nearest minute (half a minute up, so 21:59:30 shows as 22:00 and 21:59:29 as 21:59), in local
// time, with the hours as `locale` writes them (12-hour with AM/PM where its short time format
// has them, else 24-hour), and the date in front ("2026-11-26 ") when it is not `today`. The web
// page follows the same rule with the browser's convention. Empty for an invalid time.
QString clockTime(const QDateTime& dateTime, const QLocale& locale, QDate today);

} // namespace spinlane
