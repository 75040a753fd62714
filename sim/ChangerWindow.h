#pragma once

#include <QWidget>

class QLabel;

namespace spinlane::sim {

class SimSampleChanger;

// The carousel seen from above: a ring of positions, the magnet in the middle with the sample in
// it turning at the measured spin rate, and a sample on its way in or out drawn half-way.
class CarouselView : public QWidget {
    Q_OBJECT
public:
    explicit CarouselView(SimSampleChanger& changer);
    QSize sizeHint() const override { return {300, 300}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void turn();

    SimSampleChanger& m_changer;
    double m_angle = 0; // degrees the sample in the magnet has turned (shown slowed down)
};

// The sample changer's window: the carousel and a line of state.
class ChangerWindow : public QWidget {
    Q_OBJECT
public:
    explicit ChangerWindow(SimSampleChanger& changer);

private:
    void refresh();

    SimSampleChanger& m_changer;
    CarouselView* m_carousel;
    QLabel* m_state;
};

} // namespace spinlane::sim
