#include "settings/Settings.h"

#include "core/AtomicFile.h"
#include "core/Conversions.h"
#include "core/ProfileFile.h"
#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "core/SingleInstance.h"
#include "core/Startup.h"
#include "core/reg_docs.h"
#include "queue/QueueStore.h"
#include "queue/SettingsFile.h"
#include "settings/RecoveryJournal.h"

#include <QFile>

using namespace Qt::StringLiterals;
using namespace spinlane::settings;

namespace spinlane {

namespace {

bool sameText(const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) == 0; }

QString versionMismatchLine()
{
    return u"Versions of initialization ("_s + gIniVersion + u")"_s + u" and excutable ("_s
           + gExeVersion + u")"_s + u" files do not match each other."_s;
}

// The copy keeps the file's bytes; an existing copy of that name is replaced.
void backUpSettingsFile()
{
    if (gIniPath.size() < 4)
        throw RuntimeError(RuntimeError::InvalidProcedureCall);
    const QString backupPath = gIniPath.left(gIniPath.size() - 4) + u'_' + gIniVersion + u".INI"_s;
    QFile source(gIniPath);
    if (!source.open(QIODevice::ReadOnly))
        throw RuntimeError(RuntimeError::FileNotFound);
    if (!writeFileAtomically(backupPath, source.readAll()))
        throw RuntimeError(RuntimeError::PathFileAccessError);
}

// Every setting but the version and the password, and the queue.
void readState(const ProfileDocument& file)
{
    gAlwaysOnTop = toBoolean(readText(file, kGeneral, kAlwaysOnTop, u"True"_s));
    gExpQueueOnly = toBoolean(readText(file, kGeneral, kExpQueueOnly, u"False"_s));
    gSampleControl = toInt16(readNumber(file, kGeneral, kSampleControl, u"1"_s));
    gQueueLayout = toInt16(readNumber(file, kGeneral, kQueueLayout, u"1"_s));
    gCurrentQueueNum = toInt32(readNumber(file, kGeneral, kCurrentQueueNum, u"0"_s));
    gTotalQueueItems = readTotalQueueItems(file);
    gLogFile = readText(file, kGeneral, kLogFile, {});

    if (gTotalQueueItems >= 1) {
        gQueue.redim(gTotalQueueItems);
        for (qint32 i = 1; i <= gTotalQueueItems; ++i) {
            gQueue(i) = readQueueItem(file, i);
            gQueue(i).SavedSection = i;
        }
    }
}

} // namespace

void LoadSettings()
{
    const SettingsStore& store = *seams().settingsStore;
    gFormTop = float(leadingNumber(store.value(kStoreApp, kPosition, kFormTop, u"2000"_s)));
    gFormLeft = float(leadingNumber(store.value(kStoreApp, kPosition, kFormLeft, u"2500"_s)));

    gIniPath = defaultSettingsPath();
    const QString remembered = store.value(kStoreApp, kPath, kSettingsFileName, u"0"_s);
    if (remembered == u"0"_s || !sameText(remembered, gIniPath)) {
        if (msgBox(u"Please locate the 'Spinlane.ini' file."_s, MsgButtons::OkCancel,
                   MsgIcon::Critical)
            == MsgAnswer::Cancel)
            EndProgram();
        // The dialog opens where the file is expected: the remembered file's folder, or the
        // console's configuration folder.
        const QString chosen =
            reg_docs(kStoreApp, kPath, kSettingsFileName, u"Locate the 'Spinlane.ini' file."_s,
                     FileMustExist, u"ini"_s, u"*"_s, remembered == u"0"_s ? gIniPath : remembered);
        if (sameText(chosen, kCancelled))
            EndProgram();
        gIniPath = chosen;
    }
    if (SettingsFileInUse(gIniPath))
        RefuseSecondCopy();

    const ProfileDocument file = ProfileDocument::load(gIniPath);
    gIniVersion = readText(file, kGeneral, kVersionNumber, {});
    if (!sameText(gExeVersion, gIniVersion)
        && msgBox(versionMismatchLine() + u"\r\nRun the program anyway?"_s, MsgButtons::YesNo,
                  MsgIcon::Question)
               == MsgAnswer::No)
        EndProgram();

    gAdminPassword = readText(file, kGeneral, kPassword, {});

    // After a crash the session's queue and preferences may come from the recovery journal; the
    // version and the password stay the settings file's own. A journal is offered only when all
    // of it reads without a conversion error.
    const QueueArray queueBefore = gQueue;
    const auto readsCleanly = [](const ProfileDocument& journal) {
        try {
            readState(journal);
            return true;
        } catch (const RuntimeError&) {
            return false;
        }
    };
    if (const std::optional<ProfileDocument> journal = OfferRecovery(readsCleanly)) {
        readState(*journal);
        RestoreSavedSections(*journal);
        for (qint32 i = 1; i <= gQueue.upperBound(); ++i) {
            if (gQueue(i).Status == u"In progress"_s)
                gQueue(i).Status = u"Stopped"_s;
        }
        return;
    }
    gQueue = queueBefore;
    readState(file);
}

