#pragma once

class QWindow;

namespace spinlane {

// Keeps a window above all other windows, or releases it, without moving or resizing it.
void stay_on_top(QWindow* window, bool onTop);

} // namespace spinlane
