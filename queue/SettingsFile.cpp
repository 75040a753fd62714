#include "queue/SettingsFile.h"

#include "core/Conversions.h"
#include "core/RuntimeError.h"

using namespace Qt::StringLiterals;

namespace spinlane::settings {
namespace {

const QString kItemSN = u"Item S/N"_s;
const QString kSampleNum = u"Sample Num"_s;
const QString kSampleName = u"Sample Name"_s;
const QString kSampleDes = u"Sample Des"_s;
const QString kSolvent = u"Solvent"_s;
const QString kExpTitleIndex = u"Exp Title Index"_s;
const QString kUserID = u"User ID"_s;
const QString kOrganization = u"Organization"_s;
const QString kOutputFilePath = u"Output File Path"_s;
const QString kStatus = u"Status"_s;

} // namespace

QString itemSectionName(qint32 queueNum) { return u"Item "_s + QString::number(queueNum); }

QString readText(const ProfileDocument& file, const QString& section, const QString& key,
                 const QString& defaultValue)
{
    return trimSpaces(file.readString(section, key, defaultValue));
}

double readNumber(const ProfileDocument& file, const QString& section, const QString& key,
                  const QString& defaultValue)
{
    return leadingNumber(file.readString(section, key, defaultValue));
}

qint32 readTotalQueueItems(const ProfileDocument& file)
{
    constexpr qint32 kMaxQueueItems = 100000;
    const qint32 total = toInt32(readNumber(file, kGeneral, kTotalQueueItems, u"1"_s));
    if (total > kMaxQueueItems)
        throw RuntimeError(RuntimeError::OutOfMemory);
    return total;
}

QueueItem readQueueItem(const ProfileDocument& file, qint32 queueNum)
{
    const QString section = itemSectionName(queueNum);
    QueueItem item;
    item.ItemSN = readText(file, section, kItemSN, u"00000"_s);
    item.SampleNum = toInt32(readNumber(file, section, kSampleNum, u"0"_s));
    item.SampleName = readText(file, section, kSampleName, {});
    item.SampleDes = readText(file, section, kSampleDes, {});
    item.Solvent = readText(file, section, kSolvent, {});
    item.ExpTitleIndex = toInt16(readNumber(file, section, kExpTitleIndex, u"0"_s));
    item.UserID = readText(file, section, kUserID, {});
    item.Organization = readText(file, section, kOrganization, {});
    item.OutputFilePath = readText(file, section, kOutputFilePath, {});
    item.Status = readText(file, section, kStatus, {});
    return item;
}

void writeQueueItem(ProfileDocument& file, qint32 queueNum, const QueueItem& item)
{
    const QString section = itemSectionName(queueNum);
    file.writeString(section, kItemSN, item.ItemSN);
    file.writeString(section, kSampleNum, QString::number(item.SampleNum));
    file.writeString(section, kSampleName, item.SampleName);
    file.writeString(section, kSampleDes, item.SampleDes);
    file.writeString(section, kSolvent, item.Solvent);
    file.writeString(section, kExpTitleIndex, QString::number(item.ExpTitleIndex));
    file.writeString(section, kUserID, item.UserID);
    file.writeString(section, kOrganization, item.Organization);
    file.writeString(section, kOutputFilePath, item.OutputFilePath);
    file.writeString(section, kStatus, item.Status);
}

bool removeQueueItem(ProfileDocument& file, qint32 section)
{
    if (!file.value(kGeneral, kTotalQueueItems))
        return false;
    const qint32 total = readTotalQueueItems(file);
    if (section < 1 || section > total)
        return false;
    for (qint32 i = section; i < total; ++i)
        writeQueueItem(file, i, readQueueItem(file, i + 1));
    file.clearSection(itemSectionName(total));
    file.writeString(kGeneral, kTotalQueueItems, QString::number(total - 1));
    const qint32 current = toInt32(readNumber(file, kGeneral, kCurrentQueueNum, u"0"_s));
    if (current >= section)
        file.writeString(kGeneral, kCurrentQueueNum, QString::number(current - 1));
    return true;
}

} // namespace spinlane::settings
