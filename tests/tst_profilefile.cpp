#include "app/ProfileFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
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

namespace {

const QString kDefault = u"<default>"_s;
const char kSaveLoopArgument[] = "--save-loop";

QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void putFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
}

// A settings file as Spinlane keeps it: a General section and ten keys per queue item. The
// values of `changedItem` are one higher.
QByteArray settingsFile(int items, int changedItem = 0)
{
    QByteArray bytes = "[General]\r\nQueueCount="_ba + QByteArray::number(items) + "\r\n\r\n";
    for (int i = 1; i <= items; ++i) {
        bytes += "[Item " + QByteArray::number(i) + "]\r\n";
        for (int k = 0; k < 10; ++k) {
            bytes += "Key" + QByteArray::number(k) + "=Value "
                     + QByteArray::number(i * k + (i == changedItem)) + "\r\n";
        }
        bytes += "\r\n";
    }
    return bytes;
}

// A document of several MB; the two variants differ in every section and in length.
QByteArray largeDocument(char variant)
{
    const int sections = variant == 'A' ? 1000 : 800;
    const QByteArray value(4000, variant);
    QByteArray bytes;
    for (int i = 0; i < sections; ++i)
        bytes += "[Block " + QByteArray::number(i) + "]\r\nData=" + value + "\r\n";
    return bytes;
}

// The child side of saveSurvivesKill: saves B and A in turn until it is killed.
[[noreturn]] void saveLoop(const QString& path)
{
    const ProfileDocument documents[] = {ProfileDocument::fromBytes(largeDocument('B')),
                                         ProfileDocument::fromBytes(largeDocument('A'))};
    for (unsigned i = 0;; ++i) {
        documents[i % 2].save(path);
        if (i == 0) {
            std::fputs("ready\n", stdout);
            std::fflush(stdout);
        }
    }
}

} // namespace

