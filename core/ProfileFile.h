#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QString>
#include <QStringView>

#include <functional>
#include <optional>
#include <vector>

// The settings file engine: an INI file read and written as the Windows private-profile
// functions do (sections and keys found without regard to case, first match wins, quotes
// stripped, defaults for what is missing), with three improvements: lines that a change does not
// touch keep their bytes, every write reaches the disk atomically, and a line break inside a
// written name or value can never start a new line. A file is read and written in its own
// encoding: UTF-16 with a byte-order mark, or lines of UTF-8 and code page 1252.
namespace spinlane {

// A read returns at most this many characters (a 256-character buffer, maximum length 255,
// with room for the terminating NUL).
inline constexpr int kProfileValueMaxChars = 254;

// One INI file held in memory. Parse it once, read and change as many values as needed, then
// save it once.
class ProfileDocument {
public:
    ProfileDocument();
    ~ProfileDocument();
    ProfileDocument(const ProfileDocument&);
    ProfileDocument(ProfileDocument&&) noexcept;
    ProfileDocument& operator=(const ProfileDocument&);
    ProfileDocument& operator=(ProfileDocument&&) noexcept;

    static ProfileDocument fromBytes(const QByteArray& bytes);
    // A missing or unreadable file gives an empty document.
    static ProfileDocument load(const QString& path);

    // The value as stored (quotes stripped once), or nothing when the section or the key is
    // missing or the key has no "=".
    std::optional<QString> value(QStringView section, QStringView key) const;
    // The value cut to kProfileValueMaxChars, or the default when missing: the default loses its
    // quotes as a value does, and is cut the same way.
    QString readString(QStringView section, QStringView key, const QString& defaultValue) const;

    // Sets a key in place, or adds it at the end of its section, or adds the section at the end
    // of the file. Returns false when the value was already the same (compared with case) and
    // nothing changed.
    bool writeString(QStringView section, QStringView key, const QString& value);
    // Removes every entry of every section of that name; the headers stay. Returns whether
    // anything changed.
    bool clearSection(QStringView section);

    // Each header and entry in file order, for a tool that checks a whole file: its line number
    // (from 1), the section it is in (empty before the first header), and for an entry its key
    // and value as value() reads them (nothing without "=").
    struct Item {
        int line = 0;
        bool header = false;
        QString section;
        QString key;
        std::optional<QString> value;
    };
    std::vector<Item> items() const;

    QByteArray toBytes() const;
    // True once a write or clear has changed the document since it was parsed.
    bool isModified() const;
    // Writes the whole document to a temporary file beside `path` and renames it over `path`.
    // Returns false, leaving any existing file byte for byte as it was, when that cannot be done
    // (a read-only file or folder, a full disk); `reason` then says why.
    bool save(const QString& path, QString* reason = nullptr) const;

private:
    enum class Encoding : quint8 { Utf8, Windows1252, Utf16LE, Utf16BE };
    struct Line;
    struct Section;
    static void parseContent(Line& line, const char* p, qsizetype length);
    void parse(const QByteArray& bytes, qsizetype bomLength);
    int findSection(QStringView foldedName, quint64 hash) const;
    int findKey(const Section& section, QStringView foldedKey) const;
    void indexSection(int index);
    const char* lineData(const Line& line) const;
    std::optional<QString> valueOf(const Line& line) const;
    QByteArrayView terminator(const Line& line) const;
    Line addedLine(const QByteArray& bytes);
    void terminateLastLine();
    void insertKey(Section& section, const QByteArray& entry);
    void appendSection(const QByteArray& header, const QByteArray& entry);
    void reparse();
    void reparseIfMarked();
    std::optional<QByteArray> encodedLine(QByteArray start, QStringView text) const;
    void convertToUtf8();

    QByteArray m_source; // the parsed bytes, byte-order mark included; UTF-8 for a UTF-16 file
    QByteArray m_added; // the bytes of every line written since
    qsizetype m_bomLength = 0;
    std::vector<Section> m_sections; // m_sections[0]: the lines before the first header
    QMultiHash<quint64, int> m_sectionIndex; // hash of a case-folded name -> first section of it
    bool m_modified = false;
    Encoding m_encoding = Encoding::Utf8;
};

// One-call forms over a file on disk: each parses the file, and each change saves it at once.
namespace ProfileFile {
QString readString(const QString& path, QStringView section, QStringView key,
                   const QString& defaultValue);
// False when nothing changed or the file could not be written.
bool writeString(const QString& path, QStringView section, QStringView key, const QString& value);
bool clearSection(const QString& path, QStringView section);
// Reads the file (an empty document when there is none; an existing file that cannot be read is
// left alone), lets `edit` change it and saves it when `edit` returns true. False when nothing
// was saved.
bool change(const QString& path, const std::function<bool(ProfileDocument&)>& edit);
} // namespace ProfileFile

} // namespace spinlane
