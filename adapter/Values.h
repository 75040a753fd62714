#pragma once

#include <QJsonValue>
#include <QString>
#include <QVariant>

#include <optional>

// The values of a call as the commands and helpers see them, and their answers read back as the
// operation's answer type (a D-Bus signature: "b", "i", "d", "s" or "as").
namespace spinlane::adapter {

// As a placeholder fills it in: "true" or "false", a number, the text, a list's elements one per
// line.
QString valueText(const QVariant& value);

// A text answer: true/false, yes/no or 1/0 in any case for "b", a whole number for "i", a number
// for "d" (blanks around it do not count), the text without its last line break for "s", one
// element per line for "as". Nothing, with `why` set, when the text is no such answer.
std::optional<QVariant> answerFromText(const QString& text, const QString& signature, QString* why);
// A helper's answer: the JSON value of the type (true, 12, 20.5, "text", ["a","b"]), or a string
// read as a text answer.
std::optional<QVariant> answerFromJson(const QJsonValue& json, const QString& signature,
                                       QString* why);

} // namespace spinlane::adapter
