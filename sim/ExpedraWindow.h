#pragma once

#include <QWidget>

class QLabel;
class QListWidget;
class QProgressBar;

namespace spinlane::sim {

class SimExpedra;

// The set-up program's window: its experiments with the current one marked, the set-up it was
// handed, and the running experiment with its progress.
class ExpedraWindow : public QWidget {
    Q_OBJECT
public:
    explicit ExpedraWindow(SimExpedra& program);

private:
    void refresh();

    SimExpedra& m_program;
    QListWidget* m_experiments;
    QLabel* m_setUp;
    QLabel* m_state;
    QProgressBar* m_progress;
};

} // namespace spinlane::sim
