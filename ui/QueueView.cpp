#include "ui/QueueView.h"

#include "app/RuntimeError.h"
#include "queue/QueueList.h"
#include "queue/StatusBar.h"
#include "ui/StatusColors.h"
#include "ui/Twips.h"

#include <QHeaderView>
#include <QStyle>

using namespace Qt::StringLiterals;

namespace spinlane {

namespace {

constexpr int kDesignWidths[QueueList::ColumnCount] = {1235, 2117, 1940, 2540, 2540, 2540, 2540};

} // namespace

QueueView::QueueView(QueueList& list, QWidget* parent)
    : QTreeView(parent)
    , m_list(list)
{
    setModel(&list);
    setRootIsDecorated(false);
    setItemsExpandable(false);
    setUniformRowHeights(true);
    setAllColumnsShowFocus(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setItemDelegate(new StatusColorDelegate(QueueList::StatusColumn, this));
    header()->setStretchLastSection(true);
    header()->setSectionsMovable(false);
    for (int column = 0; column < QueueList::ColumnCount; ++column)
        setColumnWidthHundredthsMm(column, kDesignWidths[column]);

    const auto follow = [this] { showListSelection(); };
    connect(&list, &QAbstractItemModel::dataChanged, this, follow);
    connect(&list, &QAbstractItemModel::layoutChanged, this, follow);
    connect(&list, &QAbstractItemModel::rowsInserted, this, follow);
    connect(&list, &QAbstractItemModel::rowsRemoved, this, follow);
    connect(&list, &QAbstractItemModel::modelReset, this, follow);
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { guarded([this] { takeUserSelection(); }); });
}

// A column is never narrower than its header, and the first one never narrower than its check box
// and a bold three-digit number: the design widths were made for a smaller font.
void QueueView::setColumnWidthHundredthsMm(int column, int width)
{
    setColumnHidden(column, width == 0);
    if (width == 0)
        return;
    int least = header()->sectionSizeHint(column);
    if (column == QueueList::QueueNumColumn) {
        QFont bold = font();
        bold.setBold(true);
        const int margin = style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, this) + 1;
        least = std::max(least, style()->pixelMetric(QStyle::PM_IndicatorWidth, nullptr, this)
                                    + QFontMetrics(bold).horizontalAdvance(u"0000"_s) + 4 * margin);
    }
    setColumnWidth(column, std::max(hundredthsMmToPixels(width, this), least));
}

void QueueView::showListSelection()
{
    if (m_takingUserSelection)
        return;
    const qint32 selected = m_list.selectedIndex();
    const QModelIndex wanted = selected > 0 ? m_list.index(selected - 1, 0) : QModelIndex();
    const QModelIndexList shown = selectionModel()->selectedRows();
    if (shown.size() == (wanted.isValid() ? 1 : 0)
        && (!wanted.isValid() || shown.first() == wanted))
        return;
    m_showingListSelection = true;
    if (wanted.isValid()) {
        selectionModel()->setCurrentIndex(wanted, QItemSelectionModel::ClearAndSelect
                                                      | QItemSelectionModel::Rows);
        scrollTo(wanted);
    } else {
        selectionModel()->clearSelection();
    }
    m_showingListSelection = false;
}

// A row the user selects becomes the list's only selected row, and the status bar describes it.
void QueueView::takeUserSelection()
{
    if (m_showingListSelection)
        return;
    const QModelIndexList shown = selectionModel()->selectedRows();
    if (shown.isEmpty()) {
        showListSelection(); // a list row stays selected
        return;
    }
    const qint32 row = shown.first().row() + 1;
    const qint32 previous = m_list.selectedIndex();
    if (row == previous)
        return;
    m_takingUserSelection = true;
    if (previous > 0)
        m_list.setSelected(previous, false);
    m_list.setSelected(row, true);
    m_takingUserSelection = false;
    UpdateSelectionStatus();
}

} // namespace spinlane
