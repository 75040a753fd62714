#pragma once

#include <QString>

namespace spinlane {

extern QString gCurrentUserID; // the user of the last login; kept after a logout

} // namespace spinlane
