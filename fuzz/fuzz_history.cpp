// The run history's reader on arbitrary bytes: every record it accepts is written as one line
// that reads back as the same record, and the forecast learned from what it read gives
// no negative duration and no time before now.
#include "runner/Forecast.h"
#include "runner/RunHistory.h"

#include <cstdint>
#include <cstdlib>

using namespace spinlane;

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    const std::vector<RunRecord> records = parseRunHistory(input);
    ForecastInput in;
    in.mode = RunMode::Changer;
    in.now = QDateTime(QDate(2026, 11, 25), QTime(10, 0), Qt::UTC);
    for (const RunRecord& record : records) {
        const QByteArray line = formatRunRecord(record);
        check(!line.contains('\n'));
        const std::optional<RunRecord> again = parseRunRecord(line);
        check(again && *again == record);
        in.queue.push_back({qint32(in.queue.size() + 1), qint32(in.queue.size() % 3), record.title,
                            record.outcome, record.solvent});
    }
    check(boundedRunHistory(records).size() <= records.size());
    const HistoryModel model(records, {});
    for (const ForecastItem& item : forecastQueue(in, model).items) {
        check(!item.expectedStart.isValid() || item.expectedStart >= in.now);
        check(!item.expectedEnd.isValid() || item.expectedEnd >= item.expectedStart);
        check(item.expectedSeconds >= -1);
    }
    return 0;
}
