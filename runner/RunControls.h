#pragma once

#include <QObject>
#include <QString>

namespace spinlane {

// The run button's captions. The caption is the run state, and handlers compare it as written.
inline const QString kStartCaption = QStringLiteral("Start Spinlane!");
inline const QString kStopCaption = QStringLiteral("Stop Spinlane!");
inline const QString kContinueCaption = QStringLiteral("Continue Spinlane!");
inline const QString kRunAgainCaption = QStringLiteral("Run The Queue Again!");

// The run controls as the main window shows them: the run button's caption and tool tip, and
// whether the start-over button is visible; and whether a run is under way.
class RunControls : public QObject {
    Q_OBJECT
public:
    QString startQueueCaption() const { return m_caption; }
    void setStartQueueCaption(const QString& caption);
    QString startQueueToolTip() const { return m_toolTip; }
    void setStartQueueToolTip(const QString& toolTip);
    bool startOverVisible() const { return m_startOverVisible; }
    void setStartOverVisible(bool visible);
    // True while RunQueue works through the queue, from its first step until it returns.
    bool runUnderWay() const { return m_runUnderWay; }
    void setRunUnderWay(bool underWay);

    void reset();

Q_SIGNALS:
    void changed();
    // The run reached a moment that must be on the disk before its next step: an item was taken
    // up, an item's outcome was recorded, or the run ended. Receivers write synchronously.
    void runMoment();

private:
    QString m_caption = kStartCaption;
    QString m_toolTip;
    bool m_startOverVisible = false;
    bool m_runUnderWay = false;
};

extern RunControls gRunControls;

// At start-up, the run state the saved progress implies: "Continue Spinlane!" when the current
// item lies inside the list, and at its last row "Run The Queue Again!" (with start over shown)
// when that item is "Done" or "Failed"; otherwise "Start Spinlane!".
void RestoreRunControls();

} // namespace spinlane
