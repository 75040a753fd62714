#include "app/LaboratoryBackend.h"

namespace spinlane {

// THE ONE PLACE WHERE THE LABORATORY BACKEND IS INSTALLED. None is installed yet: every link
// fails to be made, so start-up ends with "Start Korvo application first.".
void installLaboratoryBackend() { }

} // namespace spinlane
