#pragma once

#include <QString>

namespace spinlane {

inline const QString kCancelled = QStringLiteral("Cancelled");

// Asks for an existing file with the file-open dialog, filtered by extension, and remembers the
// choice in the per-user store under (app, section, key). Returns the chosen full path, or
// "Cancelled" (and writes nothing) when the user cancels. `fileName` is the name the dialog
// offers first.
QString reg_docs(const QString& app, const QString& section, const QString& key,
                 const QString& title, qint32 flags, const QString& extension,
                 const QString& allPattern, const QString& fileName = {});

} // namespace spinlane
