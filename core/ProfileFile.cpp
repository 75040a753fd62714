#include "core/ProfileFile.h"

#include "core/AtomicFile.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>
#include <QStringEncoder>
#include <QVarLengthArray>

#include <algorithm>
#include <cstring>
#include <limits>

using namespace Qt::StringLiterals;

namespace spinlane {

// A line is kept as its bytes (terminator included) plus where its name and value lie in them.
// The bytes live in m_source while the line is as parsed, in m_added once it was written.
struct ProfileDocument::Line {
    enum Kind : quint8 { Blank, Header, Entry };

    qsizetype start = 0;
    qsizetype length = 0;
    qint32 nameStart = 0; // relative to start; for a header, the section name
    qint32 nameLength = 0;
    qint32 valueStart = -1; // -1: an entry without "="
    qint32 valueLength = 0;
    Kind kind = Blank;
    bool added = false;
    bool asciiName = true;
    bool windows1252 = false; // the line is not UTF-8
};

struct ProfileDocument::Section {
    QString foldedName;
    std::vector<Line> lines; // lines[0] is the header, except in the first section
};

namespace {

const QByteArray kLineEnd = "\r\n"_ba;

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f' || c == 0x1A;
}

bool isBlank(QChar c) { return c.unicode() < 0x80 && isBlank(char(c.unicode())); }

bool isLineEnd(char c) { return c == '\r' || c == '\n'; }

bool isAscii(const char* p, qsizetype n)
{
    for (qsizetype i = 0; i < n; ++i) {
        if (static_cast<unsigned char>(p[i]) >= 0x80)
            return false;
    }
    return true;
}

// Code page 1252 from 0x80 to 0x9F, where it differs from Latin-1. The five bytes it leaves
// undefined stand for the code points of the same number, so that they are written back as they
// were.
constexpr char16_t kWindows1252[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

QString fromWindows1252(const char* p, qsizetype n)
{
    QString text = QString::fromLatin1(p, n);
    for (QChar& c : text) {
        if (c.unicode() >= 0x80 && c.unicode() < 0xA0)
            c = QChar(kWindows1252[c.unicode() - 0x80]);
    }
    return text;
}

// Nothing when code page 1252 lacks a character of `text`.
std::optional<QByteArray> toWindows1252(QStringView text)
{
    QByteArray bytes(text.size(), Qt::Uninitialized);
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) {
            bytes[i] = char(c);
            continue;
        }
        const char16_t* found = std::find(std::begin(kWindows1252), std::end(kWindows1252), c);
        if (found == std::end(kWindows1252))
            return std::nullopt;
        bytes[i] = char(0x80 + (found - std::begin(kWindows1252)));
    }
    return bytes;
}

// Unlike QString::fromUtf8, keeps a U+FEFF at the start: only the file's first one is a mark.
QString fromUtf8(QByteArrayView bytes)
{
    return QStringDecoder(QStringDecoder::Utf8,
                          QStringDecoder::Flag::Stateless
                              | QStringDecoder::Flag::ConvertInitialBom)(bytes);
}

QByteArray toUtf16(QByteArrayView utf8, QStringConverter::Encoding byteOrder)
{
    return QStringEncoder(byteOrder, QStringEncoder::Flag::Stateless)(fromUtf8(utf8));
}

// The text after a UTF-16 byte-order mark as UTF-8, or nothing when it is not well-formed UTF-16
// (an odd byte, half a surrogate pair), so that the UTF-8 would not give back the same bytes.
std::optional<QByteArray> utf16AsUtf8(QByteArrayView wide, QStringConverter::Encoding byteOrder)
{
    const QString text = QStringDecoder(
        byteOrder, QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom)(wide);
    QByteArray utf8 = text.toUtf8();
    if (toUtf16(utf8, byteOrder) != wide)
        return std::nullopt;
    return utf8;
}