class TestProfileFile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void reading_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("section");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("expected");
        const QString s = u"s"_s, k = u"k"_s;
        QTest::newRow("CRLF") << "[s]\r\nk=v\r\n"_ba << s << k << u"v"_s;
        QTest::newRow("LF only") << "[s]\nj=1\nk=v\n"_ba << s << k << u"v"_s;
        QTest::newRow("CR only") << "[s]\rj=1\rk=v\r"_ba << s << k << u"v"_s;
        QTest::newRow("no final line end") << "[s]\r\nk=v"_ba << s << k << u"v"_s;
        QTest::newRow("blank lines") << "\r\n\n[s]\r\n\r\n\n\rk=v"_ba << s << k << u"v"_s;
        QTest::newRow("BOM skipped") << "\xEF\xBB\xBFk=v\r\n"_ba << u""_s << k << u"v"_s;
        QTest::newRow("blanks trimmed")
            << " \t[s]\v\f\r\n\x1A k \t= \t v \x1A\f"_ba << s << k << u"v"_s;
        QTest::newRow("header name trimmed") << "[ s\t]\r\nk=v"_ba << s << k << u"v"_s;
        QTest::newRow("header to last bracket") << "[a]b]\r\nk=v"_ba << u"a]b"_s << k << u"v"_s;
        QTest::newRow("text after header") << "[s] ; x\r\nk=v"_ba << s << k << u"v"_s;
        QTest::newRow("unclosed header is entry") << "[s=1\r\n"_ba << u""_s << u"[s"_s << u"1"_s;
        QTest::newRow("first = splits") << "[s]\r\nk==x=y"_ba << s << k << u"=x=y"_s;
        QTest::newRow("blanks inside name kept")
            << "[s]\r\nA  B = v"_ba << s << u"a  b"_s << u"v"_s;
        QTest::newRow("blanks inside must match")
            << "[s]\r\nA  B = v"_ba << s << u"A B"_s << kDefault;
        QTest::newRow("no = gives default") << "[s]\r\nk\r\n"_ba << s << k << kDefault;
        QTest::newRow("empty value") << "[s]\r\nk=\r\n"_ba << s << k << u""_s;
        QTest::newRow("comment is an entry") << "[s]\r\n; c=1"_ba << s << u"; c"_s << u"1"_s;
        QTest::newRow("no inline comment") << "[s]\r\nk=v ; c"_ba << s << k << u"v ; c"_s;
        QTest::newRow("NUL ends value") << "[s]\r\nk=v\0w\r\n"_ba << s << k << u"v"_s;
        QTest::newRow("NUL before =") << "[s]\r\nk\0=v\r\n"_ba << s << k << kDefault;
        QTest::newRow("NUL ends only its line") << "[s]\r\nj=\0\r\nk=v"_ba << s << k << u"v"_s;
        QTest::newRow("NUL cuts header") << "[s\0]\r\nk=v"_ba << u""_s << k << u"v"_s;
        QTest::newRow("before first header") << "k=v\r\n[s]\r\nk=w"_ba << u""_s << k << u"v"_s;
        QTest::newRow("case of names")
            << "[GeNeRaL]\r\nSample Name=v"_ba << u"gENERAL"_s << u"SAMPLE NAME"_s << u"v"_s;
        QTest::newRow("requested names trimmed")
            << "[s]\r\nk=v"_ba << u" s\t"_s << u"\tk "_s << u"v"_s;
        QTest::newRow("requested name ends at NUL") << "[s]\r\nk=v"_ba << s << u"k\0x"_s << u"v"_s;
        QTest::newRow("only first section") << "[s]\r\nj=1\r\n[S]\r\nk=2"_ba << s << k << kDefault;
        QTest::newRow("first key wins") << "[s]\r\nk=1\r\nK=2"_ba << s << k << u"1"_s;
        QTest::newRow("missing section") << "[s]\r\nk=1"_ba << u"t"_s << k << kDefault;
        QTest::newRow("UTF-8") << "[s]\r\nk=Caf\xC3\xA9"_ba << s << k << u"Caf\u00E9"_s;
        QTest::newRow("Latin-1") << "[s]\r\nk=Caf\xE9"_ba << s << k << u"Caf\u00E9"_s;
        QTest::newRow("overlong UTF-8 is Latin-1")
            << "[s]\r\nk=\xC0\xAF"_ba << s << k << u"\u00C0\u00AF"_s;
        QTest::newRow("Latin-1 names, any case")
            << "[Men\xFC]\r\nGr\xF6\xDF"
               "e=1"_ba
            << u"MEN\u00DC"_s << u"gR\u00D6\u00DFE"_s << u"1"_s;
        QTest::newRow("empty file") << ""_ba << u""_s << u""_s << kDefault;
    }
    void reading()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, section);
        QFETCH(QString, key);
        QFETCH(QString, expected);
        const ProfileDocument doc = ProfileDocument::fromBytes(file);
        QCOMPARE(doc.readString(section, key, kDefault), expected);
        QCOMPARE(doc.toBytes(), file);
        QVERIFY(!doc.isModified());
    }

    void quotes_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QString>("expected");
        QTest::newRow("double") << "\"dq\""_ba << u"dq"_s;
        QTest::newRow("single") << "'sq'"_ba << u"sq"_s;
        QTest::newRow("empty") << "\"\""_ba << u""_s;
        QTest::newRow("blanks inside kept") << "\"  x  \""_ba << u"  x  "_s;
        QTest::newRow("once") << "\"\"x\"\""_ba << u"\"x\""_s;
        QTest::newRow("blanks outside trimmed first") << "\"x\" \t"_ba << u"x"_s;
        QTest::newRow("lone quote") << "\""_ba << u"\""_s;
        QTest::newRow("mismatched") << "\"x'"_ba << u"\"x'"_s;
        QTest::newRow("opening only") << "'x"_ba << u"'x"_s;
        QTest::newRow("closing only") << "x\""_ba << u"x\""_s;
    }
    void quotes()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QString, expected);
        const ProfileDocument doc = ProfileDocument::fromBytes("[s]\r\nk=" + stored + "\r\n");
        QCOMPARE(doc.value(u"s", u"k").value_or(kDefault), expected);
        QCOMPARE(doc.readString(u"s", u"k", kDefault), expected);
    }

    void readLimit()
    {
        const QString a300(300, u'a');
        const QString smile = u"\U0001F600"_s;
        auto read = [](const QByteArray& value) {
            return ProfileDocument::fromBytes("[s]\r\nk=" + value).readString(u"s", u"k", kDefault);
        };
        QCOMPARE(read(a300.toLatin1()), a300.left(254));
        QCOMPARE(read(a300.left(255).toLatin1()), a300.left(254));
        QCOMPARE(read(a300.left(254).toLatin1()), a300.left(254));
        QCOMPARE(read('"' + a300.left(256).toLatin1() + '"'), a300.left(254));
        const QString e300(300, u'\u00E9');
        QCOMPARE(read(e300.toUtf8()), e300.left(254)); // characters, not bytes
        // A surrogate pair is never split.
        QCOMPARE(read((a300.left(253) + smile + u"b"_s).toUtf8()), a300.left(253));
        QCOMPARE(read((a300.left(252) + smile + u"b"_s).toUtf8()), a300.left(252) + smile);
        // value() gives the whole value; defaults are cut the same way.
        QCOMPARE(ProfileDocument::fromBytes("[s]\r\nk=" + a300.toLatin1())
                     .value(u"s", u"k")
                     .value_or(kDefault),
                 a300);
        QCOMPARE(ProfileDocument().readString(u"s", u"k", a300), a300.left(254));
    }

    void missingValues()
    {
        const ProfileDocument doc = ProfileDocument::fromBytes("[s]\r\nnone\r\nempty=\r\n"_ba);
        QVERIFY(!doc.value(u"s", u"none"));
        QVERIFY(!doc.value(u"s", u"missing"));
        QVERIFY(!doc.value(u"t", u"none"));
        QCOMPARE(doc.value(u"s", u"empty").value_or(kDefault), u""_s);

        QTemporaryDir dir;
        const QString path = dir.filePath(u"missing.ini"_s);
        QCOMPARE(ProfileFile::readString(path, u"s", u"k", kDefault), kDefault);
        QCOMPARE(ProfileDocument::load(path).toBytes(), QByteArray());
        QCOMPARE(ProfileFile::readString(dir.path(), u"s", u"k", kDefault), kDefault);
        QVERIFY(!QFile::exists(path)); // reads never create the file
    }

    void writeString_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("section");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QByteArray>("expected");
        QTest::addColumn<QString>("readBack");
        const QString s = u"s"_s, k = u"k"_s, v = u"v"_s;
        QTest::newRow("in place: spelling kept")
            << "[General]\r\nSample Name=old\r\n"_ba << u"GENERAL"_s << u"sample name"_s << v
            << "[General]\r\nSample Name=v\r\n"_ba << v;
        QTest::newRow("in place: blanks dropped") << "[s]\r\n  k \t=  old\r\nj=1\r\n"_ba << s << k
                                                  << v << "[s]\r\nk=v\r\nj=1\r\n"_ba << v;
        QTest::newRow("in place: terminator kept")
            << "[s]\nk=o\n\r\n\n[t]\n"_ba << s << k << v << "[s]\nk=v\n\r\n\n[t]\n"_ba << v;
        QTest::newRow("in place: last line")
            << "[s]\r\nk=old"_ba << s << k << v << "[s]\r\nk=v"_ba << v;
        QTest::newRow("in place: key without =")
            << "[s]\r\nk\r\n"_ba << s << k << v << "[s]\r\nk=v\r\n"_ba << v;
        QTest::newRow("in place: value blanks")
            << "[s]\r\nk=o\r\n"_ba << s << k << u" \tv  "_s << "[s]\r\nk=v  \r\n"_ba << v;
        QTest::newRow("in place: first duplicate")
            << "[s]\r\nk=1\r\nk=2\r\n[s]\r\nk=3\r\n"_ba << s << k << v
            << "[s]\r\nk=v\r\nk=2\r\n[s]\r\nk=3\r\n"_ba << v;
        QTest::newRow("in place: UTF-8 beside Latin-1 name")
            << "[s]\r\nGr\xF6\xDF"
               "e=1\r\n"_ba
            << s << u"GR\u00D6\u00DFE"_s << u"\u00B5"_s
            << "[s]\r\nGr\xF6\xDF"
               "e=\xC2\xB5\r\n"_ba
            << u"\u00B5"_s;
        QTest::newRow("new key: after last entry")
            << "[s]\r\na=1\r\n[t]\r\nb=2\r\n"_ba << s << k << v
            << "[s]\r\na=1\r\nk=v\r\n[t]\r\nb=2\r\n"_ba << v;
        QTest::newRow("new key: after comment")
            << "[s]\r\na=1\r\n; end\r\n[t]\r\n"_ba << s << k << v
            << "[s]\r\na=1\r\n; end\r\nk=v\r\n[t]\r\n"_ba << v;
        QTest::newRow("new key: before blank lines")
            << "[s]\r\na=1\r\n\r\n\r\n[t]\r\n"_ba << s << k << v
            << "[s]\r\na=1\r\nk=v\r\n\r\n\r\n[t]\r\n"_ba << v;
        QTest::newRow("new key: LF blank line")
            << "[s]\na\n\n[t]\n"_ba << s << k << v << "[s]\na\nk=v\r\n\n[t]\n"_ba << v;
        QTest::newRow("new key: before blanks-only line")
            << "[s]\r\na=1\r\n \t\r\n[t]\r\n"_ba << s << k << v
            << "[s]\r\na=1\r\nk=v\r\n \t\r\n[t]\r\n"_ba << v;
        QTest::newRow("new key: empty section")
            << "[s]\r\n\r\n[t]\r\n"_ba << s << k << v << "[s]\r\nk=v\r\n\r\n[t]\r\n"_ba << v;
        QTest::newRow("new key: unterminated")
            << "[s]\r\na=1"_ba << s << k << v << "[s]\r\na=1\r\nk=v\r\n"_ba << v;
        QTest::newRow("new key: spelled as given")
            << "[s]\r\n"_ba << u" S "_s << u" New Key\t"_s << v << "[s]\r\nNew Key=v\r\n"_ba << v;
        QTest::newRow("new key: first duplicate section")
            << "[s]\r\na=1\r\n[S]\r\nb=2\r\n"_ba << s << k << v
            << "[s]\r\na=1\r\nk=v\r\n[S]\r\nb=2\r\n"_ba << v;
        QTest::newRow("new key: before first header")
            << "\xEF\xBB\xBF[s]\r\n"_ba << u""_s << k << v << "\xEF\xBB\xBFk=v\r\n[s]\r\n"_ba << v;
        QTest::newRow("new section: empty file")
            << ""_ba << s << k << v << "[s]\r\nk=v\r\n"_ba << v;
        QTest::newRow("new section: no blank line added")
            << "[a]\r\nx=1\r\n"_ba << u"Sample Data"_s << k << v
            << "[a]\r\nx=1\r\n[Sample Data]\r\nk=v\r\n"_ba << v;
        QTest::newRow("new section: blank lines kept")
            << "[a]\nx=1\n\n"_ba << s << k << v << "[a]\nx=1\n\n[s]\r\nk=v\r\n"_ba << v;
        QTest::newRow("new section: unterminated")
            << "[a]\r\nx=1"_ba << s << k << v << "[a]\r\nx=1\r\n[s]\r\nk=v\r\n"_ba << v;
        QTest::newRow("new section: UTF-8 name") << ""_ba << u"Gr\u00F6\u00DFe"_s << k << v
                                                 << "[Gr\xC3\xB6\xC3\x9F"
                                                    "e]\r\nk=v\r\n"_ba
                                                 << v;
        QTest::newRow("line break: value") << "[s]\r\nk=o\r\n"_ba << s << k << u"a\r\nEvil=1\n"_s
                                           << "[s]\r\nk=a  Evil=1 \r\n"_ba << u"a  Evil=1"_s;
        QTest::newRow("line break: key")
            << ""_ba << s << u"k\n[x]"_s << v << "[s]\r\nk [x]=v\r\n"_ba << kDefault;
        QTest::newRow("line break: section")
            << ""_ba << u"s\r[x]"_s << k << v << "[s [x]]\r\nk=v\r\n"_ba << kDefault;
        QTest::newRow("NUL ends value")
            << ""_ba << s << k << u"a\0\r\nEvil=1"_s << "[s]\r\nk=a\r\n"_ba << u"a"_s;
        QTest::newRow("key reading as header") << "[s]\r\na=1\r\n"_ba << s << u"[x"_s << u"y]"_s
                                               << "[s]\r\na=1\r\n[x=y]\r\n"_ba << kDefault;
    }
    void writeString()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, section);
        QFETCH(QString, key);
        QFETCH(QString, value);
        QFETCH(QByteArray, expected);
        QFETCH(QString, readBack);
        ProfileDocument doc = ProfileDocument::fromBytes(file);
        QVERIFY(doc.writeString(section, key, value));
        QVERIFY(doc.isModified());
        QCOMPARE(doc.toBytes(), expected);
        QCOMPARE(doc.readString(section, key, kDefault), readBack);
        // The document reads as its bytes do.
        const ProfileDocument reparsed = ProfileDocument::fromBytes(expected);
        for (const QString& name : {u"a"_s, u"x"_s, u"Evil"_s, u"[x"_s, key}) {
            QCOMPARE(doc.readString(section, name, kDefault),
                     reparsed.readString(section, name, kDefault));
        }
    }

    void sameValueChangesNothing()
    {
        const QByteArray file =
            "[General]\r\n  Sample Name =  abc  \r\nq=\"x\"\r\nlatin=Caf\xE9\r\nempty=\r\n"
            "bare\n"_ba;
        ProfileDocument doc = ProfileDocument::fromBytes(file);
        QVERIFY(!doc.writeString(u"general", u"SAMPLE NAME", u"abc"_s));
        QVERIFY(!doc.writeString(u"general", u"Sample Name", u" \tabc"_s));
        QVERIFY(!doc.writeString(u"General", u"q", u"\"x\""_s));
        QVERIFY(!doc.writeString(u"General", u"latin", u"Caf\u00E9"_s));
        QVERIFY(!doc.writeString(u"General", u"empty", u""_s));
        QVERIFY(!doc.isModified());
        QCOMPARE(doc.toBytes(), file);

        QVERIFY(doc.writeString(u"General", u"Sample Name", u"ABC"_s)); // case counts
        QVERIFY(doc.writeString(u"General", u"q", u"x"_s)); // the stored quotes count
        QVERIFY(doc.writeString(u"General", u"bare", u""_s)); // a key without = differs
        QCOMPARE(doc.toBytes(),
                 "[General]\r\nSample Name=ABC\r\nq=x\r\nlatin=Caf\xE9\r\nempty=\r\nbare=\n"_ba);

        // On disk: nothing is written, not even the same bytes.
        QTemporaryDir dir;
        const QString path = dir.filePath(u"same.ini"_s);
        putFile(path, file);
        const QDateTime old = QDateTime::currentDateTimeUtc().addDays(-3);
        QFile handle(path);
        QVERIFY(handle.open(QIODevice::ReadWrite));
        QVERIFY(handle.setFileTime(old, QFileDevice::FileModificationTime));
        handle.close();
        QVERIFY(!ProfileFile::writeString(path, u"GENERAL", u"sample name", u"abc"_s));
        QVERIFY(!ProfileFile::clearSection(path, u"nothing"));
        QCOMPARE(QFileInfo(path).lastModified().toUTC(), old);
        QCOMPARE(fileBytes(path), file);
    }

    void filesOnDisk()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"new.ini"_s);
        QVERIFY(ProfileFile::writeString(path, u"General", u"QueueCount", u"3"_s));
        QVERIFY(ProfileFile::writeString(path, u"General", u"Owner", u"Ann"_s));
        QVERIFY(ProfileFile::writeString(path, u"Item 1", u"Holder", u"7"_s));
        QCOMPARE(fileBytes(path),
                 "[General]\r\nQueueCount=3\r\nOwner=Ann\r\n[Item 1]\r\nHolder=7\r\n"_ba);
        QCOMPARE(ProfileFile::readString(path, u"item 1", u"HOLDER", kDefault), u"7"_s);
        QVERIFY(ProfileFile::clearSection(path, u"general"));
        QCOMPARE(fileBytes(path), "[General]\r\n[Item 1]\r\nHolder=7\r\n"_ba);
        const auto permissions = QFileInfo(path).permissions();
        QVERIFY(permissions & QFileDevice::ReadOther); // not a private temporary file

        // Load and save give back every byte, BOM and line ends included.
        const QByteArray odd = "\xEF\xBB\xBF; c\n\n  [ a ] x\r\r k =  1 \n\0junk\r\nz"_ba;
        putFile(path, odd);
        QVERIFY(ProfileDocument::load(path).save(path));
        QCOMPARE(fileBytes(path), odd);

        // A folder where the file should be is neither read nor replaced.
        QVERIFY(QDir(dir.path()).mkdir(u"folder.ini"_s));
        QVERIFY(!ProfileFile::writeString(dir.filePath(u"folder.ini"_s), u"s", u"k", u"v"_s));
        QVERIFY(QFileInfo(dir.filePath(u"folder.ini"_s)).isDir());
    }

    void clearSection()
    {
        const QByteArray file = "; top\r\n[Data]\r\na=1\r\n; note\r\nbare\r\n\r\n[Other]\r\nb=2\r\n"
                                "[DATA]\r\nc=3\r\n"_ba;
        ProfileDocument doc = ProfileDocument::fromBytes(file);
        QVERIFY(!doc.clearSection(u"Missing"));
        QVERIFY(!doc.isModified());
        QCOMPARE(doc.toBytes(), file);

        QVERIFY(doc.clearSection(u" data "));
        QVERIFY(doc.isModified());
        QCOMPARE(doc.toBytes(), "; top\r\n[Data]\r\n\r\n[Other]\r\nb=2\r\n[DATA]\r\n"_ba);
        QCOMPARE(doc.readString(u"Data", u"a", kDefault), kDefault);
        QCOMPARE(doc.readString(u"Data", u"c", kDefault), kDefault);
        QCOMPARE(doc.readString(u"Other", u"b", kDefault), u"2"_s);
        QVERIFY(!doc.clearSection(u"Data")); // already empty

        QVERIFY(doc.writeString(u"data", u"x", u"1"_s));
        QVERIFY(doc.writeString(u"data", u"y", u"2"_s));
        QCOMPARE(doc.toBytes(),
                 "; top\r\n[Data]\r\nx=1\r\ny=2\r\n\r\n[Other]\r\nb=2\r\n[DATA]\r\n"_ba);

        QVERIFY(doc.clearSection(u""));
        QCOMPARE(doc.toBytes(), "[Data]\r\nx=1\r\ny=2\r\n\r\n[Other]\r\nb=2\r\n[DATA]\r\n"_ba);
    }

    void untouchedLinesKeepBytes()
    {
        const QByteArray file = "; Spinlane settings\n\n[General]\n\tIndented = yes ; really\n"
                                "Spacing  =  wide   \nSolvent=CDCl3\n\n\n; tail comment\n"
                                "[Item 1]\r\n   Holder=1\r\n"_ba;
        ProfileDocument doc = ProfileDocument::fromBytes(file);
        QVERIFY(doc.writeString(u"General", u"solvent", u"D2O"_s));
        QVERIFY(doc.writeString(u"General", u"New", u"n"_s));
        QVERIFY(doc.writeString(u"Item 1", u"Owner", u"o"_s));
        QCOMPARE(doc.toBytes(), "; Spinlane settings\n\n[General]\n\tIndented = yes ; really\n"
                                "Spacing  =  wide   \nSolvent=D2O\n\n\n; tail comment\n"
                                "New=n\r\n[Item 1]\r\n   Holder=1\r\nOwner=o\r\n"_ba);
    }

    // Random edits of awkward documents: after each one the document must read exactly as a
    // fresh parse of its bytes does.
    void documentReadsAsItsBytes()
    {
        const QList<QByteArray> pieces = {"[s]",         "[ S ]",    "[t]x", "[",  "k=1",
                                          " K = \"2\" ", "k",        "; c",  "=e", "[u=v]",
                                          "j=\xE9",      "\0k=3"_ba, "",     " \t"};
        const QList<QByteArray> ends = {"\r\n", "\n", "\r", "\r\n\r\n", "\n\n\n", ""};
        const QStringList names = {u"s"_s,  u"T"_s,   u""_s,    u"k"_s,   u"j"_s,    u"[u"_s,
                                   u"x]"_s, u"a=b"_s, u" k "_s, u"; c"_s, u"n\ne"_s, u"u"_s};
        const QStringList values = {u"1"_s,
                                    u"\"q\""_s,
                                    u" lead"_s,
                                    u"trail "_s,
                                    u""_s,
                                    u"a\r\nk=9"_s,
                                    u"\u00E9\U0001F600"_s,
                                    u"v]"_s};
        QRandomGenerator random(20240611);
        auto pick = [&random](const auto& l) { return l.at(random.bounded(int(l.size()))); };
        for (int round = 0; round < 200; ++round) {
            QByteArray file;
            for (int i = random.bounded(8); i >= 0; --i)
                file += pick(pieces) + pick(ends);
            ProfileDocument doc = ProfileDocument::fromBytes(file);
            for (int step = 0; step < 6; ++step) {
                if (random.bounded(5) == 0)
                    doc.clearSection(pick(names));
                else
                    doc.writeString(pick(names), pick(names), pick(values));
                const ProfileDocument reparsed = ProfileDocument::fromBytes(doc.toBytes());
                for (const QString& section : names) {
                    for (const QString& key : names) {
                        QCOMPARE(doc.value(section, key).value_or(kDefault),
                                 reparsed.value(section, key).value_or(kDefault));
                    }
                }
            }
        }
    }

    void valueSemantics()
    {
        ProfileDocument original = ProfileDocument::fromBytes("[s]\r\nk=1\r\n"_ba);
        ProfileDocument copy = original;
        QVERIFY(copy.writeString(u"s", u"k", u"2"_s));
        QVERIFY(copy.writeString(u"t", u"k", u"3"_s));
        QCOMPARE(original.toBytes(), "[s]\r\nk=1\r\n"_ba);
        QVERIFY(!original.isModified());
        original = std::move(copy);
        QCOMPARE(original.readString(u"t", u"k", kDefault), u"3"_s);
        QCOMPARE(original.toBytes(), "[s]\r\nk=2\r\n[t]\r\nk=3\r\n"_ba);
    }

    void badInput_data()
    {
        QTest::addColumn<QByteArray>("file");
        QRandomGenerator random(7);
        QByteArray junk(1 << 16, Qt::Uninitialized);
        random.fillRange(reinterpret_cast<quint32*>(junk.data()), junk.size() / 4);
        const QByteArray longText(100000, 'x');
        QByteArray large;
        while (large.size() < 10'000'000) {
            const int n = int(large.size());
            large += "[Item " + QByteArray::number(n % 977) + "]\r\nSample="
                     + longText.left(n % 200) + "\n" + junk.mid(n % 60000, 300) + "\r\n\r\n";
        }
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("BOM only") << "\xEF\xBB\xBF"_ba;
        QTest::newRow("binary junk") << junk;
        QTest::newRow("10 MB") << large;
        QTest::newRow("long value") << "[s]\r\nk=" + longText + "\r\n";
        QTest::newRow("long unclosed header") << '[' + longText + "\r\n[s]\r\nk=1";
        QTest::newRow("long line, no end") << longText + '=' + longText;
        QTest::newRow("NUL bytes") << QByteArray(5000, '\0') + "\r\n[s]\0\r\n\0k=1"_ba;
        QTest::newRow("duplicates") << "[s]\r\nk=1\r\n[S]\r\nK=2\r\n"_ba.repeated(20000);
        QTest::newRow("line ends only") << "\r\n\n\r\r"_ba.repeated(50000);
        QTest::newRow("CR-only lines") << "[s]\rk=1\r"_ba.repeated(30000);
        QTest::newRow("brackets") << "[\r\n]\r\n[]\r\n[=]\r\n=\r\n]["_ba;
    }
    void badInput()
    {
        QFETCH(QByteArray, file);
        QElapsedTimer timer;
        timer.start();
        ProfileDocument doc = ProfileDocument::fromBytes(file);
        QCOMPARE(doc.toBytes(), file);
        QCOMPARE(doc.readString(u"nowhere", u"k", kDefault), kDefault);
        QVERIFY(doc.readString(u"s", u"k", kDefault).size() <= kProfileValueMaxChars);
        QVERIFY(doc.writeString(u"s", u"written", u"w"_s));
        QVERIFY(doc.writeString(u"", u"top", u"t"_s));
        doc.clearSection(u"Item 5");
        const ProfileDocument reparsed = ProfileDocument::fromBytes(doc.toBytes());
        QCOMPARE(reparsed.readString(u"s", u"written", kDefault), u"w"_s);
        QCOMPARE(reparsed.readString(u"", u"top", kDefault), u"t"_s);
        QCOMPARE(reparsed.readString(u"Item 5", u"Sample", kDefault), kDefault);
        QVERIFY2(timer.elapsed() < 3000, qPrintable(u"%1 ms"_s.arg(timer.elapsed())));
    }

    // Guards against work that grows faster than the file (the target is well under 10 ms).
    void largeSettingsFile()
    {
        const QByteArray file = settingsFile(999);
        QElapsedTimer timer;
        timer.start();
        const ProfileDocument doc = ProfileDocument::fromBytes(file);
        for (int i = 1; i <= 999; ++i) {
            for (int k = 0; k < 10; ++k) {
                QCOMPARE(doc.readString(u"Item %1"_s.arg(i), u"KEY%1"_s.arg(k), kDefault),
                         u"Value %1"_s.arg(i * k));
            }
        }
        ProfileDocument changed = doc;
        for (int i = 1; i <= 999; ++i) {
            for (int k = 0; k < 10; ++k) {
                changed.writeString(u"Item %1"_s.arg(i), u"Key%1"_s.arg(k),
                                    u"Value %1"_s.arg(i * k + (i == 500)));
            }
        }
        changed.writeString(u"Item 999", u"Added", u"1"_s);
        const QByteArray saved = changed.toBytes();
        QVERIFY2(timer.elapsed() < 500, qPrintable(u"%1 ms"_s.arg(timer.elapsed())));
        QCOMPARE(saved, settingsFile(999, 500).replace("Key9=Value 8991\r\n",
                                                       "Key9=Value 8991\r\nAdded=1\r\n"));
    }

    void saveFailures()
    {
        QTemporaryDir dir;
        const ProfileDocument doc = ProfileDocument::fromBytes("[s]\r\nk=v\r\n"_ba);
        QVERIFY(!doc.save(dir.filePath(u"no/such/folder/x.ini"_s)));
        QVERIFY(!QFileInfo::exists(dir.filePath(u"no"_s)));
        const QString plainFile = dir.filePath(u"plain"_s);
        putFile(plainFile, "old"_ba);
        QVERIFY(!doc.save(plainFile + u"/x.ini"_s));
        QVERIFY(!doc.save(dir.path()));
        QCOMPARE(fileBytes(plainFile), "old"_ba);
        // A file in a folder where nobody, not even root, can create a file.
        const QByteArray version = fileBytes(u"/proc/version"_s);
        QVERIFY(!version.isEmpty());
        QVERIFY(!doc.save(u"/proc/version"_s));
        QCOMPARE(fileBytes(u"/proc/version"_s), version);
        QVERIFY(!ProfileFile::writeString(u"/proc/spinlane-test.ini"_s, u"s", u"k", u"v"_s));
    }

    void saveFailuresFromPermissions()
    {
        if (geteuid() == 0)
            QSKIP("Permission bits do not stop root");
        QTemporaryDir dir;
        const ProfileDocument doc = ProfileDocument::fromBytes("[s]\r\nk=v\r\n"_ba);
        const QString readOnlyFile = dir.filePath(u"ro.ini"_s);
        putFile(readOnlyFile, "old"_ba);
        QVERIFY(QFile::setPermissions(readOnlyFile, QFileDevice::ReadOwner));
        QVERIFY(!doc.save(readOnlyFile));
        QVERIFY(!ProfileFile::writeString(readOnlyFile, u"s", u"k", u"v"_s));
        QCOMPARE(fileBytes(readOnlyFile), "old"_ba);
        // A file that cannot be read is not replaced by one built from nothing.
        const QString writeOnlyFile = dir.filePath(u"wo.ini"_s);
        putFile(writeOnlyFile, "[s]\r\nk=old\r\n"_ba);
        QVERIFY(QFile::setPermissions(writeOnlyFile, QFileDevice::WriteOwner));
        QVERIFY(!ProfileFile::writeString(writeOnlyFile, u"s", u"j", u"v"_s));
        QVERIFY(QFile::setPermissions(writeOnlyFile, QFileDevice::ReadOwner));
        QCOMPARE(fileBytes(writeOnlyFile), "[s]\r\nk=old\r\n"_ba);

        const QString folder = dir.filePath(u"ro"_s);
        QVERIFY(QDir(dir.path()).mkdir(u"ro"_s));
        const QString inFolder = folder + u"/x.ini"_s;
        putFile(inFolder, "old"_ba);
        QVERIFY(QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner));
        QVERIFY(!doc.save(inFolder));
        QCOMPARE(fileBytes(inFolder), "old"_ba);
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{u"x.ini"_s});
        QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner
                                          | QFileDevice::ExeOwner);
    }

    // A writer killed at any moment leaves the old file or the new one, never a mixture.
    void saveSurvivesKill()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"settings.ini"_s);
        const QByteArray a = largeDocument('A'), b = largeDocument('B');
        QElapsedTimer timer;
        timer.start();
        QVERIFY(ProfileDocument::fromBytes(a).save(path));
        const qint64 saveMicroseconds = std::max<qint64>(timer.nsecsElapsed() / 1000, 1000);

        int sawA = 0, sawB = 0;
        for (int round = 0; round < 20; ++round) {
            QProcess writer;
            writer.start(QCoreApplication::applicationFilePath(),
                         {QString::fromLatin1(kSaveLoopArgument), path});
            QVERIFY(writer.waitForReadyRead(10000));
            QCOMPARE(writer.readLine(), "ready\n"_ba);
            QThread::usleep(static_cast<unsigned long>(saveMicroseconds * round / 10));
            writer.kill();
            QVERIFY(writer.waitForFinished(10000));
            const QByteArray left = fileBytes(path);
            QVERIFY2(left == a || left == b,
                     qPrintable(u"round %1: %2 bytes"_s.arg(round).arg(left.size())));
            (left == a ? sawA : sawB)++;
        }
        qInfo("one save: %lld us; after the kills: A %d times, B %d times", saveMicroseconds, sawA,
              sawB);
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
