#include "core/stay_on_top.h"

#include <QWindow>

namespace spinlane {

void stay_on_top(QWindow* window, bool onTop)
{
    if (window && window->flags().testFlag(Qt::WindowStaysOnTopHint) != onTop)
        window->setFlag(Qt::WindowStaysOnTopHint, onTop);
}

} // namespace spinlane
