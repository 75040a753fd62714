#pragma once

#include "web/StatusMirror.h"

#include <QJsonObject>

// The instrument as the API, the live channel and the page see it: the JSON of schema 1
// (man spinlane-web). Only what the status interface carries can get into it.
namespace spinlane::web {

inline constexpr int kSchema = 1;

// Without "updated", which the caller adds: the time the copy last changed.
QJsonObject instrumentJson(const InstrumentState& state, const QString& instrument,
                           bool hideSampleNames);

// A time from Spinlane (ISO 8601) as the API writes it: with its offset, "" when unknown.
QString isoTime(const QString& text);

} // namespace spinlane::web
