#include "core/ProfileFile.h"
#include "support/SettingsFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

const QString kDefault = u"<default>"_s;
const char kSaveLoopArgument[] = "--save-loop";

// Several MB; the two variants differ in every line and in length.
QByteArray largeDocument(char variant)
{
    const QByteArray section = "[Block]\r\nData=" + QByteArray(4000, variant) + "\r\n";
    return section.repeated(variant == 'A' ? 1000 : 800);
}

// The child side of saveSurvivesKill: saves B and A in turn until it is killed.
[[noreturn]] void saveLoop(const QString& path)
{
    const ProfileDocument documents[] = {ProfileDocument::fromBytes(largeDocument('A')),
                                         ProfileDocument::fromBytes(largeDocument('B'))};
    documents[1].save(path);
    std::fputs("ready\n", stdout);
    std::fflush(stdout);
    for (unsigned i = 0;; ++i)
        documents[i % 2].save(path);
}

// Every table of rows below has these columns. A row reads a file, or writes one value into it
// first: the bytes that result must be exactly the expected ones (the file itself when nothing
// changes).
void addColumns()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("readBack");
}

void read(const char* name, const QByteArray& file, const QString& readBack,
          const QString& section = u"s"_s, const QString& key = u"k"_s)
{
    QTest::newRow(name) << file << file << section << key << QString() << readBack;
}

// An empty `expected` stands for the file unchanged.
void write(const char* name, const QByteArray& file, const QByteArray& expected,
           const QString& section = u"s"_s, const QString& key = u"k"_s,
           const QString& value = u"v"_s, const QString& readBack = u"v"_s)
{
    QTest::newRow(name) << file << (expected.isEmpty() ? file : expected) << section << key << value
                        << readBack;
}

void checkRow()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, expected);
    QFETCH(QString, section);
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(QString, readBack);
    ProfileDocument doc = ProfileDocument::fromBytes(file);
    if (!value.isNull())
        QCOMPARE(doc.writeString(section, key, value), expected != file);
    QCOMPARE(doc.isModified(), expected != file);
    QCOMPARE(doc.toBytes(), expected);
    QCOMPARE(doc.readString(section, key, kDefault), readBack);
    QCOMPARE(ProfileDocument::fromBytes(expected).readString(section, key, kDefault), readBack);
}

} // namespace

