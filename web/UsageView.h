#pragma once

#include "ledger/LedgerStore.h"

#include <QByteArray>
#include <QDate>
#include <QString>

#include <optional>
#include <vector>

// A month of the facility's usage for its manager: the hours each organization used of each
// instrument, from the items that ended in that month of the facility's time zone.
namespace spinlane::web {

// "2026-10" -> 1 October 2026; nothing for anything else.
std::optional<QDate> parseMonth(const QString& text);

// The usage of the month that starts on `month`, read from `ledger`. JSON:
//   {"month":"2026-10","instruments":["nmr400",...],"organizations":["Chemistry",...],
//    "cells":[{"organization","instrument","items","hours"}...],"items":N,"hours":H}
// organizations by their hours, most first; hours to 1/10000.
std::optional<QByteArray> usageJson(LedgerStore& ledger, QDate month, QString* error);
// The same cells as CSV: organization,instrument,items,instrument_hours.
std::optional<QByteArray> usageCsv(LedgerStore& ledger, QDate month, QString* error);

} // namespace spinlane::web
