#pragma once

#include "core/ProfileFile.h"
#include "queue/QueueItem.h"

// The layout of the settings file: its section and key names, the rule by which every value is
// read, and the item sections. Shared by the program and the administrators' command-line tool,
// so both always read the file the same way.
namespace spinlane::settings {

inline const QString kGeneral = QStringLiteral("General");
inline const QString kVersionNumber = QStringLiteral("Version Number");
inline const QString kAlwaysOnTop = QStringLiteral("AlwaysOnTop");
inline const QString kExpQueueOnly = QStringLiteral("ExpQueueOnly");
inline const QString kPassword = QStringLiteral("Password");
inline const QString kSampleControl = QStringLiteral("Sample Control");
inline const QString kQueueLayout = QStringLiteral("Queue Layout");
inline const QString kCurrentQueueNum = QStringLiteral("Current Queue Num");
inline const QString kTotalQueueItems = QStringLiteral("Total Queue Items");
inline const QString kLogFile = QStringLiteral("LogFile");

// Per-user store: application, sections and keys.
inline const QString kStoreApp = QStringLiteral("Spinlane");
inline const QString kPosition = QStringLiteral("Position");
inline const QString kFormTop = QStringLiteral("FormTop");
inline const QString kFormLeft = QStringLiteral("FormLeft");
inline const QString kPath = QStringLiteral("Path");
inline const QString kSettingsFileName = QStringLiteral("Spinlane.INI");

// "Item " and the queue number in plain decimal.
QString itemSectionName(qint32 queueNum);

// A text value: what the file holds (at most 254 characters; the engine already ends a value at
// a NUL), trimmed of spaces; the default when missing.
QString readText(const ProfileDocument& file, const QString& section, const QString& key,
                 const QString& defaultValue);
// A number value: the leading number of what the file holds, or of the default.
double readNumber(const ProfileDocument& file, const QString& section, const QString& key,
                  const QString& defaultValue);

// "Total Queue Items" (default 1). A count beyond what any settings file can hold marks a damaged
// file: making room for that many items would exhaust the memory, so it raises OutOfMemory.
qint32 readTotalQueueItems(const ProfileDocument& file);

// Item section queueNum, each key with its default. A number that does not fit its field raises
// Overflow.
QueueItem readQueueItem(const ProfileDocument& file, qint32 queueNum);
void writeQueueItem(ProfileDocument& file, qint32 queueNum, const QueueItem& item);

// Takes item section `section` out of the file's queue: the items after it move up one section,
// the last section is emptied, "Total Queue Items" counts one less and "Current Queue Num" moves
// back when it was at or after the item. False, with the file unchanged, when the file's queue
// does not hold that section. Raises what reading the file's queue raises.
bool removeQueueItem(ProfileDocument& file, qint32 section);

} // namespace spinlane::settings
