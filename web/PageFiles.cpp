#include "web/PageFiles.h"

#include <QFile>

namespace spinlane::web {

std::optional<HttpReply> pageFileAt(const QString& path, const PageFile* first, const PageFile* last)
{
    for (const PageFile* file = first; file != last; ++file) {
        if (path != QLatin1StringView(file->path))
            continue;
        QFile resource(QString::fromLatin1(file->resource));
        return HttpReply{200, file->type,
                         resource.open(QIODevice::ReadOnly) ? resource.readAll() : QByteArray(),
                         false, {}};
    }
    return std::nullopt;
}

} // namespace spinlane::web
