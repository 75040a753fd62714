#pragma once

class QWidget;

// The window's design units: twips (1440 to the inch, 15 to a pixel at 96 dpi) for positions and
// sizes, hundredths of a millimetre for the list's column widths. Both follow the logical dpi, so
// a high-dpi screen shows the same layout larger.
namespace spinlane {

int twipsToPixels(double twips, const QWidget* widget);
double pixelsToTwips(int pixels, const QWidget* widget);
int hundredthsMmToPixels(int hundredthsMm, const QWidget* widget);

} // namespace spinlane
