// The facility on arbitrary ledger messages: nothing crashes, and a record is taken only when
// every member checks out: written again, it reads back as the same record of the same instrument,
// and none of its texts holds a control character.
#include "facility/LedgerMessage.h"

#include <cstdint>
#include <cstdlib>

using namespace spinlane;
using namespace spinlane::facility;

namespace {
void check(bool condition)
{
    if (!condition)
        std::abort();
}

bool clean(const QString& text)
{
    for (const QChar c : text) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            return false;
    }
    return text.size() <= 1024;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray message(reinterpret_cast<const char*>(data), qsizetype(size));
    QString why;
    const std::optional<LedgerRecord> record = readLedgerMessage(QStringLiteral("nmr400"), message, &why);
    check(record.has_value() == why.isEmpty());
    if (!record)
        return 0;
    check(record->instrument == QStringLiteral("nmr400") && record->number >= 1);
    for (const QString& text : {record->itemSerial, record->user, record->organization,
                                record->sampleName, record->dataFile, record->run.title,
                                record->run.solvent})
        check(clean(text));
    QString again;
    const std::optional<LedgerRecord> reread =
        readLedgerMessage(QStringLiteral("nmr400"), ledgerMessage(*record), &again);
    check(reread && *reread == *record);
    return 0;
}