// Each line is UTF-8 when it is valid UTF-8 (an ASCII line is both), and code page 1252
// otherwise.
QString decodeText(const char* p, qsizetype n, bool windows1252)
{
    if (isAscii(p, n))
        return QString::fromLatin1(p, n);
    return windows1252 ? fromWindows1252(p, n) : fromUtf8(QByteArrayView(p, n));
}

bool decodedEquals(const char* p, qsizetype n, bool windows1252, QStringView text)
{
    if (isAscii(p, n))
        return QLatin1StringView(p, n) == text;
    return decodeText(p, n, windows1252) == text;
}

char asciiFold(char c) { return c >= 'A' && c <= 'Z' ? char(c + ('a' - 'A')) : c; }

QStringView cutAtNul(QStringView text)
{
    const qsizetype nul = text.indexOf(QChar(0));
    return nul < 0 ? text : text.first(nul);
}

bool hasLineBreak(QStringView text)
{
    return std::any_of(text.begin(), text.end(), [](QChar c) { return c == u'\r' || c == u'\n'; });
}

// A written name or value never holds a line break: each one becomes a space.
QString withoutLineBreaks(QStringView text)
{
    QString result = text.toString();
    for (QChar& c : result) {
        if (c == u'\r' || c == u'\n')
            c = u' ';
    }
    return result;
}

// FNV-1a: much cheaper than Qt's string hash on names this short.
constexpr quint64 kHashStart = 14695981039346656037ull;
quint64 hashStep(quint64 h, char16_t c) { return (h ^ c) * 1099511628211ull; }

quint64 nameHash(QStringView folded)
{
    quint64 h = kHashStart;
    for (QChar c : folded)
        h = hashStep(h, c.unicode());
    return h;
}

// Names match when their case-folded forms are equal. Qt's folding is slow for the short ASCII
// names that make up nearly every file, so those are folded here, without allocating.
class FoldedName {
public:
    // The name ends at a NUL and blanks around it do not count.
    explicit FoldedName(QStringView name, bool lineBreaksAsSpaces = false)
    {
        const QChar* p = name.data();
        qsizetype b = 0, e = 0;
        while (e < name.size() && p[e].unicode() != 0)
            ++e;
        while (b < e && isBlank(p[b]))
            ++b;
        while (e > b && isBlank(p[e - 1]))
            --e;
        text = QStringView(p + b, e - b);
        m_folded.resize(text.size());
        for (qsizetype i = 0; i < text.size(); ++i) {
            char16_t c = text[i].unicode();
            if (c >= 0x80) {
                QString slow = lineBreaksAsSpaces ? withoutLineBreaks(text) : text.toString();
                slow = std::move(slow).toCaseFolded();
                m_folded.resize(slow.size());
                std::copy(slow.cbegin(), slow.cend(), m_folded.begin());
                hash = nameHash(folded());
                return;
            }
            if (lineBreaksAsSpaces && (c == u'\r' || c == u'\n'))
                c = u' ';
            c = char16_t(asciiFold(char(c)));
            m_folded[i] = QChar(c);
            hash = hashStep(hash, c);
        }
    }
    QStringView folded() const { return QStringView(m_folded.constData(), m_folded.size()); }

    QStringView text; // as given, without the blanks around it
    quint64 hash = kHashStart; // of the folded name

private:
    QVarLengthArray<QChar, 64> m_folded;
};

QString foldedText(const char* p, qsizetype n, bool windows1252)
{
    const QString text = decodeText(p, n, windows1252);
    return FoldedName(text).folded().toString();
}

QStringView writtenValue(QStringView value)
{
    value = cutAtNul(value);
    while (!value.isEmpty() && isBlank(value.front()))
        value = value.sliced(1);
    return value;
}

QString cutToReadLimit(QString text)
{
    if (text.size() > kProfileValueMaxChars) {
        const bool splitsPair = text.at(kProfileValueMaxChars - 1).isHighSurrogate();
        text.truncate(splitsPair ? kProfileValueMaxChars - 1 : kProfileValueMaxChars);
    }
    return text;
}

