#pragma once

#include <QtGlobal>

#include <functional>

namespace spinlane {

// How long a wait or a poll lets the window handle its events before it looks at the clock or
// its flags again. Short enough that Stop and a program finishing are noticed at once.
inline constexpr int kEventWaitMs = 20;

// Waits until the clock has moved on by `seconds` while the window keeps handling its events
// (Stop, menus, repaints); callers check their stop flags afterwards. The clock is read to whole
// seconds, so a wait of n seconds ends between n - 1 and n seconds after the call. A wait of 0 or
// less returns at once without handling any event.
void wait_in_seconds(qint16 seconds);
// The same wait, which also ends as soon as `done` answers true.
void wait_in_seconds(qint16 seconds, const std::function<bool()>& done);

} // namespace spinlane
