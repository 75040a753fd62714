#pragma once

#include "web/StatusMirror.h"

#include <QByteArray>
#include <QDateTime>

// /metrics in the Prometheus text format, one label set per instrument.
namespace spinlane::web {

struct MetricsInput {
    const InstrumentState& state;
    QString instrument;
    qint64 itemsDone = 0; // since spinlane-web started
    qint64 itemsFailed = 0;
    int liveClients = 0;
    QDateTime now;
};

QByteArray metricsText(const MetricsInput& input);

} // namespace spinlane::web
