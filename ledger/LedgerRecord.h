#pragma once

#include "ledger/RunRecord.h"

#include <QString>

namespace spinlane {

// One item the run took up and finished, as a facility bills from it: who ran what, where and
// when, and how it went.
struct LedgerRecord {
    QString instrument;
    QString ledger; // the identity of the workstation's ledger that numbered it
    qint64 number = 0; // grows with every record of that ledger; 0 until it is stored
    QString itemSerial;
    qint32 queueNumber = 0;
    QString user;
    QString organization;
    QString sampleName;
    qint32 samplePosition = 0;
    QString dataFile;
    RunRecord run; // when, the outcome, the experiment, the solvent and the seconds of each part

    bool operator==(const LedgerRecord& o) const
    {
        return instrument == o.instrument && ledger == o.ledger && number == o.number && itemSerial == o.itemSerial
               && queueNumber == o.queueNumber && user == o.user
               && organization == o.organization && sampleName == o.sampleName
               && samplePosition == o.samplePosition && dataFile == o.dataFile && run == o.run;
    }
};

} // namespace spinlane
