#include "queue/StatusBar.h"

#include "core/Conversions.h"
#include "core/RuntimeError.h"
#include "queue/QueueStore.h"

using namespace Qt::StringLiterals;

namespace spinlane {

StatusBar gStatusBar;

void StatusBar::setText(Panel panel, const QString& text)
{
    if (m_texts[panel - 1] == text)
        return;
    m_texts[panel - 1] = text;
    Q_EMIT changed();
}

void StatusBar::setOutputFileToolTip(const QString& toolTip)
{
    if (m_outputFileToolTip == toolTip)
        return;
    m_outputFileToolTip = toolTip;
    Q_EMIT changed();
}

void StatusBar::setProgress(int maximum, int value)
{
    if (m_progressMaximum == maximum && m_progressValue == value)
        return;
    m_progressMaximum = maximum;
    m_progressValue = value;
    Q_EMIT changed();
}

std::array<QString, 5> StatusBar::designTexts()
{
    return {u"Sample"_s, u"Experiment"_s, {}, {}, {}};
}

void StatusBar::reset()
{
    m_texts = designTexts();
    m_outputFileToolTip.clear();
    m_progressMaximum = 1;
    m_progressValue = 0;
    Q_EMIT changed();
}

void UpdateSelectionStatus()
{
    const qint32 rows = gQueueList.count();
    if (rows >= 1) {
        const qint32 selected = gQueueList.selectedIndex();
        if (selected == 0)
            throw RuntimeError(RuntimeError::ObjectNotSet);
        const QueueItem& item = gQueue(toInt32(leadingNumber(gQueueList.row(selected).text)));
        gStatusBar.setText(StatusBar::OutputFilePanel, item.OutputFilePath);
        gStatusBar.setOutputFileToolTip(item.OutputFilePath);
        gStatusBar.setText(StatusBar::SamplePanel, item.SampleName);
        if (upperBound(gExpTitles) > 0)
            gStatusBar.setText(StatusBar::ExperimentPanel, experimentTitle(item.ExpTitleIndex));
        gStatusBar.setProgress(rows, gCurrentQueueNum);
    } else {
        gStatusBar.setText(StatusBar::OutputFilePanel, {});
        gStatusBar.setOutputFileToolTip(u"Current Selected Exp Output File Path"_s);
        gStatusBar.setText(StatusBar::SamplePanel, {});
        gStatusBar.setText(StatusBar::ExperimentPanel, {});
        gStatusBar.setProgress(1, 0);
    }
}

} // namespace spinlane
