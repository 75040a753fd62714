#pragma once

#include <QTreeView>

namespace spinlane {

class QueueList;

// The queue list as the main window shows it: the rows of a QueueList with their check boxes,
// bold and colours, the seven columns at their design widths, and one selected row that is always
// the list's selected row, whether the user or the runner chose it.
class QueueView : public QTreeView {
    Q_OBJECT
public:
    QueueView(QueueList& list, QWidget* parent);

    // In hundredths of a millimetre; 0 hides the column.
    void setColumnWidthHundredthsMm(int column, int width);

private:
    void showListSelection();
    void takeUserSelection();

    QueueList& m_list;
    bool m_showingListSelection = false;
    bool m_takingUserSelection = false;
};

} // namespace spinlane
