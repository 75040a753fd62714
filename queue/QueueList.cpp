#include "queue/QueueList.h"

#include "core/Conversions.h"
#include "core/RuntimeError.h"

#include <QColor>
#include <QFont>

#include <algorithm>
#include <numeric>

using namespace Qt::StringLiterals;

namespace spinlane {

namespace {

std::size_t subItemSlot(int subItem)
{
    if (subItem < QueueList::ItemSNSubItem || subItem > QueueList::StatusSubItem)
        throw RuntimeError(RuntimeError::IndexOutOfBounds);
    return std::size_t(subItem - 1);
}

bool isCell(const QueueList& list, const QModelIndex& index)
{
    return index.isValid() && index.model() == &list && index.row() < list.count()
           && index.column() < QueueList::ColumnCount;
}

} // namespace

QueueList::QueueList(QObject* parent)
    : QAbstractTableModel(parent)
{
}

const QueueRow& QueueList::row(qint32 index) const
{
    if (index < 1 || index > count())
        throw RuntimeError(RuntimeError::IndexOutOfBounds);
    return m_rows[std::size_t(index - 1)];
}

QueueRow& QueueList::rowRef(qint32 index)
{
    return const_cast<QueueRow&>(std::as_const(*this).row(index));
}

QString QueueList::subItem(qint32 index, int subItem) const
{
    return row(index).subItems[subItemSlot(subItem)];
}

qint32 QueueList::add() { return insert(count() + 1); }

qint32 QueueList::insert(qint32 index)
{
    if (index < 1 || index > count() + 1)
        throw RuntimeError(RuntimeError::IndexOutOfBounds);
    beginInsertRows({}, index - 1, index - 1);
    m_rows.insert(m_rows.begin() + (index - 1), QueueRow{});
    if (m_selected >= index)
        ++m_selected;
    endInsertRows();
    return index;
}

void QueueList::remove(qint32 index)
{
    row(index);
    beginRemoveRows({}, index - 1, index - 1);
    m_rows.erase(m_rows.begin() + (index - 1));
    if (m_selected == index)
        m_selected = 0;
    else if (m_selected > index)
        --m_selected;
    endRemoveRows();
}

void QueueList::clear()
{
    beginResetModel();
    m_rows.clear();
    m_selected = 0;
    endResetModel();
}

void QueueList::setText(qint32 index, const QString& text)
{
    rowRef(index).text = text;
    rowChanged(index);
}

void QueueList::setTag(qint32 index, qint32 tag)
{
    rowRef(index).tag = tag;
    rowChanged(index);
}

void QueueList::setSubItem(qint32 index, int subItem, const QString& text)
{
    rowRef(index).subItems[subItemSlot(subItem)] = text;
    rowChanged(index);
}

void QueueList::setChecked(qint32 index, bool checked)
{
    rowRef(index).checked = checked;
    rowChanged(index);
}

void QueueList::setSelected(qint32 index, bool selected)
{
    rowRef(index).selected = selected;
    if (selected)
        m_selected = index;
    else if (m_selected == index)
        m_selected = 0;
    rowChanged(index);
}

void QueueList::setBold(qint32 index, bool bold)
{
    rowRef(index).bold = bold;
    rowChanged(index);
}

void QueueList::setGhosted(qint32 index, bool ghosted)
{
    rowRef(index).ghosted = ghosted;
    rowChanged(index);
}

void QueueList::setForeColor(qint32 index, quint32 color)
{
    rowRef(index).foreColor = color;
    rowChanged(index);
}

void QueueList::selectOnly(qint32 index)
{
    row(index);
    for (QueueRow& r : m_rows)
        r.selected = false;
    rowRef(index).selected = true;
    m_selected = index;
    rowsChanged(1, count());
}

qint32 QueueList::selectedIndex() const { return m_selected; }

qint32 QueueList::firstSelectedRow() const
{
    const auto found =
        std::find_if(m_rows.begin(), m_rows.end(), [](const QueueRow& r) { return r.selected; });
    return found == m_rows.end() ? 0 : qint32(found - m_rows.begin()) + 1;
}

void QueueList::sortByColumn(int sortKey)
{
    if (sortKey < QueueNumColumn || sortKey >= ColumnCount)
        throw RuntimeError(RuntimeError::InvalidPropertyValue);

    const auto key = [sortKey](const QueueRow& row) -> const QString& {
        return sortKey == QueueNumColumn ? row.text : row.subItems[std::size_t(sortKey - 1)];
    };
    const auto less = [&key](const QueueRow& a, const QueueRow& b) {
        return QString::compare(key(a), key(b), Qt::CaseInsensitive) < 0;
    };
    // The usual case: a queue that is already in order needs no new layout.
    if (std::is_sorted(m_rows.begin(), m_rows.end(), less))
        return;

    std::vector<qint32> order(m_rows.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](qint32 a, qint32 b) { return less(m_rows[a], m_rows[b]); });

    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    std::vector<qint32> newRow(m_rows.size());
    std::vector<QueueRow> sorted;
    sorted.reserve(m_rows.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        newRow[std::size_t(order[i])] = qint32(i);
        sorted.push_back(std::move(m_rows[std::size_t(order[i])]));
    }
    m_rows = std::move(sorted);
    if (m_selected != 0)
        m_selected = newRow[std::size_t(m_selected - 1)] + 1;

