// spinlane-ini: reads and changes Spinlane's settings file from scripts, with the same engine
// and the same reading rule as the program, so the two never disagree about the file.

#include "core/CommandLine.h"
#include "core/Conversions.h"
#include "core/ProfileFile.h"
#include "core/RuntimeError.h"
#include "core/TextTable.h"
#include "queue/SettingsFile.h"
#include "core/Console.h"

#include <QCoreApplication>
#include <QFileInfo>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::console;

namespace {

enum ExitCode { Success = 0, Failure = 1, Usage = 2 };

const char kUsage[] = "usage: spinlane-ini get FILE SECTION KEY [DEFAULT]\n"
                      "       spinlane-ini set FILE SECTION KEY VALUE\n"
                      "       spinlane-ini clear FILE SECTION\n"
                      "       spinlane-ini queue FILE\n"
                      "       spinlane-ini --help | --version\n"
                      "\n"
                      "get    prints one value as Spinlane reads it (trimmed, at most 254 "
                      "characters;\n"
                      "       DEFAULT, or nothing, when the key is missing)\n"
                      "set    writes one key, in place when it exists\n"
                      "clear  empties a section (every section of that name); its header stays\n"
                      "queue  prints the queue held in the file as a table\n";

int fail(const QString& message)
{
    err() << "spinlane-ini: " << message << Qt::endl;
    return Failure;
}

int save(const ProfileDocument& file, const QString& path)
{
    QString reason;
    if (file.isModified() && !file.save(path, &reason))
        return fail(u"cannot write "_s + path + u": "_s + reason);
    return Success;
}

int printQueue(const ProfileDocument& file)
{
    std::vector<QStringList> rows{{u"No."_s, u"Item S/N"_s, u"Sample Pos."_s, u"Sample Name"_s,
                                   u"Exp. Index"_s, u"User ID"_s, u"Status"_s}};
    const qint32 total = settings::readTotalQueueItems(file);
    for (qint32 i = 1; i <= total; ++i) {
        const QueueItem item = settings::readQueueItem(file, i);
        rows.push_back({formatQueueNumber(i), item.ItemSN, QString::number(item.SampleNum),
                        item.SampleName, QString::number(item.ExpTitleIndex), item.UserID,
                        item.Status});
    }
    out() << textTable(rows);
    return Success;
}

int run(const QStringList& args)
{
    const QString command = args.value(0);
    const qsizetype count = args.size();
    const bool knownShape =
        (command == u"get"_s && (count == 4 || count == 5)) || (command == u"set"_s && count == 5)
        || (command == u"clear"_s && count == 3) || (command == u"queue"_s && count == 2);
    if (!knownShape) {
        err() << kUsage;
        return Usage;
    }

    const QString path = args[1];
    if (!QFileInfo(path).isFile())
        return fail(path + u": no such file"_s);
    ProfileDocument file = ProfileDocument::load(path);

    if (command == u"get"_s) {
        out() << settings::readText(file, args[2], args[3], args.value(4)) << '\n';
        return Success;
    }
    if (command == u"set"_s) {
        file.writeString(args[2], args[3], args[4]);
        return save(file, path);
    }
    if (command == u"clear"_s) {
        file.clearSection(args[2]);
        return save(file, path);
    }
    return printQueue(file);
}

} // namespace

int main(int argc, char* argv[])
{
    if (const auto answered =
            answerHelpOrVersion(argc, argv, u"spinlane-ini"_s, QString::fromUtf8(kUsage)))
        return *answered;
    QCoreApplication app(argc, argv);
    try {
        return run(QCoreApplication::arguments().mid(1));
    } catch (const RuntimeError& error) {
        return fail(QString(runtimeErrorText(error)).replace(u"\r\n\r\n"_s, u" "_s));
    }
}
