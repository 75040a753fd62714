#pragma once

#include <QLabel>

namespace spinlane::sim {

// The window of a program with nothing to show but that it runs (the console, the single-sample
// interface).
class NoticeWindow : public QLabel {
    Q_OBJECT
public:
    NoticeWindow(const QString& title, const QString& text);
};

} // namespace spinlane::sim
