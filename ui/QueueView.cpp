#include "ui/QueueView.h"

#include "core/RuntimeError.h"
#include "queue/QueueList.h"
#include "queue/QueueReorder.h"
#include "queue/QueueStore.h"
#include "queue/StatusBar.h"
#include "ui/StatusColors.h"
#include "ui/Twips.h"

#include <QApplication>
#include <QHeaderView>
#include <QMetaProperty>
#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QToolTip>

#include <algorithm>
#include <vector>

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
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setEditTriggers(QAbstractItemView::SelectedClicked | QAbstractItemView::EditKeyPressed);
    setItemDelegate(new StatusColorDelegate(QueueList::StatusColumn, this));
    header()->setStretchLastSection(true);
    header()->setSectionsMovable(false);
    header()->setSectionsClickable(true);
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
    QItemSelection wanted;
    std::vector<int> wantedRows;
    for (qint32 row = 1; row <= m_list.count(); ++row) {
        if (m_list.row(row).selected) {
            wanted.select(m_list.index(row - 1, 0),
                          m_list.index(row - 1, QueueList::ColumnCount - 1));
            wantedRows.push_back(row - 1);
        }
    }
    std::vector<int> shownRows;
    for (const QModelIndex& shown : selectionModel()->selectedRows())
        shownRows.push_back(shown.row());
    std::sort(shownRows.begin(), shownRows.end());
    const qint32 selected = m_list.selectedIndex();
    const QModelIndex current = selected > 0 ? m_list.index(selected - 1, 0) : QModelIndex();
    if (shownRows == wantedRows && (!current.isValid() || currentIndex().row() == current.row()))
        return;

    m_showingListSelection = true;
    selectionModel()->select(wanted,
                             QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    if (current.isValid()) {
        selectionModel()->setCurrentIndex(current, QItemSelectionModel::NoUpdate);
        scrollTo(current);
    }
    m_showingListSelection = false;
}

// The rows the user selects become the list's selected rows, the current one its selected row,
// and the status bar describes it. The list always keeps a row selected.
void QueueView::takeUserSelection()
{
    if (m_showingListSelection)
        return;
    const QModelIndexList shown = selectionModel()->selectedRows();
    if (shown.isEmpty()) {
        showListSelection();
        return;
    }
    std::vector<bool> marked(std::size_t(m_list.count()), false);
    for (const QModelIndex& index : shown)
        marked[std::size_t(index.row())] = true;
    const QModelIndex current = currentIndex();
    const qint32 focus = current.isValid() && marked[std::size_t(current.row())]
                             ? current.row() + 1
                             : shown.first().row() + 1;

    m_takingUserSelection = true;
    for (qint32 row = 1; row <= m_list.count(); ++row) {
        const bool mark = marked[std::size_t(row - 1)];
        if (m_list.row(row).selected != mark)
            m_list.setSelected(row, mark);
    }
    m_list.setSelected(focus, true);
    m_takingUserSelection = false;
    UpdateSelectionStatus();
}

qint32 QueueView::dropHighlight() const
{
    return m_dropHighlight.isValid() ? m_dropHighlight.row() + 1 : 0;
}

// Mouse ----------------------------------------------------------------------------------------

bool QueueView::viewportEvent(QEvent* event)
{
    if (event->type() != QEvent::ToolTip || !m_rowToolTip)
        return QTreeView::viewportEvent(event);
    const auto* help = static_cast<QHelpEvent*>(event);
    const QModelIndex index = indexAt(help->pos());
    const QString text = index.isValid() ? m_rowToolTip(index.row()) : QString();
    if (text.isEmpty())
        QToolTip::hideText();
    else
        QToolTip::showText(help->globalPos(), text, viewport(), visualRect(index));
    return true;
}

void QueueView::mousePressEvent(QMouseEvent* event)
{
    QTreeView::mousePressEvent(event);
    guarded([this, event] {
        const QModelIndex index = indexAt(event->position().toPoint());
        if (!index.isValid())
            return;
        m_itemPressed = true;
        m_rowPressed = event->button() == Qt::LeftButton;
        m_pressPosition = event->position().toPoint();
        m_draggedItem = index.siblingAtColumn(0);
        UpdateSelectionStatus();
    });
}

