#pragma once

namespace spinlane {

// Installs the automation backend through which the program reaches the laboratory programs.
void installLaboratoryBackend();

} // namespace spinlane
