#include "ui/Twips.h"

#include <QWidget>

#include <cmath>

namespace spinlane {

int twipsToPixels(double twips, const QWidget* widget)
{
    return int(std::lround(twips * widget->logicalDpiY() / 1440.0));
}

double pixelsToTwips(int pixels, const QWidget* widget)
{
    return pixels * 1440.0 / widget->logicalDpiY();
}

int hundredthsMmToPixels(int hundredthsMm, const QWidget* widget)
{
    return int(std::lround(hundredthsMm * widget->logicalDpiX() / 2540.0));
}

} // namespace spinlane