QString entryText(QString name, QStringView value)
{
    name += u'=';
    name += value;
    return name;
}

// Quotes around a value are removed once.
QString unquoted(QString text)
{
    if (text.size() > 1 && (text.front() == u'"' || text.front() == u'\'')
        && text.back() == text.front()) {
        text.chop(1);
        text.remove(0, 1);
    }
    return text;
}

// Where the first NUL in [begin, end) is, or end.
qsizetype endAtNul(const char* p, qsizetype begin, qsizetype end)
{
    const void* nul = std::memchr(p + begin, 0, size_t(end - begin));
    return nul ? static_cast<const char*>(nul) - p : end;
}

qsizetype contentLength(const char* p, qsizetype length)
{
    while (length > 0 && isLineEnd(p[length - 1]))
        --length;
    return length;
}

} // namespace

// Fills in kind, name and value of a line from its content (the bytes before its terminator).
void ProfileDocument::parseContent(Line& line, const char* p, qsizetype length)
{
    length = std::min<qsizetype>(length, std::numeric_limits<qint32>::max());
    qsizetype b = 0, e = length;
    while (b < e && isBlank(p[b]))
        ++b;
    while (e > b && isBlank(p[e - 1]))
        --e;
    line.valueStart = -1;
    line.valueLength = 0;
    if (b == e) {
        line.kind = Line::Blank;
        line.nameStart = line.nameLength = 0;
        line.asciiName = true;
        return;
    }
    // A NUL ends the name or the value it is in.
    const qsizetype nul = endAtNul(p, b, e);
    qsizetype nameBegin = b, nameEnd = e;
    line.kind = Line::Entry;
    if (p[b] == '[') {
        qsizetype close = e - 1;
        while (close > b && p[close] != ']')
            --close;
        if (close > b) {
            line.kind = Line::Header;
            nameBegin = b + 1;
            nameEnd = close;
            while (nameBegin < nameEnd && isBlank(p[nameBegin]))
                ++nameBegin;
        }
    }
    if (line.kind == Line::Entry) {
        if (const void* eq = std::memchr(p + b, '=', size_t(e - b))) {
            nameEnd = static_cast<const char*>(eq) - p;
            qsizetype valueBegin = nameEnd + 1;
            while (valueBegin < e && isBlank(p[valueBegin]))
                ++valueBegin;
            line.valueStart = qint32(valueBegin);
            const qsizetype valueEnd = nul >= valueBegin ? nul : endAtNul(p, valueBegin, e);
            line.valueLength = qint32(valueEnd - valueBegin);
        }
    }
    while (nameEnd > nameBegin && isBlank(p[nameEnd - 1]))
        --nameEnd;
    nameEnd = std::min(nameEnd, nul);
    line.nameStart = qint32(nameBegin);
    line.nameLength = qint32(nameEnd - nameBegin);
    line.asciiName = isAscii(p + nameBegin, nameEnd - nameBegin);
}

ProfileDocument::ProfileDocument()
{
    m_sections.emplace_back();
    indexSection(0);
}

ProfileDocument::~ProfileDocument() = default;
ProfileDocument::ProfileDocument(const ProfileDocument&) = default;
ProfileDocument::ProfileDocument(ProfileDocument&&) noexcept = default;
ProfileDocument& ProfileDocument::operator=(const ProfileDocument&) = default;
ProfileDocument& ProfileDocument::operator=(ProfileDocument&&) noexcept = default;

