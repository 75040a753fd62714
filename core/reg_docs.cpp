#include "core/reg_docs.h"

#include "core/Seams.h"

using namespace Qt::StringLiterals;

namespace spinlane {

QString reg_docs(const QString& app, const QString& section, const QString& key,
                 const QString& title, qint32 flags, const QString& extension,
                 const QString& allPattern, const QString& fileName)
{
    const QString filter = u"(*."_s + extension + u")|*."_s + extension + u"|(*."_s + allPattern
                           + u")|*."_s + allPattern;
    const QString path = seams().fileDialogs->openFile({title, filter, flags, fileName});
    if (path.isEmpty())
        return kCancelled;
    seams().settingsStore->setValue(app, section, key, path);
    return path;
}

} // namespace spinlane
