#include "runner/WaitForSampleChanger.h"

#include "app/Seams.h"
#include "app/wait_in_seconds.h"
#include "runner/ProgramLinks.h"

namespace spinlane {

void WaitForSampleChanger()
{
    while (!linked(gSampleChanger).IsReady())
        seams().eventPump->waitForEvents(kEventWaitMs);
}

} // namespace spinlane