ProfileDocument settingsDocument()
{
    ProfileDocument file = ProfileDocument::load(gIniPath);
    file.writeString(kGeneral, kVersionNumber, gExeVersion);
    file.writeString(kGeneral, kAlwaysOnTop, booleanText(gAlwaysOnTop));
    file.writeString(kGeneral, kExpQueueOnly, booleanText(gExpQueueOnly));
    file.writeString(kGeneral, kSampleControl, QString::number(gSampleControl));
    file.writeString(kGeneral, kQueueLayout, QString::number(gQueueLayout));
    file.writeString(kGeneral, kCurrentQueueNum, QString::number(gCurrentQueueNum));
    const qint32 total = gQueueList.count();
    file.writeString(kGeneral, kTotalQueueItems, QString::number(total));
    file.writeString(kGeneral, kLogFile, gLogFile);
    for (qint32 i = 1; i <= total; ++i)
        writeQueueItem(file, i, gQueue(i));
    return file;
}

bool SaveSettings(const std::optional<WindowPosition>& mainWindow)
{
    if (mainWindow) {
        gFormTop = mainWindow->top;
        gFormLeft = mainWindow->left;
        SettingsStore& store = *seams().settingsStore;
        store.setValue(kStoreApp, kPosition, kFormTop, singleText(gFormTop));
        store.setValue(kStoreApp, kPosition, kFormLeft, singleText(gFormLeft));
    }

    if (!sameText(gExeVersion, gIniVersion)
        && msgBox(
               versionMismatchLine()
                   + u"\r\nOverwrite the initialization file anyway? Click No to back up old ini file."_s,
               MsgButtons::YesNo, MsgIcon::Question)
               == MsgAnswer::No)
        backUpSettingsFile();

    gTotalQueueItems = gQueueList.count();
    const ProfileDocument file = settingsDocument();
    QString reason;
    if (file.isModified() && !file.save(gIniPath, &reason)) {
        // The file keeps its old content; the journal keeps the session for the next start. When
        // the journal cannot be written either, the program stays open with the queue.
        const QString saveFailed =
            u"Spinlane could not save the settings file "_s + gIniPath + u":\r\n"_s + reason;
        if (!gRecoveryJournal.keep()) {
            msgBox(saveFailed
                       + u"\r\nNor can it keep the queue for restoring. Spinlane stays open: "
                         u"make room on the disk or allow the writing, then close it again."_s,
                   MsgButtons::Ok, MsgIcon::Exclamation);
            return false;
        }
        gRecoveryJournal.stop();
        msgBox(saveFailed + u"\r\nThe queue will be offered for restoring at the next start."_s,
               MsgButtons::Ok, MsgIcon::Exclamation);
        return true;
    }
    RemoveRecoveryJournal();
    for (qint32 i = 1; i <= gTotalQueueItems; ++i)
        gQueue(i).SavedSection = i;
    return true;
}

} // namespace spinlane
