#include "app/Session.h"

namespace spinlane {

QString gCurrentUserID;

} // namespace spinlane
