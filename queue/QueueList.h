#pragma once

#include <QAbstractTableModel>

#include <array>
#include <vector>

namespace spinlane {

// Colour values as stored: 0x00BBGGRR, or the system's window-text colour.
inline constexpr quint32 kWindowTextColor = 0x80000008;
inline constexpr quint32 kGreen = 0x00FF00;
inline constexpr quint32 kBlue = 0xFF0000;
inline constexpr quint32 kRed = 0x0000FF;
inline constexpr quint32 kYellow = 0x00FFFF;

// One row of the queue list: its text (the queue number "000"), its tag (the queue number; while
// the order is being rebuilt, the row's old position), six sub-items and its marks.
struct QueueRow {
    QString text;
    qint32 tag = 0;
    std::array<QString, 6> subItems; // sub-items 1 to 6, stored from 0
    bool checked = false;
    bool selected = false;
    bool bold = false;
    bool ghosted = false;
    quint32 foreColor = kWindowTextColor;
};

// The rows the main window's queue list shows, and the Qt item model over them. Rows are
// addressed by their 1-based list index; an index outside 1..count() is IndexOutOfBounds.
class QueueList : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column {
        QueueNumColumn,
        ItemSNColumn,
        SampleNumColumn,
        SampleNameColumn,
        ExpTitleColumn,
        UserIDColumn,
        StatusColumn,
        ColumnCount
    };
    // Sub-item k is shown in column k.
    enum SubItem {
        ItemSNSubItem = 1,
        SampleNumSubItem,
        SampleNameSubItem,
        ExpTitleSubItem,
        UserIDSubItem,
        StatusSubItem
    };
    enum Role { TagRole = Qt::UserRole + 1, SelectedRole, GhostedRole, ForeColorRole };

    explicit QueueList(QObject* parent = nullptr);

    qint32 count() const { return qint32(m_rows.size()); }
    const QueueRow& row(qint32 index) const;
    QString subItem(qint32 index, int subItem) const;

    qint32 add(); // a blank row at the end; returns its index
    qint32 insert(qint32 index); // a blank row at index, 1 .. count() + 1; returns index
    void remove(qint32 index);
    void clear();

    void setText(qint32 index, const QString& text);
    void setTag(qint32 index, qint32 tag);
    void setSubItem(qint32 index, int subItem, const QString& text);
    void setChecked(qint32 index, bool checked);
    // Selecting a row also makes it the list's selected row; other rows keep their marks.
    void setSelected(qint32 index, bool selected);
    // The row becomes the only selected one.
    void selectOnly(qint32 index);
    void setBold(qint32 index, bool bold);
    void setGhosted(qint32 index, bool ghosted);
    void setForeColor(qint32 index, quint32 color);

    // The list's selected row (the one the status bar describes); 0 when there is none.
    qint32 selectedIndex() const;
    // The first row with a selection mark; 0 when there is none.
    qint32 firstSelectedRow() const;

    // Re-sorts the rows ascending by the text of column sortKey (0 = the row text), comparing
    // texts as text without regard to case. Rows with equal texts keep their order: moving a row
    // by giving it a neighbour's number relies on it. A key outside the columns is
    // InvalidPropertyValue.
    void sortByColumn(int sortKey);

    // Numbers the rows in their present order: texts "001", "002", ... and tags 1, 2, ...
    // Returns the tags the rows held before.
    std::vector<qint32> renumber();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

Q_SIGNALS:
    // A delete took an item out of the settings file on the disk: what keeps the session's
    // state beside the file must follow at once.
    void savedQueueChanged();

private:
    QueueRow& rowRef(qint32 index);
    void rowChanged(qint32 index) { rowsChanged(index, index); }
    void rowsChanged(qint32 first, qint32 last);

    std::vector<QueueRow> m_rows;
    qint32 m_selected = 0;
};

} // namespace spinlane
