#include "core/TextTable.h"

#include <algorithm>

namespace spinlane {

QString textTable(const std::vector<QStringList>& rows)
{
    std::vector<qsizetype> widths;
    for (const QStringList& row : rows)
        for (qsizetype c = 0; c < row.size(); ++c) {
            if (qsizetype(widths.size()) <= c)
                widths.push_back(0);
            widths[c] = std::max(widths[c], row[c].size());
        }
    QString text;
    for (const QStringList& row : rows) {
        for (qsizetype c = 0; c < row.size(); ++c)
            text += c + 1 < row.size() ? row[c].leftJustified(widths[c] + 2) : row[c];
        text += u'\n';
    }
    return text;
}

} // namespace spinlane
