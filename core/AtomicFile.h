#pragma once

#include <QByteArray>
#include <QString>

namespace spinlane {

// Replaces the file at `path` with `bytes`: they go to a temporary file beside it, every write
// and the flush to the disk are checked, and only a complete copy is renamed over the old file.
// On failure the old file keeps its bytes, the temporary file is removed and `reason` (when
// given) tells why, as the system words it ("No space left on device"). Where the folder forbids
// the temporary file but the file itself may be written, the bytes are written in place.
bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* reason = nullptr);

} // namespace spinlane