class TestProfileFile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readAndWrite_data()
    {
        addColumns();
        read("CR, LF, CRLF, no final end", "\r\n\n[t]\r[s]\nk=v"_ba, u"v"_s);
        read("BOM, lines before any header", "\xEF\xBB\xBFk=v\r\n[s]\r\nk=w"_ba, u"v"_s, u""_s);
        read("blanks trimmed", " \t[ s\t]\v\f\r\n\x1A k \t= \t v \x1A\f"_ba, u"v"_s);
        read("header to last bracket", "[a]b] ; x\r\nk=v"_ba, u"v"_s, u"a]b"_s);
        read("unclosed header is an entry", "[s=1\r\n"_ba, u"1"_s, u""_s, u"[s"_s);
        read("first = splits", "[s]\r\nk==x=y"_ba, u"=x=y"_s);
        read("no =", "[s]\r\nk\r\n"_ba, kDefault);
        read("no comments", "[s]\r\n; c=1 ; d"_ba, u"1 ; d"_s, u"s"_s, u"; c"_s);
        read("names in any case", "[Ab]\r\nCd Ef=v"_ba, u"v"_s, u"aB"_s, u"CD eF"_s);
        read("Latin-1 names", "[\xFC]\r\n\xF6\xDF=1"_ba, u"1"_s, u"\u00DC"_s, u"\u00D6\u00DF"_s);
        read("asked names trimmed, cut at NUL", "[s]\r\nk=v"_ba, u"v"_s, u" s\t"_s, u"\tk \0x"_s);
        read("first section of a name", "[s]\r\nj=1\r\n[S]\r\nk=2"_ba, kDefault);
        read("first key of a name", "[s]\r\nk=1\r\nK=2"_ba, u"1"_s);
        read("quotes after trimming", "[s]\r\nk=\"  x  \" \t"_ba, u"  x  "_s);
        read("quotes stripped once", "[s]\r\nk='\"x\"'"_ba, u"\"x\""_s);
        read("empty quotes", "[s]\r\nk=\"\""_ba, u""_s);
        read("lone quote", "[s]\r\nk=\""_ba, u"\""_s);
        read("mismatched quotes", "[s]\r\nk=\"x'"_ba, u"\"x'"_s);
        const QString a(255, u'a'), e(300, u'\u00E9'), smile = u"\U0001F600"_s;
        read("cut to 254 characters", "k=" + a.toUtf8(), a.left(254), u""_s);
        read("cut after quotes are stripped", "k=\"" + a.toUtf8() + "a\"", a.left(254), u""_s);
        read("cut counts characters", "k=" + e.toUtf8(), e.left(254), u""_s);
        read("cut keeps a pair whole", "k=" + (a.left(253) + smile).toUtf8(), a.left(253), u""_s);
        read("cut after a pair", "k=" + (a.left(252) + smile + u'b').toUtf8(), a.left(252) + smile,
             u""_s);

        write("same value, blanks aside", "[s]\r\n k =  v  \r\n"_ba, {}, u"S"_s, u"K"_s, u" \tv"_s);
        write("same Latin-1", "[s]\r\nk=\xE9"_ba, {}, u"s"_s, u"k"_s, u"\u00E9"_s, u"\u00E9"_s);
        write("case of a value counts", "[s]\r\nk=V\r\n"_ba, "[s]\r\nk=v\r\n"_ba);
        write("stored quotes count, line end kept", "[s]\r\nk=\"v\"\n\n[t]"_ba,
              "[s]\r\nk=v\n\n[t]"_ba);
        write("no = yet", "[s]\r\nk\r\n"_ba, "[s]\r\nk=\r\n"_ba, u"s"_s, u"k"_s, u""_s, u""_s);
        write("in place: spelling kept, blanks dropped", "[G]\r\n  Ab Cd \t=  o\r\nj=1\r\n"_ba,
              "[G]\r\nAb Cd=v  \r\nj=1\r\n"_ba, u"g"_s, u"ab cd"_s, u" \tv  "_s);
        write("new key above LF blanks", "[s]\na\n\n \n[t]"_ba, "[s]\na\nk=v\r\n\n \n[t]"_ba);
        write("new key, unterminated file", "[s]\r\na"_ba, "[s]\r\na\r\nk=v\r\n"_ba);
        write("new key as given", "[s]"_ba, "[s]\r\nNew Key=v\r\n"_ba, u" S "_s, u" New Key\t"_s);
        write("new key above headers", "\xEF\xBB\xBF[s]"_ba, "\xEF\xBB\xBFk=v\r\n[s]"_ba, u""_s);
        write("new section after blanks", "[a]\n\n"_ba, "[a]\n\n[\xC3\xB6]\r\nk=\xC2\xB5\r\n"_ba,
              u"\u00F6"_s, u"k"_s, u"\u00B5"_s, u"\u00B5"_s);
        write("new section, unterminated file", "[a]"_ba, "[a]\r\n[s]\r\nk=v\r\n"_ba);
        write("line breaks and NUL in a value", "[s]\r\nk=o\r\n"_ba, "[s]\r\nk=a  b=1 \r\n"_ba,
              u"s"_s, u"k"_s, u"a\r\nb=1\n\0\r\nx"_s, u"a  b=1"_s);
        write("line breaks in names", ""_ba, "[s [x]]\r\nk [y]=v\r\n"_ba, u"s\r[x]"_s, u"k\n[y]"_s,
              u"v"_s, kDefault);
        write("in place: now reads as a header", "[s]\r\n[x=1\r\n[x=2\r\n"_ba,
              "[s]\r\n[x=y]\r\n[x=2\r\n"_ba, u"s"_s, u"[x"_s, u"y]"_s, kDefault);
    }
    void readAndWrite() { checkRow(); }

    // A line that is not UTF-8 is code page 1252, decided for the whole line.
    void windows1252_data()
    {
        addColumns();
        read("0x80-0x9F",
             "[s]\r\nk=5 mg \x93"
             "crude\x94 \x80\x8A\x9F"_ba,
             u"5 mg \u201Ccrude\u201D \u20AC\u0160\u0178"_s);
        read("names", "[\x84\x96]\r\n\x99=1"_ba, u"1"_s, u"\u201E\u2013"_s, u"\u2122"_s);
        read("undefined bytes", "k=\x81\x8D\x8F\x90\x9D"_ba, u"\u0081\u008D\u008F\u0090\u009D"_s,
             u""_s);
        read("UTF-8 line of a 1252 file", "[s]\r\nj=\xE9\r\nk=\xC3\xA9"_ba, u"\u00E9"_s);
        read("one 1252 byte decides the line", "[s]\r\n\xC3\xA9=\x80"_ba, u"\u20AC"_s, u"s"_s,
             u"\u00C3\u00A9"_s);
        write("same undefined bytes", "k=\x81\x9D\r\n"_ba, {}, u""_s, u"k"_s, u"\u0081\u009D"_s,
              u"\u0081\u009D"_s);
    }
    void windows1252() { checkRow(); }

    // Written lines keep the file's encoding; a character code page 1252 lacks makes it UTF-8.
    void fileEncodingKept_data()
    {
        addColumns();
        const QString quoted = u"\u201C\u00E9\u201D"_s, alpha = u"\u03B1"_s;
        write("ASCII file: UTF-8", "[s]\r\nk=v\r\n"_ba,
              "[s]\r\nk=\xE2\x80\x9C\xC3\xA9\xE2\x80\x9D\r\n"_ba, u"s"_s, u"k"_s, quoted, quoted);
        write("UTF-8 file: UTF-8", "[s]\r\nj=\xC3\xA9\r\n"_ba,
              "[s]\r\nj=\xC3\xA9\r\nk=\xE2\x82\xAC\r\n"_ba, u"s"_s, u"k"_s, u"\u20AC"_s,
              u"\u20AC"_s);
        write("1252 file: in place", "[s]\r\nj=\xE9\r\nk=v\r\n"_ba,
              "[s]\r\nj=\xE9\r\nk=\x93\xE9\x94\r\n"_ba, u"s"_s, u"k"_s, quoted, quoted);
        write("1252 file: new section", "j=\xE9"_ba,
              "j=\xE9\r\n[M\xFCll]\r\nGr\xF6\xDF"
              "e=\x80\r\n"_ba,
              u"M\u00FCll"_s, u"Gr\u00F6\u00DFe"_s, u"\u20AC"_s, u"\u20AC"_s);
        write("1252 file: a UTF-8 name rewritten", "[s]\r\nj=\xE9\r\n\xC3\xA9=1\r\n"_ba,
              "[s]\r\nj=\xE9\r\n\xE9=2\r\n"_ba, u"s"_s, u"\u00E9"_s, u"2"_s, u"2"_s);
        write("1252 file: Greek makes it UTF-8",
              "[s]\r\nj=\xE9\r\nk=\x93\x81\x94\r\n\xC3\xA9=1\r\n"_ba,
              "[s]\r\nj=\xCE\xB1\r\nk=\xE2\x80\x9C\xC2\x81\xE2\x80\x9D\r\n\xC3\xA9=1\r\n"_ba,
              u"s"_s, u"j"_s, alpha, alpha);
        write("1252 file: text that would read as UTF-8", "k=\xE9\r\n"_ba,
              "k=\xC3\x83\xC2\xA9\r\n"_ba, u""_s, u"k"_s, u"\u00C3\u00A9"_s, u"\u00C3\u00A9"_s);
    }
    void fileEncodingKept() { checkRow(); }

    // UTF-16 files with a byte-order mark are read and written in their own byte order.
    void utf16_data()
    {
        addColumns();
        const QByteArray le = "\xFF\xFE[\0s\0]\0\r\0\n\0k\0=\0\xE9\0\r\0\n\0"_ba;
        const QByteArray be = "\xFE\xFF\0[\0s\0]"_ba;
        read("little-endian", le, u"\u00E9"_s);
        read("surrogate pair", "\xFF\xFEk\0=\0\x3D\xD8\x00\xDE"_ba, u"\U0001F600"_s, u""_s);
        write("little-endian, in place", le, "\xFF\xFE[\0s\0]\0\r\0\n\0k\0=\0\xAC\x20\r\0\n\0"_ba,
              u"s"_s, u"k"_s, u"\u20AC"_s, u"\u20AC"_s);
        write("big-endian, new key", be, be + "\0\r\0\n\0k\0=\0\xE9\0\r\0\n"_ba, u"s"_s, u"k"_s,
              u"\u00E9"_s, u"\u00E9"_s);
        write("mark, then U+FEFF", "\xFF\xFE\xFF\xFEk\0"_ba,
              "\xFF\xFE\xFF\xFEk\0\r\0\n\0k\0=\0v\0\r\0\n\0"_ba, u""_s);
    }
    void utf16() { checkRow(); }

    // A NUL ends the name or the value holding it, nothing more.
    void nulBytes_data()
    {
        addColumns();
        read("in a value", "[s]\r\nk=va\0lue"_ba, u"va"_s);
        read("in a name", "[s]\r\nk\0ey=x"_ba, u"x"_s);
        read("in a header", "[s\0ec]\r\nk=v"_ba, u"v"_s);
        read("in a header, before ]", "[s\0]x]\r\nk=v"_ba, u"v"_s);
        write("a lone NUL is an entry", "[s]\r\n\0\r\n\r\n[t]"_ba,
              "[s]\r\n\0\r\nk=v\r\n\r\n[t]"_ba);
        write("in place of a cut name", "[s]\r\nk\0ey=x\r\n"_ba, "[s]\r\nk=v\r\n"_ba);
    }
    void nulBytes() { checkRow(); }

    // Only a UTF-8 byte-order mark at the very start of the file is skipped.
    void byteOrderMarkInLine_data()
    {
        addColumns();
        const QString bomV = u"\uFEFFv"_s;
        read("starts a name", "[s]\r\n\xEF\xBB\xBFk=x"_ba, kDefault);
        read("starts a name, found", "[s]\r\n\xEF\xBB\xBFk=x"_ba, u"x"_s, u"s"_s, u"\uFEFFk"_s);
        read("second mark at the start", "\xEF\xBB\xBF\xEF\xBB\xBFk=x"_ba, u"x"_s, u""_s,
             u"\uFEFFk"_s);
        write("starts a value", "[s]\r\nk=v\r\n"_ba, "[s]\r\nk=\xEF\xBB\xBFv\r\n"_ba, u"s"_s,
              u"k"_s, bomV, bomV);
    }
    void byteOrderMarkInLine() { checkRow(); }

    void clearSection()
    {
        ProfileDocument doc = ProfileDocument::fromBytes(
            "k=0\r\n[Data]\r\na=1\r\n; note\r\nbare\r\n\r\n[Other]\r\nb=2\r\n\n[DATA]\r\nc=3\r\n"_ba);
        QVERIFY(doc.clearSection(u" data "));
        QVERIFY(doc.isModified());
        QCOMPARE(doc.toBytes(), "k=0\r\n[Data]\r\n\r\n[Other]\r\nb=2\r\n\n[DATA]\r\n"_ba);
        QVERIFY(!doc.clearSection(u"Data")); // already empty
        QVERIFY(doc.writeString(u"data", u"x", u"1"_s));
        QVERIFY(doc.writeString(u"other", u"y", u"2"_s)); // a written line, blank line after it
        QVERIFY(doc.clearSection(u"other") && doc.clearSection(u""));
        QCOMPARE(doc.toBytes(), "[Data]\r\nx=1\r\n\r\n[Other]\r\n\n[DATA]\r\n"_ba);
    }

    // Each header and entry with its line number, whatever ends the lines before it.
    void itemsWithTheirLines()
    {
        const ProfileDocument doc = ProfileDocument::fromBytes(
            "top=0\n[A]\r\n\r\n  k = \"v\" \r; note\rbare\n\n\n[ B ]\nx=\n"_ba);
        QStringList seen;
        for (const ProfileDocument::Item& item : doc.items())
            seen.append(QString::number(item.line) + u' ' + item.section + u'|'
                        + (item.header ? u"[]"_s : item.key) + u'|' + item.value.value_or(u"-"_s));
        QCOMPARE(seen, (QStringList{u"1 |top|0"_s, u"2 A|[]|-"_s, u"4 A|k|v"_s, u"5 A|; note|-"_s,
                                    u"6 A|bare|-"_s, u"9 B|[]|-"_s, u"10 B|x|"_s}));
    }

    // Random edits of awkward documents: after each one the document must read exactly as a
    // fresh parse of its bytes does.
    void documentReadsAsItsBytes()
    {
        const QList<QByteArray> pieces =
            "\xFF\xFE|[s]|[ S ]x|[|k=1| K = \"2\" |k|=e|[u=1|j=\xE9|\0k=3| |\r\n|\n|\r|\n\r\n"_ba
                .split('|');
        const QStringList names = u"s|T||k|j|[u|x]|a=b|n\ne"_s.split(u'|');
        const QStringList values = u"1|\"q\"| lead||a\r\nk=9|\u00E9\U0001F600|v]"_s.split(u'|');
        QRandomGenerator random(20240611);
        auto pick = [&](const auto& list) { return list.at(random.bounded(int(list.size()))); };
        for (int round = 0; round < 1000; ++round) {
            QByteArray file;
            for (int i = random.bounded(16); i >= 0; --i)
                file += pick(pieces);
            ProfileDocument doc = ProfileDocument::fromBytes(file);
            for (int step = 0; step < 10; ++step) {
                if (random.bounded(5) == 0)
                    doc.clearSection(pick(names));
                else
                    doc.writeString(pick(names), pick(names), pick(values));
                const ProfileDocument reparsed = ProfileDocument::fromBytes(doc.toBytes());
                for (const QString& section : names)
                    for (const QString& key : names)
                        QCOMPARE(doc.readString(section, key, kDefault),
                                 reparsed.readString(section, key, kDefault));
            }
        }
    }

    void badInput_data()
    {
        QTest::addColumn<QByteArray>("file");
        QByteArray junk(1 << 16, Qt::Uninitialized);
        QRandomGenerator(7).fillRange(reinterpret_cast<quint32*>(junk.data()), junk.size() / 4);
        QByteArray sections;
        for (int i = 0; i < 100000; ++i)
            sections += "[Item " + QByteArray::number(i) + "]\nk=" + junk.mid(i % 9999, 50) + '\n';
        const QByteArray longText(100000, 'x');
        QTest::newRow("100000 sections") << sections;
        QTest::newRow("long line, no end") << '[' + longText + '=' + longText;
        QTest::newRow("duplicate sections") << "[s]\r\nk=1\r\n[S]\r\nK=2\r\n"_ba.repeated(20000);
    }
    // Bad input loads and stays editable (bench_settings times the large ones).
    void badInput()
    {
        QFETCH(QByteArray, file);
        ProfileDocument doc = ProfileDocument::fromBytes(file);
        QCOMPARE(doc.toBytes(), file);
        QVERIFY(doc.writeString(u"s", u"written", u"w"_s));
        doc.clearSection(u"Item 5");
        const ProfileDocument reparsed = ProfileDocument::fromBytes(doc.toBytes());
        QCOMPARE(reparsed.readString(u"s", u"written", kDefault), u"w"_s);
        QCOMPARE(reparsed.readString(u"Item 5", u"k", kDefault), kDefault);
    }

    void filesOnDisk()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"new.ini"_s);
        QCOMPARE(ProfileFile::readString(path, u"s", u"k", QString(300, u'd')), QString(254, u'd'));
        QVERIFY(!QFile::exists(path)); // reads never create the file
        QVERIFY(ProfileFile::writeString(path, u"General", u"Count", u"3"_s));
        QVERIFY(ProfileFile::writeString(path, u"Item 1", u"Holder", u"7"_s));
        QCOMPARE(readFile(path), "[General]\r\nCount=3\r\n[Item 1]\r\nHolder=7\r\n"_ba);
        QCOMPARE(ProfileFile::readString(path, u"item 1", u"HOLDER", kDefault), u"7"_s);
        QVERIFY(ProfileFile::clearSection(path, u"general"));
        QCOMPARE(readFile(path), "[General]\r\n[Item 1]\r\nHolder=7\r\n"_ba);
        QVERIFY(QFileInfo(path).permissions() & QFileDevice::ReadOther); // not a private file
        // Nothing to change: false, and the file is left alone.
        const QDateTime old = QDateTime::currentDateTimeUtc().addDays(-3);
        QFile handle(path);
        QVERIFY(handle.open(QIODevice::ReadWrite)
                && handle.setFileTime(old, QFile::FileModificationTime));
        QVERIFY(!ProfileFile::writeString(path, u"ITEM 1", u"holder", u"7"_s));
        QVERIFY(!ProfileFile::clearSection(path, u"general"));
        QCOMPARE(QFileInfo(path).lastModified().toUTC(), old); // not even written again
    }

    // A failed save returns false and leaves what was there, temporary files included.
    void saveFailures()
    {
        QTemporaryDir dir;
        const ProfileDocument doc = ProfileDocument::fromBytes("[s]\r\nk=v\r\n"_ba);
        QVERIFY(!doc.save(dir.filePath(u"no/such/folder/x.ini"_s)));
        QVERIFY(!doc.save(dir.path()));
        QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), {});
        // Files in a folder where nobody, not even root, can create a file.
        QVERIFY(!doc.save(u"/proc/version"_s));
        QVERIFY(!ProfileFile::writeString(u"/proc/spinlane-test.ini"_s, u"s", u"k", u"v"_s));

        // In a folder that forbids new files (a shared console folder): a read-only file; a file
        // that cannot be read, so must not be replaced by one built from nothing; and a file that
        // may be written, which is written in place as no temporary file can be made beside it.
        const QString folder = dir.filePath(u"ro"_s);
        const QString readOnly = dir.filePath(u"ro.ini"_s), writeOnly = dir.filePath(u"wo.ini"_s);
        const QString writable = folder + u"/x.ini"_s;
        for (const QString& path : {readOnly, writeOnly, writable})
            writeFile(path, "old"_ba);
        QVERIFY(QFile::setPermissions(readOnly, QFile::ReadOwner | QFile::ReadOther));
        QVERIFY(QFile::setPermissions(writeOnly, QFile::WriteOwner | QFile::WriteOther));
        QTemporaryDir home;
        bool saved = false, written = false;
        {
            const UnwritableFolder shared(folder, home.path());
            QVERIFY(!doc.save(readOnly));
            written = ProfileFile::writeString(writeOnly, u"s", u"k", u"v"_s);
            saved = doc.save(writable);
        }
        QVERIFY(!written);
        QVERIFY(saved);
        for (const QString& path : {readOnly, writeOnly})
            QCOMPARE(readFile(path), "old"_ba);
        QCOMPARE(readFile(writable), "[s]\r\nk=v\r\n"_ba);
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{u"x.ini"_s});
    }

    // A writer killed at any moment leaves the old file or the new one, never a mixture.
    void saveSurvivesKill()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"settings.ini"_s);
        const QByteArray a = largeDocument('A'), b = largeDocument('B');
        QVERIFY(ProfileDocument::fromBytes(a).save(path));
        for (int round = 0; round < 20; ++round) {
            QProcess writer;
            writer.start(QCoreApplication::applicationFilePath(),
                         {QString::fromLatin1(kSaveLoopArgument), path});
            QVERIFY(writer.waitForReadyRead(10000) && writer.readLine() == "ready\n");
            QThread::msleep(unsigned(round)); // one save takes several ms: kill it at any point
            writer.kill();
            QVERIFY(writer.waitForFinished(10000));
            const QByteArray left = readFile(path);
            QVERIFY2(left == a || left == b,
                     qPrintable(u"round %1: %2 bytes"_s.arg(round).arg(left.size())));
        }
    }
};

int main(int argc, char** argv)
{
    if (argc == 3 && qstrcmp(argv[1], kSaveLoopArgument) == 0)
        saveLoop(QString::fromLocal8Bit(argv[2]));
    QCoreApplication app(argc, argv);
    TestProfileFile test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_profilefile.moc"
