#include "sim/NoticeWindow.h"

namespace spinlane::sim {

NoticeWindow::NoticeWindow(const QString& title, const QString& text)
    : QLabel(text)
{
    setWindowTitle(title);
    setAlignment(Qt::AlignCenter);
    setMargin(24);
}

} // namespace spinlane::sim