ProfileDocument ProfileDocument::fromBytes(const QByteArray& bytes)
{
    ProfileDocument doc;
    const bool littleEndian = bytes.startsWith("\xFF\xFE");
    if (littleEndian || bytes.startsWith("\xFE\xFF")) {
        const auto byteOrder = littleEndian ? QStringConverter::Utf16LE : QStringConverter::Utf16BE;
        if (std::optional<QByteArray> text =
                utf16AsUtf8(QByteArrayView(bytes).sliced(2), byteOrder)) {
            doc.m_encoding = littleEndian ? Encoding::Utf16LE : Encoding::Utf16BE;
            doc.parse(*text, 0);
            return doc;
        }
    }
    doc.parse(bytes, bytes.startsWith("\xEF\xBB\xBF") ? 3 : 0);
    return doc;
}

void ProfileDocument::parse(const QByteArray& bytes, qsizetype bomLength)
{
    m_source = bytes;
    m_bomLength = bomLength;
    const char* data = bytes.constData();
    const qsizetype size = bytes.size();
    // Nearly every file is UTF-8 throughout; only the others need a look at each line.
    const bool allUtf8 = QByteArrayView(bytes).sliced(bomLength).isValidUtf8();

    qsizetype pos = bomLength;
    while (pos < size) {
        qsizetype contentEnd = pos;
        while (contentEnd < size && !isLineEnd(data[contentEnd]))
            ++contentEnd;
        qsizetype end = contentEnd;
        while (end < size && isLineEnd(data[end]))
            ++end;

        Line line;
        line.start = pos;
        line.length = end - pos;
        parseContent(line, data + pos, contentEnd - pos);
        if (!allUtf8 && !QByteArrayView(data + pos, contentEnd - pos).isValidUtf8()) {
            line.windows1252 = true;
            m_encoding = Encoding::Windows1252;
        }
        if (line.kind == Line::Header) {
            // Sections of one file tend to be alike in size.
            const size_t expected = m_sections.back().lines.size();
            Section& section = m_sections.emplace_back();
            section.lines.reserve(expected);
            section.foldedName =
                foldedText(data + pos + line.nameStart, line.nameLength, line.windows1252);
            indexSection(int(m_sections.size() - 1));
        }
        m_sections.back().lines.push_back(line);
        pos = end;
    }
}

ProfileDocument ProfileDocument::load(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return ProfileDocument();
    return fromBytes(file.readAll());
}

const char* ProfileDocument::lineData(const Line& line) const
{
    return (line.added ? m_added : m_source).constData() + line.start;
}

QByteArrayView ProfileDocument::terminator(const Line& line) const
{
    const char* p = lineData(line);
    const qsizetype content = contentLength(p, line.length);
    return QByteArrayView(p + content, line.length - content);
}

int ProfileDocument::findSection(QStringView foldedName, quint64 hash) const
{
    const auto [begin, end] = m_sectionIndex.equal_range(hash);
    for (auto it = begin; it != end; ++it) {
        if (m_sections[size_t(*it)].foldedName == foldedName)
            return *it;
    }
    return -1;
}

void ProfileDocument::indexSection(int index)
{
    const QString& name = m_sections[size_t(index)].foldedName;
    const quint64 hash = nameHash(name);
    if (findSection(name, hash) < 0)
        m_sectionIndex.insert(hash, index);
}

int ProfileDocument::findKey(const Section& section, QStringView foldedKey) const
{
    const QChar* wanted = foldedKey.data();
    for (size_t i = 0; i < section.lines.size(); ++i) {
        const Line& line = section.lines[i];
        if (line.kind != Line::Entry)
            continue;
        const char* name = lineData(line) + line.nameStart;
        if (line.asciiName) {
            if (line.nameLength != foldedKey.size())
                continue;
            qsizetype k = 0;
            while (k < line.nameLength && wanted[k] == QLatin1Char(asciiFold(name[k])))
                ++k;
            if (k == line.nameLength)
                return int(i);
        } else if (foldedText(name, line.nameLength, line.windows1252) == foldedKey) {
            return int(i);
        }
    }
    return -1;
}

