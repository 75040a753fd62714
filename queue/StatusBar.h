#pragma once

#include <QObject>
#include <QString>

#include <array>

namespace spinlane {

// What the main window's status bar and progress bar show: the selected item's sample name (panel
// 1), experiment title (2) and output file (4, also its tool tip), the run's progress (panel 3's
// progress bar) and the spin status the runner writes (5).
class StatusBar : public QObject {
    Q_OBJECT
public:
    enum Panel { SamplePanel = 1, ExperimentPanel, ProgressPanel, OutputFilePanel, SpinPanel };

    QString text(Panel panel) const { return m_texts[panel - 1]; }
    void setText(Panel panel, const QString& text);
    QString outputFileToolTip() const { return m_outputFileToolTip; }
    void setOutputFileToolTip(const QString& toolTip);

    int progressMaximum() const { return m_progressMaximum; }
    int progressValue() const { return m_progressValue; }
    void setProgress(int maximum, int value);
    void resetProgressValue() { setProgress(m_progressMaximum, 0); }

    void reset(); // back to the design texts "Sample" and "Experiment"

Q_SIGNALS:
    void changed();

private:
    static std::array<QString, 5> designTexts();

    std::array<QString, 5> m_texts = designTexts();
    QString m_outputFileToolTip;
    int m_progressMaximum = 1;
    int m_progressValue = 0;
};

extern StatusBar gStatusBar;

// Shows the selected row's item in the status bar and the runner's position in the progress bar.
void UpdateSelectionStatus();

} // namespace spinlane
