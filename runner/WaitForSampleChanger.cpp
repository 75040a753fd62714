#include "runner/WaitForSampleChanger.h"

#include "core/Seams.h"
#include "core/wait_in_seconds.h"
#include "runner/ProgramLinks.h"

namespace spinlane {

void WaitForSampleChanger()
{
    while (!linked(gSampleChanger).IsReady())
        seams().eventPump->waitForEvents(kEventWaitMs);
}

} // namespace spinlane
