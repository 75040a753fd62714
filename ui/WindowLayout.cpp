#include "ui/WindowLayout.h"

#include "ui/QueueView.h"
#include "ui/Twips.h"
#include "ui/frmSpinlane.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QPushButton>
#include <QTreeView>

#include <cmath>

namespace spinlane {

double gListHeightSlack = 0;
double gListWidthSlack = 0;
qint32 gChkEntireQueueGap = 0;
qint32 gStartQueueGap = 0;
qint32 gStartOverGap = 0;
qint32 gAddGap = 0;
qint32 gDeleteGap = 0;
qint32 gUpDownGap = 0;

namespace {

// The window's inner size, the same measure at start-up and at every resize.
struct Measure {
    const QWidget* form;
    double twips(int pixels) const { return pixelsToTwips(pixels, form); }
    qint32 gap(int pixels) const { return qint32(std::lround(twips(pixels))); }
    int pixels(double twips) const { return twipsToPixels(twips, form); }
};

int bottomOf(const QWidget* w) { return w->y() + w->height(); }
int rightOf(const QWidget* w) { return w->x() + w->width(); }

} // namespace

void MeasureLayout(const frmSpinlane& form)
{
    const Measure m{&form};
    const QWidget* list = form.lvwSpinlane;
    gListHeightSlack = m.twips(form.height()) - m.twips(list->height());
    gListWidthSlack = m.twips(form.width()) - m.twips(list->width());
    gChkEntireQueueGap = m.gap(form.chkEntireQueue->y() - bottomOf(list));
    gStartQueueGap = m.gap(form.cmdStartQueue->y() - bottomOf(list));
    gStartOverGap = m.gap(form.cmdStartOver->y() - bottomOf(list));
    gAddGap = m.gap(form.cmdAdd->x() - rightOf(list));
    gDeleteGap = m.gap(form.cmdDelete->x() - rightOf(list));
    gUpDownGap = m.gap(form.updQueueItem->x() - rightOf(list));
}

void ArrangeLayout(frmSpinlane& form)
{
    const Measure m{&form};
    const double height = m.twips(form.height());
    const double width = m.twips(form.width());
    if (height < gListHeightSlack || width < gListWidthSlack)
        return;

    QWidget* list = form.lvwSpinlane;
    const double listHeight = height - gListHeightSlack;
    const double listWidth = width - gListWidthSlack;
    list->resize(m.pixels(listWidth), m.pixels(listHeight));

    const double listBottom = m.twips(list->y()) + listHeight;
    for (auto [control, gap] :
         {std::pair{static_cast<QWidget*>(form.chkEntireQueue), gChkEntireQueueGap},
          {form.cmdStartQueue, gStartQueueGap},
          {form.cmdStartOver, gStartOverGap}})
        control->move(control->x(), m.pixels(listBottom + gap));

    const double listRight = m.twips(list->x()) + listWidth;
    for (auto [control, gap] : {std::pair{static_cast<QWidget*>(form.cmdAdd), gAddGap},
                                {form.cmdDelete, gDeleteGap},
                                {form.updQueueItem, gUpDownGap}})
        control->move(m.pixels(listRight + gap), control->y());

    form.picLogin->resize(m.pixels(width + 200), m.pixels(height));
    const double frameWidth = m.twips(form.fraLogin->width());
    const double frameHeight = m.twips(form.fraLogin->height());
    form.fraLogin->move(m.pixels(width / 2 - frameWidth / 2),
                        m.pixels(height / 2 - frameHeight / 2 - 500));
}

void PlaceLoginPanel(frmSpinlane& form)
{
    const Measure m{&form};
    const double height = m.twips(form.height());
    const double width = m.twips(form.width()) + 200;
    form.picLogin->resize(m.pixels(width), m.pixels(height));
    const double frameWidth = m.twips(form.fraLogin->width());
    const double frameHeight = m.twips(form.fraLogin->height());
    form.fraLogin->move(m.pixels(width / 2 - frameWidth / 2),
                        m.pixels(height / 2 - frameHeight / 2 - 500));
}

void resetLayoutState()
{
    gListHeightSlack = gListWidthSlack = 0;
    gChkEntireQueueGap = gStartQueueGap = gStartOverGap = 0;
    gAddGap = gDeleteGap = gUpDownGap = 0;
}

} // namespace spinlane