std::optional<QString> ProfileDocument::value(QStringView section, QStringView key) const
{
    const FoldedName sectionName(section);
    const int s = findSection(sectionName.folded(), sectionName.hash);
    if (s < 0)
        return std::nullopt;
    const Section& sec = m_sections[size_t(s)];
    const int k = findKey(sec, FoldedName(key).folded());
    if (k < 0)
        return std::nullopt;
    return valueOf(sec.lines[size_t(k)]);
}

std::optional<QString> ProfileDocument::valueOf(const Line& line) const
{
    if (line.valueStart < 0)
        return std::nullopt;
    return unquoted(
        decodeText(lineData(line) + line.valueStart, line.valueLength, line.windows1252));
}

std::vector<ProfileDocument::Item> ProfileDocument::items() const
{
    std::vector<Item> items;
    int number = 1;
    QString section;
    for (const Section& sec : m_sections) {
        for (const Line& line : sec.lines) {
            const char* p = lineData(line);
            const QString name = decodeText(p + line.nameStart, line.nameLength, line.windows1252);
            if (line.kind == Line::Header)
                section = name;
            if (line.kind != Line::Blank)
                items.push_back({number, line.kind == Line::Header, section,
                                 line.kind == Line::Entry ? name : QString(), valueOf(line)});
            const QByteArrayView end = terminator(line);
            // "\r\n", "\n" and a lone "\r" each end one line.
            for (qsizetype i = 0; i < end.size(); ++i) {
                if (end[i] == '\n' || i + 1 == end.size() || end[i + 1] != '\n')
                    ++number;
            }
        }
    }
    return items;
}

QString ProfileDocument::readString(QStringView section, QStringView key,
                                    const QString& defaultValue) const
{
    std::optional<QString> text = value(section, key);
    return cutToReadLimit(text ? std::move(*text) : unquoted(defaultValue));
}

ProfileDocument::Line ProfileDocument::addedLine(const QByteArray& bytes)
{
    Line line;
    line.start = m_added.size();
    line.length = bytes.size();
    line.added = true;
    m_added.append(bytes);
    const qsizetype content = contentLength(bytes.constData(), bytes.size());
    parseContent(line, bytes.constData(), content);
    line.windows1252 = !QByteArrayView(bytes).first(content).isValidUtf8();
    return line;
}

// A line in the file's encoding, `start` already encoded. Nothing when the file is code page
// 1252 and that lacks a character of `text`, or the line would read as UTF-8 (as "Ã©" would).
std::optional<QByteArray> ProfileDocument::encodedLine(QByteArray start, QStringView text) const
{
    if (m_encoding != Encoding::Windows1252)
        return start + text.toUtf8();
    const std::optional<QByteArray> rest = toWindows1252(text);
    if (!rest)
        return std::nullopt;
    start += *rest;
    if (!isAscii(start.constData(), start.size()) && QByteArrayView(start).isValidUtf8())
        return std::nullopt;
    return start;
}

bool ProfileDocument::writeString(QStringView section, QStringView key, const QString& value)
{
    const FoldedName sectionName(section, true);
    const FoldedName keyName(key, true);
    QStringView text = writtenValue(value);
    QString replaced;
    if (hasLineBreak(text)) {
        replaced = withoutLineBreaks(text);
        text = replaced;
    }

    const int s = findSection(sectionName.folded(), sectionName.hash);
    Section* sec = s < 0 ? nullptr : &m_sections[size_t(s)];
    const int k = sec ? findKey(*sec, keyName.folded()) : -1;
    Line* line = k < 0 ? nullptr : &sec->lines[size_t(k)];
    std::optional<QByteArray> header, entry;
    if (line) {
        const char* p = lineData(*line);
        if (line->valueStart >= 0
            && decodedEquals(p + line->valueStart, line->valueLength, line->windows1252, text))
            return false;
        // The key keeps its spelling, in the file's encoding.
        if (line->asciiName || m_encoding != Encoding::Windows1252)
            entry = encodedLine(QByteArray(p + line->nameStart, line->nameLength) + '=', text);
        else
            entry = encodedLine(
                {}, entryText(decodeText(p + line->nameStart, line->nameLength, line->windows1252),
                              text));
    } else {
        entry = encodedLine({}, entryText(withoutLineBreaks(keyName.text), text));
        if (!sec)
            header = encodedLine({}, u'[' + withoutLineBreaks(sectionName.text) + u']');
    }
    if (!entry || (!sec && !header)) {
        convertToUtf8();
        return writeString(section, key, value);
    }

    if (line) {
        // The line keeps its terminator.
        *line = addedLine(*entry + terminator(*line).toByteArray());
        if (line->kind != Line::Entry)
            reparse();
    } else if (sec) {
        insertKey(*sec, *entry + kLineEnd);
    } else {
        appendSection(*header + kLineEnd, *entry + kLineEnd);
    }
    m_modified = true;
    reparseIfMarked();
    return true;
}

