#include "ui/StatusColors.h"

#include <QPainter>

#include <cmath>

namespace spinlane {

namespace {

constexpr double kReadableContrast = 3.0;

double channel(double value)
{
    return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

double luminance(const QColor& c)
{
    return 0.2126 * channel(c.redF()) + 0.7152 * channel(c.greenF()) + 0.0722 * channel(c.blueF());
}

QColor statusColor(const QModelIndex& index)
{
    const QVariant foreground = index.data(Qt::ForegroundRole);
    return foreground.isValid() ? foreground.value<QColor>() : QColor();
}

} // namespace

double contrastRatio(const QColor& a, const QColor& b)
{
    const double la = luminance(a) + 0.05;
    const double lb = luminance(b) + 0.05;
    return la > lb ? la / lb : lb / la;
}

QColor readableOn(const QColor& color, const QColor& background)
{
    const bool darken = luminance(background) > 0.18;
    QColor result = color;
    for (int step = 0; step < 100 && contrastRatio(result, background) < kReadableContrast; ++step)
        result = darken ? result.darker(105) : result.lighter(105);
    return result;
}

StatusColorDelegate::StatusColorDelegate(int statusColumn, QObject* parent)
    : QStyledItemDelegate(parent)
    , m_statusColumn(statusColumn)
{
}

void StatusColorDelegate::initStyleOption(QStyleOptionViewItem* option,
                                          const QModelIndex& index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    const QColor color = statusColor(index);
    if (!color.isValid())
        return;
    option->palette.setColor(QPalette::Text,
                             readableOn(color, option->palette.color(QPalette::Base)));
    if (index.column() == m_statusColumn)
        option->text.clear(); // the badge shows it
}

void StatusColorDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                const QModelIndex& index) const
{
    QStyledItemDelegate::paint(painter, option, index);
    const QColor color = statusColor(index);
    if (index.column() != m_statusColumn || !color.isValid())
        return;

    QFont font = option.font;
    if (const QVariant rowFont = index.data(Qt::FontRole); rowFont.isValid())
        font = rowFont.value<QFont>();
    const QFontMetrics metrics(font, painter->device());
    const QString text = index.data(Qt::DisplayRole).toString();
    const int padding = metrics.averageCharWidth();
    QRect badge = option.rect.adjusted(2, 2, -2, -2);
    const int textWidth = metrics.horizontalAdvance(text);
    badge.setWidth(std::min(badge.width(), textWidth + 2 * padding));
    const int room = badge.width() - 2 * padding;

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(color.darker(130));
    painter->setBrush(color);
    painter->drawRoundedRect(QRectF(badge).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
    painter->setFont(font);
    painter->setPen(luminance(color) > 0.4 ? Qt::black : Qt::white);
    painter->drawText(badge.adjusted(padding, 0, -padding + 1, 0), Qt::AlignVCenter | Qt::AlignLeft,
                      textWidth <= room ? text : metrics.elidedText(text, Qt::ElideRight, room));
    painter->restore();
}

QSize StatusColorDelegate::sizeHint(const QStyleOptionViewItem& option,
                                    const QModelIndex& index) const
{
    return QStyledItemDelegate::sizeHint(option, index) + QSize(0, 4);
}

} // namespace spinlane
