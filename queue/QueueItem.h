#pragma once

#include <QString>

namespace spinlane {

// One experiment item of the queue. The field order of the first ten fields is also the key order
// of its section in the settings file.
struct QueueItem {
    QString ItemSN;
    qint32 SampleNum = 0; // sample changer position
    QString SampleName;
    QString SampleDes;
    QString Solvent;
    qint16 ExpTitleIndex = 0; // 0-based position in gExpTitles
    QString UserID;
    QString Organization;
    QString OutputFilePath;
    QString Status; // "Idle", "In progress", "Done", "Failed" or "Stopped"

    // Not part of the record: the number of the item's section in the settings file as it is on
    // the disk now; 0 for an item the file does not hold yet. Follows the item through moves.
    qint32 SavedSection = 0;

    // Compares the record's ten fields.
    bool operator==(const QueueItem& other) const;
    bool operator!=(const QueueItem& other) const { return !(*this == other); }
};

} // namespace spinlane