    const QModelIndexList from = persistentIndexList();
    QModelIndexList to;
    to.reserve(from.size());
    for (const QModelIndex& old : from)
        to.append(index(newRow[std::size_t(old.row())], old.column()));
    changePersistentIndexList(from, to);
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

std::vector<qint32> QueueList::renumber()
{
    std::vector<qint32> oldTags;
    oldTags.reserve(m_rows.size());
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        oldTags.push_back(m_rows[i].tag);
        m_rows[i].tag = qint32(i + 1);
        m_rows[i].text = formatQueueNumber(double(i + 1));
    }
    if (!m_rows.empty())
        rowsChanged(1, count());
    return oldTags;
}

void QueueList::rowsChanged(qint32 first, qint32 last)
{
    Q_EMIT dataChanged(index(first - 1, 0), index(last - 1, ColumnCount - 1));
}

int QueueList::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : count(); }

int QueueList::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant QueueList::data(const QModelIndex& index, int role) const
{
    if (!isCell(*this, index))
        return {};
    const QueueRow& r = m_rows[std::size_t(index.row())];
    const int column = index.column();
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return column == QueueNumColumn ? r.text : r.subItems[std::size_t(column - 1)];
    case Qt::CheckStateRole:
        if (column == QueueNumColumn)
            return int(r.checked ? Qt::Checked : Qt::Unchecked);
        return {};
    case Qt::FontRole:
        if (r.bold) {
            QFont font;
            font.setBold(true);
            return font;
        }
        return {};
    case Qt::ForegroundRole:
        // Stored as 0x00BBGGRR; the window-text colour is left to the view's palette.
        if (r.foreColor == kWindowTextColor)
            return {};
        return QColor(int(r.foreColor & 0xFF), int((r.foreColor >> 8) & 0xFF),
                      int((r.foreColor >> 16) & 0xFF));
    case TagRole: return r.tag;
    case SelectedRole: return r.selected;
    case GhostedRole: return r.ghosted;
    case ForeColorRole: return r.foreColor;
    default: return {};
    }
}

QVariant QueueList::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case QueueNumColumn: return u"No."_s;
    case ItemSNColumn: return u"Item S/N"_s;
    case SampleNumColumn: return u"Sample Pos."_s;
    case SampleNameColumn: return u"Sample Name"_s;
    case ExpTitleColumn: return u"Experiment Title"_s;
    case UserIDColumn: return u"User ID"_s;
    case StatusColumn: return u"Status"_s;
    default: return {};
    }
}

Qt::ItemFlags QueueList::flags(const QModelIndex& index) const
{
    if (!isCell(*this, index))
        return Qt::NoItemFlags;
    Qt::ItemFlags result = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    // The queue number can be typed over in place. The model takes no edits itself: the view hands
    // a typed number to the window, and a click on a check box changes nothing.
    if (index.column() == QueueNumColumn)
        result |= Qt::ItemIsUserCheckable | Qt::ItemIsEditable;
    return result;
}

} // namespace spinlane
