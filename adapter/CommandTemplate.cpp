#include "adapter/CommandTemplate.h"

#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace spinlane::adapter {
namespace {

bool isBlank(QChar c) { return c == u' ' || c == u'\t'; }

// Splits as the shell does, without expanding anything.
std::optional<QStringList> shellWords(const QString& line, QString* error)
{
    QStringList words;
    QString word;
    bool inWord = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (isBlank(c)) {
            if (inWord)
                words.append(std::exchange(word, QString()));
            inWord = false;
            continue;
        }
        inWord = true;
        if (c == u'\\') {
            if (++i < line.size())
                word += line.at(i);
        } else if (c == u'\'') {
            const qsizetype close = line.indexOf(u'\'', i + 1);
            if (close < 0) {
                *error = u"the quote ' is not closed"_s;
                return std::nullopt;
            }
            word += line.mid(i + 1, close - i - 1);
            i = close;
        } else if (c == u'"') {
            for (++i;; ++i) {
                if (i >= line.size()) {
                    *error = u"the quote \" is not closed"_s;
                    return std::nullopt;
                }
                const QChar q = line.at(i);
                if (q == u'"')
                    break;
                // Inside double quotes a backslash escapes only these.
                if (q == u'\\' && i + 1 < line.size()
                    && QStringView(u"\"\\$`").contains(line.at(i + 1)))
                    ++i;
                word += line.at(i);
            }
        } else {
            word += c;
        }
    }
    if (inWord)
        words.append(word);
    if (words.isEmpty()) {
        *error = u"no command is given"_s;
        return std::nullopt;
    }
    return words;
}

const QRegularExpression& placeholderPattern()
{
    static const QRegularExpression pattern(u"\\{([A-Za-z0-9.]+)\\}"_s);
    return pattern;
}

} // namespace

std::optional<CommandTemplate> CommandTemplate::parse(const QString& line, QString* error)
{
    const std::optional<QStringList> words = shellWords(line, error);
    if (!words)
        return std::nullopt;
    CommandTemplate command;
    for (const QString& word : *words) {
        QList<Piece>& pieces = command.m_words.emplace_back();
        qsizetype at = 0;
        for (const QRegularExpressionMatch& match : placeholderPattern().globalMatch(word)) {
            if (match.capturedStart() > at)
                pieces.append({word.mid(at, match.capturedStart() - at), false});
            pieces.append({match.captured(1), true});
            at = match.capturedEnd();
        }
        if (at < word.size() || pieces.isEmpty())
            pieces.append({word.mid(at), false});
    }
    return command;
}

QString CommandTemplate::program() const
{
    QString text;
    for (const Piece& piece : m_words.first())
        text += piece.placeholder ? u'{' + piece.text + u'}' : piece.text;
    return text;
}

bool CommandTemplate::programHasPlaceholder() const
{
    return std::any_of(m_words.first().cbegin(), m_words.first().cend(),
                       [](const Piece& piece) { return piece.placeholder; });
}

void CommandTemplate::setProgram(const QString& path) { m_words.first() = {{path, false}}; }

QStringList CommandTemplate::placeholders() const
{
    QStringList names;
    for (const QList<Piece>& word : m_words) {
        for (const Piece& piece : word) {
            if (piece.placeholder)
                names.append(piece.text);
        }
    }
    return names;
}

QStringList CommandTemplate::expand(const std::function<QString(const QString&)>& value) const
{
    QStringList words;
    for (const QList<Piece>& word : m_words) {
        QString text;
        for (const Piece& piece : word)
            text += piece.placeholder ? value(piece.text) : piece.text;
        words.append(text);
    }
    return words;
}

QString displayCommand(const QStringList& words)
{
    static const QRegularExpression plain(u"^[A-Za-z0-9_@%+=:,./-]+$"_s);
    QStringList shown;
    for (const QString& word : words) {
        if (plain.match(word).hasMatch())
            shown.append(word);
        else
            shown.append(u'\'' + QString(word).replace(u"'"_s, u"'\\''"_s) + u'\'');
    }
    return shown.join(u' ');
}

} // namespace spinlane::adapter
