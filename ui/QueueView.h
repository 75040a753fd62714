#pragma once

#include <QPersistentModelIndex>
#include <QTreeView>

#include <functional>

namespace spinlane {

class QueueList;

// The queue list as the main window shows it: the rows of a QueueList with their check boxes,
// bold and colours, the seven columns at their design widths, and the rows the list marks as
// selected, whether the user or the program chose them. The list's selected row is the view's
// current row.
//
// A row pressed and dragged with the left button moves within the queue: while it is dragged the
// row under the pointer is highlighted where it may be dropped, and the pointer shows whether it
// may. Running and stopped rows show the no-drop pointer and do not move. A right click on a row
// asks for the window's popup menu; a number typed over a row's number is handed to the window.
class QueueView : public QTreeView {
    Q_OBJECT
public:
    // The pointers of a drag.
    static constexpr Qt::CursorShape kDropAllowedCursor = Qt::DragMoveCursor;
    static constexpr Qt::CursorShape kDropRefusedCursor = Qt::ForbiddenCursor;
    static constexpr Qt::CursorShape kOutsideRowsCursor = Qt::ClosedHandCursor;
    static constexpr Qt::CursorShape kNoDropCursor = Qt::ForbiddenCursor;

    QueueView(QueueList& list, QWidget* parent);

    // In hundredths of a millimetre; 0 hides the column.
    void setColumnWidthHundredthsMm(int column, int width);

    using QTreeView::edit;

    // The tooltip of the row under the pointer, by its list row; empty for none.
    void setRowToolTip(std::function<QString(int row)> toolTip)
    {
        m_rowToolTip = std::move(toolTip);
    }

    bool isDragging() const { return m_dragging; }
    qint32 dropHighlight() const; // the list row a drop would land on; 0 for none

Q_SIGNALS:
    void popupRequested(const QPoint& globalPosition);
    void queueNumberTyped(const QString& text);

protected:
    bool viewportEvent(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void drawRow(QPainter* painter, const QStyleOptionViewItem& option,
                 const QModelIndex& index) const override;
    void commitData(QWidget* editor) override;
    bool edit(const QModelIndex& index, EditTrigger trigger, QEvent* event) override;

private:
    void showListSelection();
    void takeUserSelection();
    void beginDrag(const QPoint& position);
    void dragOver(const QPoint& position);
    void drop();
    void setDropHighlight(const QModelIndex& row);

    QueueList& m_list;
    bool m_showingListSelection = false;
    bool m_takingUserSelection = false;

    bool m_itemPressed = false; // a row was pressed and the pointer has not moved since
    bool m_rowPressed = false; // the left button went down on a row and is still held
    QPoint m_pressPosition;
    QPersistentModelIndex m_draggedItem;
    bool m_dragging = false;
    QPersistentModelIndex m_dropHighlight;
    std::function<QString(int row)> m_rowToolTip;
};

} // namespace spinlane