// Code page 1252 cannot hold a line to be written: every line of the file becomes UTF-8.
void ProfileDocument::convertToUtf8()
{
    QByteArray bytes(m_source.constData(), m_bomLength);
    for (const Section& section : m_sections) {
        for (const Line& line : section.lines) {
            if (line.windows1252)
                bytes += fromWindows1252(lineData(line), line.length).toUtf8();
            else
                bytes.append(lineData(line), line.length);
        }
    }
    ProfileDocument converted = fromBytes(bytes);
    converted.m_modified = true;
    *this = std::move(converted);
}

void ProfileDocument::terminateLastLine()
{
    for (auto it = m_sections.rbegin(); it != m_sections.rend(); ++it) {
        if (it->lines.empty())
            continue;
        Line& last = it->lines.back();
        if (terminator(last).isEmpty())
            last = addedLine(QByteArray(lineData(last), last.length) + kLineEnd);
        return;
    }
}

void ProfileDocument::insertKey(Section& section, const QByteArray& entry)
{
    // After the last entry, or after the header of a section without entries.
    size_t at = 0;
    for (size_t i = section.lines.size(); i > 0; --i) {
        if (section.lines[i - 1].kind != Line::Blank) {
            at = i;
            break;
        }
    }
    QByteArray bytes = entry;
    if (at > 0) {
        Line& previous = section.lines[at - 1];
        const QByteArrayView end = terminator(previous);
        if (end.isEmpty()) {
            terminateLastLine();
        } else {
            // Blank lines after the previous line stay after the new one, so they keep
            // separating this section from the next.
            const qsizetype firstEnd = end.startsWith("\r\n") ? 2 : 1;
            if (end.size() > firstEnd) {
                bytes += end.sliced(firstEnd).toByteArray();
                previous.length -= end.size() - firstEnd;
            }
        }
    }
    const Line line = addedLine(bytes);
    section.lines.insert(section.lines.begin() + std::ptrdiff_t(at), line);
    if (line.kind != Line::Entry)
        reparse();
}

void ProfileDocument::appendSection(const QByteArray& header, const QByteArray& entry)
{
    terminateLastLine();
    Section& section = m_sections.emplace_back();
    section.lines.push_back(addedLine(header));
    const Line& head = section.lines.front();
    section.foldedName =
        foldedText(lineData(head) + head.nameStart, head.nameLength, head.windows1252);
    indexSection(int(m_sections.size() - 1));
    section.lines.push_back(addedLine(entry));
    if (section.lines.back().kind != Line::Entry)
        reparse();
}

// A written line that reads back as something else (a key such as "[x]" reads as a header):
// parse the whole document again so that it always reads as its bytes do.
void ProfileDocument::reparse()
{
    ProfileDocument parsed = fromBytes(toBytes());
    parsed.m_modified = true;
    // Once a code page 1252 file, always one, also when no line needs it any more.
    if (m_encoding == Encoding::Windows1252 && parsed.m_encoding == Encoding::Utf8)
        parsed.m_encoding = m_encoding;
    *this = std::move(parsed);
}

