#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace spinlane::adapter {

// A command line as a lab administrator writes it: words split as a POSIX shell splits them
// (blanks between words, '...' and "..." quoting, backslash escapes) but with no expansion of any
// kind, and in each word the placeholders {NAME} (letters, digits, dots) filled in for each call.
// A value filled in stays inside its word, whatever it holds; a brace that does not make such a
// placeholder is plain text.
class CommandTemplate {
public:
    // Nothing, with `error` set, for an unterminated quote or a line without words.
    static std::optional<CommandTemplate> parse(const QString& line, QString* error);

    QString program() const; // the first word as written
    bool programHasPlaceholder() const;
    void setProgram(const QString& path);
    QStringList placeholders() const; // every name used, in order

    // The words with every placeholder replaced by `value(name)`.
    QStringList expand(const std::function<QString(const QString&)>& value) const;

private:
    struct Piece {
        QString text;
        bool placeholder = false;
    };
    QList<QList<Piece>> m_words;
};

// The words as a person reads them, each quoted as a shell would need it.
QString displayCommand(const QStringList& words);

} // namespace spinlane::adapter
