#include "web/Metrics.h"

#include "queue/QueueList.h"
#include "web/InstrumentJson.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <map>
#include <sstream>

using namespace Qt::StringLiterals;

namespace spinlane::web {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

std::string text(const QString& value) { return value.toStdString(); }

ClientMetric metric(const std::vector<ClientMetric::Label>& labels, double value, MetricType type)
{
    ClientMetric m;
    m.label = labels;
    if (type == MetricType::Counter)
        m.counter.value = value;
    else
        m.gauge.value = value;
    return m;
}

double secondsSinceEpoch(const QDateTime& time) { return double(time.toMSecsSinceEpoch()) / 1000; }

} // namespace

QByteArray metricsText(const MetricsInput& input)
{
    const InstrumentState& state = input.state;
    const ClientMetric::Label instrument{"instrument", text(input.instrument)};
    std::vector<MetricFamily> families;
    const auto family = [&](const char* name, const char* help, MetricType type) -> MetricFamily& {
        return families.emplace_back(MetricFamily{name, help, type, {}});
    };

    family("spinlane_up", "1 while Spinlane runs on the session bus and answers", MetricType::Gauge)
        .metric.push_back(metric({instrument}, state.spinlane ? 1 : 0, MetricType::Gauge));

    MetricFamily& runState =
        family("spinlane_run_state", "1 for the queue's run state", MetricType::Gauge);
    const QString current = state.spinlane ? state.runState : u"unknown"_s;
    for (const QString& name :
         {u"idle"_s, u"running"_s, u"stopped"_s, u"finished"_s, u"unknown"_s})
        runState.metric.push_back(
            metric({instrument, {"state", text(name)}}, name == current ? 1 : 0, MetricType::Gauge));

    std::map<std::string, int> byStatus;
    for (const QStringList& row : state.queue) {
        if (row.size() > QueueList::StatusColumn)
            ++byStatus[text(row.at(QueueList::StatusColumn))];
    }
    MetricFamily& items =
        family("spinlane_queue_items", "Items in the queue, by status", MetricType::Gauge);
    for (const auto& [status, count] : byStatus)
        items.metric.push_back(metric({instrument, {"status", status}}, count, MetricType::Gauge));

    const QDateTime started = QDateTime::fromString(
        state.current.value(u"Started"_s).toString(), Qt::ISODateWithMs);
    if (state.spinlane && started.isValid()
        && state.current.value(u"Status"_s).toString() == u"In progress"_s)
        family("spinlane_current_item_elapsed_seconds",
               "Time since the item being run started", MetricType::Gauge)
            .metric.push_back(metric({instrument},
                                     std::max(0.0, double(started.msecsTo(input.now)) / 1000),
                                     MetricType::Gauge));

    family("spinlane_items_done_total", "Items that ended Done while spinlane-web watched",
           MetricType::Counter)
        .metric.push_back(metric({instrument}, double(input.itemsDone), MetricType::Counter));
    family("spinlane_items_failed_total", "Items that ended Failed while spinlane-web watched",
           MetricType::Counter)
        .metric.push_back(metric({instrument}, double(input.itemsFailed), MetricType::Counter));

    const QString queueEnd =
        state.forecast.isEmpty() ? QString()
                                 : isoTime(state.forecast.last().value(u"ExpectedEnd"_s).toString());
    if (state.spinlane && !queueEnd.isEmpty())
        family("spinlane_queue_expected_end_timestamp_seconds",
               "When the forecast expects the queue to end", MetricType::Gauge)
            .metric.push_back(metric(
                {instrument}, secondsSinceEpoch(QDateTime::fromString(queueEnd, Qt::ISODateWithMs)),
                MetricType::Gauge));

    family("spinlane_web_live_clients", "Browsers connected to the live channel",
           MetricType::Gauge)
        .metric.push_back(metric({instrument}, input.liveClients, MetricType::Gauge));

    std::ostringstream out;
    prometheus::TextSerializer().Serialize(out, families);
    const std::string written = out.str();
    return QByteArray(written.data(), qsizetype(written.size()));
}

} // namespace spinlane::web