void QueueView::mouseMoveEvent(QMouseEvent* event)
{
    const QPoint position = event->position().toPoint();
    if (m_dragging) {
        guarded([this, position] { dragOver(position); });
        return;
    }
    if (event->buttons() == Qt::LeftButton && m_itemPressed) {
        if ((position - m_pressPosition).manhattanLength() >= QApplication::startDragDistance())
            guarded([this, position] { beginDrag(position); });
        return;
    }
    // A press on a row never sweeps a range of rows into the selection.
    if (m_rowPressed && (event->buttons() & Qt::LeftButton))
        return;
    QTreeView::mouseMoveEvent(event);
}

void QueueView::mouseReleaseEvent(QMouseEvent* event)
{
    if (m_dragging) {
        m_dragging = false;
        guarded([this] { drop(); });
    } else {
        QTreeView::mouseReleaseEvent(event);
    }
    if (event->button() == Qt::LeftButton) {
        m_itemPressed = false;
        m_rowPressed = false;
        viewport()->unsetCursor();
    } else if (event->button() == Qt::RightButton && m_itemPressed) {
        m_itemPressed = false;
        Q_EMIT popupRequested(event->globalPosition().toPoint());
    }
    m_draggedItem = QPersistentModelIndex();
}

// Running and stopped rows stay where they are; any other row is carried until it is dropped.
void QueueView::beginDrag(const QPoint& position)
{
    m_itemPressed = false;
    if (!m_draggedItem.isValid())
        return;
    if (IsPinnedRow(m_draggedItem.row() + 1)) {
        viewport()->setCursor(kNoDropCursor);
        return;
    }
    m_dragging = true;
    SyncQueueFromList(0);
    viewport()->setCursor(kDropAllowedCursor);
    dragOver(position);
}

void QueueView::dragOver(const QPoint& position)
{
    const QModelIndex at =
        viewport()->rect().contains(position) ? indexAt(position) : QModelIndex();
    if (!at.isValid() || !m_draggedItem.isValid()) {
        setDropHighlight({});
        viewport()->setCursor(kOutsideRowsCursor);
        return;
    }
    if (DropTargetAccepts(m_draggedItem.row() + 1, at.row() + 1)) {
        setDropHighlight(at);
        viewport()->setCursor(kDropAllowedCursor);
    } else {
        setDropHighlight({});
        viewport()->setCursor(kDropRefusedCursor);
    }
}

void QueueView::drop()
{
    const QPersistentModelIndex target = m_dropHighlight;
    setDropHighlight({});
    if (target.isValid() && m_draggedItem.isValid())
        DropRow(m_draggedItem.row() + 1, target.row() + 1);
}

void QueueView::setDropHighlight(const QModelIndex& row)
{
    const QPersistentModelIndex wanted = row.isValid() ? row.siblingAtColumn(0) : QModelIndex();
    if (wanted == m_dropHighlight)
        return;
    m_dropHighlight = wanted;
    viewport()->update();
}

void QueueView::drawRow(QPainter* painter, const QStyleOptionViewItem& option,
                        const QModelIndex& index) const
{
    QTreeView::drawRow(painter, option, index);
    if (!m_dropHighlight.isValid() || index.row() != m_dropHighlight.row())
        return;
    painter->save();
    painter->setPen(QPen(palette().color(QPalette::Highlight), 2));
    painter->setBrush(Qt::NoBrush);
    painter->drawRect(QRectF(option.rect).adjusted(1, 1, -1, -1));
    painter->restore();
}

// F2 edits the current row's number, whichever of its cells has the focus.
bool QueueView::edit(const QModelIndex& index, EditTrigger trigger, QEvent* event)
{
    const bool numberKey = trigger == EditKeyPressed && index.isValid();
    return QTreeView::edit(numberKey ? index.siblingAtColumn(0) : index, trigger, event);
}

// The number typed over a row's number goes to the window, which moves the row; the list itself
// takes no edits.
void QueueView::commitData(QWidget* editor)
{
    const QMetaProperty text = editor->metaObject()->userProperty();
    Q_EMIT queueNumberTyped(text.read(editor).toString());
}

} // namespace spinlane
