#include "sim/ChangerWindow.h"

#include "sim/LiveRefresh.h"
#include "sim/SimSampleChanger.h"

#include <QLabel>
#include <QPainter>
#include <QTimer>
#include <QVBoxLayout>
#include <QtMath>

using namespace Qt::StringLiterals;

namespace spinlane::sim {
namespace {

constexpr int kFrameMs = 50;

} // namespace

CarouselView::CarouselView(SimSampleChanger& changer)
    : m_changer(changer)
{
    auto* frames = new QTimer(this);
    connect(frames, &QTimer::timeout, this, &CarouselView::turn);
    frames->start(kFrameMs);
}

void CarouselView::turn()
{
    if (!isVisible())
        return;
    // One turn per second per 10 Hz: fast enough to see, slow enough to follow.
    m_angle = std::fmod(m_angle + m_changer.actualRate() * 36.0 * kFrameMs / 1000.0, 360.0);
    update();
}

void CarouselView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QPointF centre = rect().center();
    const double radius = std::min(width(), height()) / 2.0 - 18;
    const double slot = std::max(4.0, std::min(14.0, radius * M_PI / m_changer.positions() * 0.8));

    const int inMagnet = m_changer.sampleInMagnet();
    const int moving = m_changer.movingSample();
    for (int position = 1; position <= m_changer.positions(); ++position) {
        const double a = 2 * M_PI * (position - 1) / m_changer.positions() - M_PI / 2;
        const QPointF at = centre + QPointF(std::cos(a), std::sin(a)) * radius;
        const bool away = position == inMagnet || position == moving;
        p.setPen(QPen(Qt::darkGray, 1.5));
        p.setBrush(away ? QBrush(Qt::NoBrush) : QBrush(QColor(70, 130, 200)));
        p.drawEllipse(at, slot / 2, slot / 2);
        p.setPen(Qt::black);
        const QPointF label = centre + QPointF(std::cos(a), std::sin(a)) * (radius - slot - 6);
        p.drawText(QRectF(label - QPointF(12, 8), QSizeF(24, 16)), Qt::AlignCenter,
                   QString::number(position));
        if (position == moving) {
            // On its way: half-way between its position and the magnet.
            p.setBrush(QColor(230, 160, 40));
            p.drawEllipse((at + centre) / 2, slot / 2, slot / 2);
        }
    }

    const double magnet = radius * 0.35;
    p.setPen(QPen(Qt::darkGray, 2));
    p.setBrush(QColor(225, 225, 235));
    p.drawEllipse(centre, magnet, magnet);
    if (inMagnet != 0) {
        p.setBrush(QColor(70, 130, 200));
        p.drawEllipse(centre, magnet * 0.45, magnet * 0.45);
        const double a = qDegreesToRadians(m_angle);
        p.setPen(QPen(Qt::white, 3));
        p.drawLine(centre, centre + QPointF(std::cos(a), std::sin(a)) * magnet * 0.45);
    }
}

ChangerWindow::ChangerWindow(SimSampleChanger& changer)
    : m_changer(changer)
    , m_carousel(new CarouselView(changer))
    , m_state(new QLabel)
{
    setWindowTitle(u"Sample changer (simulated)"_s);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_carousel, 1);
    layout->addWidget(m_state);
    refreshLive(this, changer, &ChangerWindow::refresh);
}

void ChangerWindow::refresh()
{
    QString motion;
    switch (m_changer.motion()) {
    case SimSampleChanger::Motion::None:
        motion = m_changer.sampleInMagnet() != 0
                     ? u"Sample %1 in the magnet"_s.arg(m_changer.sampleInMagnet())
                     : u"Magnet empty"_s;
        break;
    case SimSampleChanger::Motion::Loading:
        motion = u"Loading sample %1"_s.arg(m_changer.movingSample());
        break;
    case SimSampleChanger::Motion::Ejecting:
        motion = u"Ejecting sample %1"_s.arg(m_changer.movingSample());
        break;
    }
    m_state->setText(u"%1 \u2014 spin %2 Hz (set %3 Hz, %4)%5"_s.arg(
        motion, QString::number(m_changer.actualRate(), 'f', 1),
        QString::number(m_changer.targetRate(), 'f', 1), m_changer.spinOn() ? u"on"_s : u"off"_s,
        m_changer.ready() ? QString() : u" \u2014 starting up"_s));
    m_carousel->update();
}

} // namespace spinlane::sim
