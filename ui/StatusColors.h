#pragma once

#include <QStyledItemDelegate>

// How the queue list paints a row's status colour so that every status reads at a glance: the
// Status cell shows the status as a badge in the row's exact colour, and the other cells keep the
// colour's hue but darken it until it can be read on the list's background (pure yellow or green
// on white cannot).
namespace spinlane {

class StatusColorDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    StatusColorDelegate(int statusColumn, QObject* parent);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;

private:
    int m_statusColumn;
};

// `color`, darkened or lightened as little as needed to reach a contrast of 3:1 against
// `background`, the least for large or bold text.
QColor readableOn(const QColor& color, const QColor& background);
double contrastRatio(const QColor& a, const QColor& b);

} // namespace spinlane
