#pragma once

#include "runner/Forecast.h"

#include <QString>

// The forecast where the person at the instrument sees it, without changing the list's columns:
// each row's tooltip and the window title while a run goes on. Times follow the rule every
// Spinlane program shares (core clockTime: the nearest minute, the locale's 12 or 24 hours).
namespace spinlane {

// "Expected start 14:51, expected end 14:58" for the item `queueNumber` of `forecast` (with "if
// the run started now" while none goes on, and why a time is unknown); empty for an item the next
// run skips.
QString forecastToolTip(const Forecast& forecast, qint32 queueNumber, const QString& title);

// The main window's title: "Spinlane - queue expected to end 15:40" while a run goes on and the
// queue's end is known, else `programTitle` alone.
QString forecastWindowTitle(const Forecast& forecast, const QString& programTitle);

} // namespace spinlane
