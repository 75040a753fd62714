#include "core/Conversions.h"

#include "core/RuntimeError.h"

#include <QLocale>
#include <QRegularExpression>

#include <cmath>
#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

int digitValue(char c, int radix)
{
    int v = -1;
    if (c >= '0' && c <= '9')
        v = c - '0';
    else if (c >= 'a' && c <= 'f')
        v = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F')
        v = c - 'A' + 10;
    return v < radix ? v : -1;
}

// "&H" and "&O" numbers are 16-bit when they fit, else 32-bit; both reinterpret the sign bit.
const char* scanRadixNumber(const char* p, const char* end, double* out)
{
    const int radix = (p + 1 < end && (p[1] == 'H' || p[1] == 'h'))   ? 16
                      : (p + 1 < end && (p[1] == 'O' || p[1] == 'o')) ? 8
                                                                      : 0;
    if (radix == 0)
        return p;
    const char* q = p + 2;
    quint64 value = 0;
    for (int d; q < end && (d = digitValue(*q, radix)) >= 0; ++q) {
        value = value * radix + d;
        if (value > 0xFFFFFFFFull)
            throw RuntimeError(RuntimeError::Overflow);
    }
    if (q == p + 2)
        return p;
    if (value <= 0xFFFF)
        *out = static_cast<qint16>(static_cast<quint16>(value));
    else
        *out = static_cast<qint32>(static_cast<quint32>(value));
    return q;
}

// Scans one number at p; returns the end of what was read (p when there is no number).
const char* scanNumber(const char* p, const char* end, double* out)
{
    *out = 0;
    if (p < end && *p == '&')
        return scanRadixNumber(p, end, out);

    QByteArray literal;
    const char* q = p;
    if (q < end && (*q == '+' || *q == '-'))
        literal += *q++;
    int mantissaDigits = 0;
    for (; q < end && isDigit(*q); ++q, ++mantissaDigits)
        literal += *q;
    if (q < end && *q == '.') {
        literal += *q++;
        for (; q < end && isDigit(*q); ++q, ++mantissaDigits)
            literal += *q;
    }
    if (mantissaDigits == 0)
        return p;
    if (q < end && (*q == 'e' || *q == 'E' || *q == 'd' || *q == 'D')) {
        const char* e = q + 1;
        if (e < end && (*e == '+' || *e == '-'))
            ++e;
        if (e < end && isDigit(*e)) {
            literal += 'e';
            literal.append(q + 1, int(e - q - 1));
            for (q = e; q < end && isDigit(*q); ++q)
                literal += *q;
        }
    }
    *out = std::strtod(literal.constData(), nullptr);
    if (std::isinf(*out))
        throw RuntimeError(RuntimeError::Overflow);
    return q;
}

// Only ASCII can be part of a number; anything else ends the text the scanner sees.
QByteArray asciiPrefix(QStringView text, bool skipBlanks)
{
    QByteArray ascii;
    ascii.reserve(text.size());
    for (QChar c : text) {
        const char16_t u = c.unicode();
        if (skipBlanks && (u == ' ' || u == '\t' || u == '\n'))
            continue;
        if (u == 0 || u > 127)
            break;
        ascii += char(u);
    }
    return ascii;
}

double roundHalfToEven(double value)
{
    if (std::isnan(value))
        throw RuntimeError(RuntimeError::Overflow);
    const double floor = std::floor(value);
    const double fraction = value - floor;
    if (fraction > 0.5 || (fraction == 0.5 && std::fmod(floor, 2.0) != 0.0))
        return floor + 1;
    return floor;
}

// round(|value| * 10^decimals) with halves away from zero, judged on the value's 15 significant
// decimal digits (so 0.15 counts as a half, as a person reading it would expect).
qint64 scaledHalfAwayFromZero(double value, int decimals)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.14e", std::fabs(value));
    const QByteArray text(buffer);
    const QByteArray digits = text.left(1) + text.mid(2, 14);
    const int exponent = std::atoi(text.constData() + text.indexOf('e') + 1);
    const int keep = exponent + 1 + decimals;
    if (keep < 0)
        return 0;
    if (keep >= digits.size())
        return std::llround(std::fabs(value) * std::pow(10.0, decimals));
    qint64 kept = keep == 0 ? 0 : digits.left(keep).toLongLong();
    if (digits[keep] >= '5')
        ++kept;
    return kept;
}

} // namespace

double leadingNumber(QStringView text)
{
    const QByteArray ascii = asciiPrefix(text, true);
    double value = 0;
    scanNumber(ascii.constData(), ascii.constData() + ascii.size(), &value);
    return value;
}

qint16 toInt16(double value)
{
    const double rounded = roundHalfToEven(value);
    if (rounded < -32768.0 || rounded > 32767.0)
        throw RuntimeError(RuntimeError::Overflow);
    return static_cast<qint16>(rounded);
}