// A file whose first line starts like a UTF-16 byte-order mark but did not read as UTF-16 may do
// so once changed.
void ProfileDocument::reparseIfMarked()
{
    if (m_bomLength > 0 || m_encoding == Encoding::Utf16LE || m_encoding == Encoding::Utf16BE)
        return;
    for (const Section& section : m_sections) {
        if (section.lines.empty())
            continue;
        const char first = *lineData(section.lines.front());
        if (first == '\xFF' || first == '\xFE')
            reparse();
        return;
    }
}

bool ProfileDocument::clearSection(QStringView section)
{
    const FoldedName name(section);
    const int first = findSection(name.folded(), name.hash);
    if (first < 0)
        return false;
    bool changed = false;
    for (size_t s = size_t(first); s < m_sections.size(); ++s) {
        Section& sec = m_sections[s];
        if (sec.foldedName != name.folded())
            continue;
        std::vector<Line> kept;
        for (const Line& line : sec.lines) {
            if (line.kind != Line::Entry) {
                kept.push_back(line);
                continue;
            }
            changed = true;
            // Blank lines that followed the entry stay.
            const QByteArrayView end = terminator(line);
            const qsizetype firstEnd = end.startsWith("\r\n") ? 2 : 1;
            if (end.size() > firstEnd) {
                Line blank;
                blank.start = line.start + line.length - (end.size() - firstEnd);
                blank.length = end.size() - firstEnd;
                blank.added = line.added;
                kept.push_back(blank);
            }
        }
        sec.lines = std::move(kept);
    }
    m_modified = m_modified || changed;
    if (changed)
        reparseIfMarked();
    return changed;
}

QByteArray ProfileDocument::toBytes() const
{
    qsizetype total = m_bomLength;
    for (const Section& section : m_sections) {
        for (const Line& line : section.lines)
            total += line.length;
    }
    QByteArray bytes;
    bytes.reserve(total);
    bytes.append(m_source.constData(), m_bomLength);
    for (const Section& section : m_sections) {
        for (const Line& line : section.lines)
            bytes.append(lineData(line), line.length);
    }
    if (m_encoding == Encoding::Utf16LE)
        return "\xFF\xFE"_ba + toUtf16(bytes, QStringConverter::Utf16LE);
    if (m_encoding == Encoding::Utf16BE)
        return "\xFE\xFF"_ba + toUtf16(bytes, QStringConverter::Utf16BE);
    return bytes;
}

bool ProfileDocument::isModified() const { return m_modified; }

bool ProfileDocument::save(const QString& path, QString* reason) const
{
    return writeFileAtomically(path, toBytes(), reason);
}

namespace ProfileFile {
namespace {

// An existing file that cannot be read must not be replaced by a document built from nothing.
std::optional<ProfileDocument> loadForChange(const QString& path)
{
    QFile file(path);
    if (file.open(QIODevice::ReadOnly))
        return ProfileDocument::fromBytes(file.readAll());
    if (QFileInfo::exists(path))
        return std::nullopt;
    return ProfileDocument();
}

} // namespace

QString readString(const QString& path, QStringView section, QStringView key,
                   const QString& defaultValue)
{
    return ProfileDocument::load(path).readString(section, key, defaultValue);
}

bool change(const QString& path, const std::function<bool(ProfileDocument&)>& edit)
{
    std::optional<ProfileDocument> doc = loadForChange(path);
    return doc && edit(*doc) && doc->save(path);
}

bool writeString(const QString& path, QStringView section, QStringView key, const QString& value)
{
    return change(path, [&](ProfileDocument& doc) { return doc.writeString(section, key, value); });
}

bool clearSection(const QString& path, QStringView section)
{
    return change(path, [&](ProfileDocument& doc) { return doc.clearSection(section); });
}

} // namespace ProfileFile

} // namespace spinlane
