#include "adapter/Values.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace spinlane::adapter {
namespace {

QString expected(const QString& signature)
{
    if (signature == u"b"_s)
        return u"true or false"_s;
    if (signature == u"i"_s)
        return u"a whole number"_s;
    if (signature == u"d"_s)
        return u"a number"_s;
    if (signature == u"as"_s)
        return u"a list of texts"_s;
    return u"a text"_s;
}

std::nullopt_t refuse(const QString& answer, const QString& signature, QString* why)
{
    *why = u"the answer \""_s + answer + u"\" is not "_s + expected(signature);
    return std::nullopt;
}

QString jsonText(const QJsonValue& json)
{
    const QByteArray array = QJsonDocument(QJsonArray{json}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

QString withoutLastLineBreak(QString text)
{
    if (text.endsWith(u'\n'))
        text.chop(text.endsWith(u"\r\n"_s) ? 2 : 1);
    return text;
}

} // namespace

QString valueText(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Bool: return value.toBool() ? u"true"_s : u"false"_s;
    case QMetaType::Double:
        return QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
    case QMetaType::QStringList: return value.toStringList().join(u'\n');
    default: return value.toString();
    }
}

std::optional<QVariant> answerFromText(const QString& text, const QString& signature, QString* why)
{
    const QString answer = text.trimmed();
    if (signature == u"b"_s) {
        const QString word = answer.toLower();
        if (word == u"true"_s || word == u"yes"_s || word == u"1"_s)
            return QVariant(true);
        if (word == u"false"_s || word == u"no"_s || word == u"0"_s)
            return QVariant(false);
    } else if (signature == u"i"_s) {
        bool ok = false;
        const int number = answer.toInt(&ok, 10);
        if (ok)
            return QVariant(number);
    } else if (signature == u"d"_s) {
        bool ok = false;
        const double number = answer.toDouble(&ok);
        if (ok && std::isfinite(number))
            return QVariant(number);
    } else if (signature == u"as"_s) {
        QStringList lines = withoutLastLineBreak(text).split(u'\n');
        for (QString& line : lines) {
            if (line.endsWith(u'\r'))
                line.chop(1);
        }
        if (text.isEmpty())
            lines.clear();
        return QVariant(lines);
    } else {
        return QVariant(withoutLastLineBreak(text));
    }
    return refuse(answer, signature, why);
}

std::optional<QVariant> answerFromJson(const QJsonValue& json, const QString& signature,
                                       QString* why)
{
    if (json.isString())
        return answerFromText(json.toString(), signature, why);
    if (signature == u"b"_s && json.isBool())
        return QVariant(json.toBool());
    if (signature == u"d"_s && json.isDouble())
        return QVariant(json.toDouble());
    if (signature == u"i"_s && json.isDouble()) {
        const double number = json.toDouble();
        if (number == std::floor(number) && number >= std::numeric_limits<qint32>::min()
            && number <= std::numeric_limits<qint32>::max())
            return QVariant(int(number));
    }
    if (signature == u"as"_s && json.isArray()) {
        QStringList texts;
        for (const QJsonValue& element : json.toArray()) {
            if (!element.isString())
                return refuse(jsonText(json), signature, why);
            texts.append(element.toString());
        }
        return QVariant(texts);
    }
    return refuse(jsonText(json), signature, why);
}

} // namespace spinlane::adapter
