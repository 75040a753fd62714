#pragma once

#include <QStringList>

#include <vector>

namespace spinlane {

// Rows of cells as lines of text, each column as wide as its widest cell plus two spaces; the
// last cell of a row is not padded. Every line ends with "\n".
QString textTable(const std::vector<QStringList>& rows);

} // namespace spinlane
