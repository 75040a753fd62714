#include "queue/QueueItem.h"

namespace spinlane {

bool QueueItem::operator==(const QueueItem& other) const
{
    return ItemSN == other.ItemSN && SampleNum == other.SampleNum && SampleName == other.SampleName
           && SampleDes == other.SampleDes && Solvent == other.Solvent
           && ExpTitleIndex == other.ExpTitleIndex && UserID == other.UserID
           && Organization == other.Organization && OutputFilePath == other.OutputFilePath
           && Status == other.Status;
}

} // namespace spinlane
