#pragma once

#include <QDateTime>
#include <QString>

// The run log: a plain-text record of every run, one line per item run, for people and tools.
// Lines end with CR LF; fields are separated by one TAB; times are in the general date form.
namespace spinlane {

extern bool gLogOn; // logging is on and the log file is open; every start begins with it off

// Opens the log file, emptied or for appending. Returns false when it cannot be opened.
bool OpenLogFile(const QString& path, bool append);
void CloseLogFile();

// The writers below raise BadFileNameOrNumber when no log file is open and DeviceIOError when a
// line cannot be written; callers write only while gLogOn is set.
void WriteStartBanner(); // "[Start Spinlane at <time> by <user>]"
void WriteLogHeader();
// The queue number as its row shows it, the item's fields, its experiment title and status.
void WriteItemLogLine(const QString& rowText, qint32 queueNum);
void WriteDoneBanner(); // then 65 "$" and an empty line
void WriteStopBanner(); // then 57 "*" and an empty line
void WriteFatalBanner(); // then 61 "!" and an empty line

// At start-up, after the queue was restored from the recovery journal, appends
// "[Restore Spinlane at <time>: the queue as it was at <time>]" to the log file the settings
// name, when that file exists. The log is not open then; a file that cannot be written is left.
void WriteRestoredLine(const QDateTime& savedAt);

} // namespace spinlane
