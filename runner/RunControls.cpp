#include "runner/RunControls.h"

#include "queue/QueueStore.h"

using namespace Qt::StringLiterals;

namespace spinlane {

RunControls gRunControls;

void RunControls::setStartQueueCaption(const QString& caption)
{
    if (m_caption == caption)
        return;
    m_caption = caption;
    Q_EMIT changed();
}

void RunControls::setStartQueueToolTip(const QString& toolTip)
{
    if (m_toolTip == toolTip)
        return;
    m_toolTip = toolTip;
    Q_EMIT changed();
}

void RunControls::setStartOverVisible(bool visible)
{
    if (m_startOverVisible == visible)
        return;
    m_startOverVisible = visible;
    Q_EMIT changed();
}

void RunControls::setRunUnderWay(bool underWay)
{
    if (m_runUnderWay == underWay)
        return;
    m_runUnderWay = underWay;
    Q_EMIT changed();
}

void RunControls::reset()
{
    m_caption = kStartCaption;
    m_toolTip.clear();
    m_startOverVisible = false;
    m_runUnderWay = false;
    Q_EMIT changed();
}

void RestoreRunControls()
{
    const qint32 rows = gQueueList.count();
    QString caption = kStartCaption;
    if (gCurrentQueueNum > 0 && gCurrentQueueNum < rows) {
        caption = kContinueCaption;
    } else if (gCurrentQueueNum > 0 && gCurrentQueueNum == rows) {
        const QString& status = gQueue(gCurrentQueueNum).Status;
        if (status == u"Done"_s || status == u"Failed"_s) {
            caption = kRunAgainCaption;
            gRunControls.setStartOverVisible(true);
        } else {
            caption = kContinueCaption;
        }
    }
    gRunControls.setStartQueueCaption(caption);
}

} // namespace spinlane
