#pragma once

#include "sim/SimProgram.h"

#include <QTimer>
#include <QWidget>

namespace spinlane::sim {

// A simulator window follows its program: at once when the program changes, and five times a
// second while the window is shown (motions and experiments move on by themselves).
template <typename Window>
void refreshLive(Window* window, SimProgram& program, void (Window::*refresh)())
{
    QObject::connect(&program, &SimProgram::changed, window, refresh);
    auto* ticker = new QTimer(window);
    QObject::connect(ticker, &QTimer::timeout, window, [window, refresh] {
        if (window->isVisible())
            (window->*refresh)();
    });
    ticker->start(200);
    (window->*refresh)();
}

} // namespace spinlane::sim
