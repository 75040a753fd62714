#include "app/LaboratoryBackend.h"

#include "runner/DBusAutomation.h"

namespace spinlane {

// The laboratory programs are separate processes on the session bus (the simulated ones, or real
// programs that own the same names).
void installLaboratoryBackend()
{
    static DBusAutomation laboratory;
    installAutomation(&laboratory);
}

} // namespace spinlane