qint32 toInt32(double value)
{
    const double rounded = roundHalfToEven(value);
    if (rounded < -2147483648.0 || rounded > 2147483647.0)
        throw RuntimeError(RuntimeError::Overflow);
    return static_cast<qint32>(rounded);
}

bool toBoolean(QStringView text)
{
    const QStringView trimmed = text.trimmed();
    if (trimmed.compare(u"True", Qt::CaseInsensitive) == 0)
        return true;
    if (trimmed.compare(u"False", Qt::CaseInsensitive) == 0)
        return false;
    const QByteArray ascii = asciiPrefix(trimmed, false);
    double value = 0;
    const char* end = ascii.constData() + ascii.size();
    if (ascii.size() != trimmed.size() || ascii.isEmpty()
        || scanNumber(ascii.constData(), end, &value) != end)
        throw RuntimeError(RuntimeError::TypeMismatch);
    return value != 0;
}

QString booleanText(bool value) { return value ? u"True"_s : u"False"_s; }

QString formatQueueNumber(double value)
{
    if (value >= 0 && value < 1e15 && value == std::floor(value))
        return QString::number(qint64(value)).rightJustified(3, u'0');
    const qint64 rounded = scaledHalfAwayFromZero(value, 0);
    const QString digits = QString::number(rounded).rightJustified(3, u'0');
    return value < 0 && rounded != 0 ? u'-' + digits : digits;
}

QString formatOneDecimal(double value)
{
    const qint64 tenths = scaledHalfAwayFromZero(value, 1);
    const QString text = QString::number(tenths / 10) + u'.' + QString::number(tenths % 10);
    return value < 0 && tenths != 0 ? u'-' + text : text;
}

QString singleText(float value)
{
    QString text = QString::number(double(value), 'g', 7);
    text.replace(u'e', u'E');
    return text;
}

QString trimSpaces(QStringView text)
{
    qsizetype first = 0;
    qsizetype last = text.size();
    while (first < last && text[first] == u' ')
        ++first;
    while (last > first && text[last - 1] == u' ')
        --last;
    return text.mid(first, last - first).toString();
}

double dateSerial(const QDateTime& dateTime)
{
    const qint32 day = dateSerial(dateTime.date());
    const double fraction = dateTime.time().msecsSinceStartOfDay() / 86400000.0;
    return day >= 0 ? day + fraction : day - fraction;
}

qint32 dateSerial(QDate date) { return qint32(QDate(1899, 12, 30).daysTo(date)); }

QString generalDate(const QDateTime& dateTime)
{
    const QLocale locale;
    QString dateFormat = locale.dateFormat(QLocale::ShortFormat);
    if (!dateFormat.contains(u"yyyy"_s))
        dateFormat.replace(u"yy"_s, u"yyyy"_s);
    static const QRegularExpression timeZone(u"\\s*\\bt+\\b\\s*"_s);
    const QString timeFormat =
        locale.timeFormat(QLocale::LongFormat).replace(timeZone, u" "_s).trimmed();

    const bool hasDate = dateTime.date() != QDate(1899, 12, 30);
    const bool hasTime = dateTime.time() != QTime(0, 0);
    const QString date = locale.toString(dateTime.date(), dateFormat);
    const QString time = locale.toString(dateTime.time(), timeFormat);
    if (hasDate && hasTime)
        return date + u' ' + time;
    return hasDate ? date : time;
}

QString isoDateTimeWithOffset(const QDateTime& dateTime)
{
    if (!dateTime.isValid())
        return {};
    const int offset = dateTime.offsetFromUtc();
    const int minutes = std::abs(offset) / 60;
    return dateTime.toString(u"yyyy-MM-dd'T'HH:mm:ss"_s) + (offset < 0 ? u'-' : u'+')
           + QString::number(minutes / 60).rightJustified(2, u'0') + u':'
           + QString::number(minutes % 60).rightJustified(2, u'0');
}

QString clockTime(const QDateTime& dateTime, const QLocale& locale, QDate today)
{
    if (!dateTime.isValid())
        return {};
    // Whole minutes since 1970, half a minute up (times before 1970 never occur here).
    const qint64 minutes = (dateTime.toSecsSinceEpoch() + 30) / 60;
    const QDateTime rounded = QDateTime::fromSecsSinceEpoch(minutes * 60);
    const bool twelveHour =
        locale.timeFormat(QLocale::ShortFormat).contains(u"a"_s, Qt::CaseInsensitive);
    const QString clock = locale.toString(rounded.time(), twelveHour ? u"h:mm AP"_s : u"HH:mm"_s);
    return rounded.date() == today ? clock : rounded.date().toString(Qt::ISODate) + u' ' + clock;
}

} // namespace spinlane
