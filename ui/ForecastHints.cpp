#include "ui/ForecastHints.h"

#include "core/Conversions.h"
#include "core/Seams.h"

#include <QLocale>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

QString shown(const QDateTime& time)
{
    return clockTime(time, QLocale(), seams().clock->now().date()); // the program's own clock
}

} // namespace

QString forecastToolTip(const Forecast& forecast, qint32 queueNumber, const QString& title)
{
    for (const ForecastItem& item : forecast.items) {
        if (item.queueNumber != queueNumber)
            continue;
        QString text;
        if (item.expectedStart.isValid())
            text = u"Expected start "_s + shown(item.expectedStart) + u", expected end "_s
                   + (item.expectedEnd.isValid() ? shown(item.expectedEnd) : u"unknown"_s);
        else
            text = u"Expected start unknown: an item before it has no estimate"_s;
        if (item.basis == Basis::None)
            text += u"\n"_s + title
                    + u" has not run here before and the settings give it no default time"_s;
        if (forecast.ifStartedNow)
            text += u", if the run started now"_s;
        return text;
    }
    return {};
}

QString forecastWindowTitle(const Forecast& forecast, const QString& programTitle)
{
    if (forecast.ifStartedNow || forecast.items.empty()
        || !forecast.items.back().expectedEnd.isValid())
        return programTitle;
    return programTitle + u" - queue expected to end "_s + shown(forecast.items.back().expectedEnd);
}

} // namespace spinlane
