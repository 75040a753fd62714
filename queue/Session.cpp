#include "queue/Session.h"

#include "core/ProgramSettings.h"
#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "queue/QueueStore.h"

using namespace Qt::StringLiterals;

namespace spinlane {

QString gCurrentUserID;

namespace {

const QString kAdministrator = u"administrator"_s;

bool sameText(const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) == 0; }

} // namespace

bool IsAdministrator(const QString& userID) { return sameText(userID, kAdministrator); }

bool PasswordBoxEnabled(const QString& userID) { return IsAdministrator(userID.trimmed()); }

bool LoginAccepted(const QString& userID, const QString& password)
{
    return !IsAdministrator(userID) || sameText(password, gAdminPassword);
}

QString OrganizationOf(const QString& userID)
{
    // An empty queue still holds one blank record, which must not match the empty user ID.
    if (gQueueList.count() < 1)
        return {};
    for (qint32 i = 1; i <= gQueue.upperBound(); ++i) {
        if (sameText(gQueue(i).UserID, userID))
            return gQueue(i).Organization;
    }
    return {};
}

bool HasPermission()
{
    if (IsAdministrator(gCurrentUserID))
        return true;
    const qint32 selected = gQueueList.selectedIndex();
    if (selected == 0)
        throw RuntimeError(RuntimeError::ObjectNotSet);
    const QString owner = gQueueList.subItem(selected, QueueList::UserIDSubItem);
    if (!owner.isEmpty() && !sameText(owner, gCurrentUserID)) {
        msgBox(u"You do not have permission to perform the action."_s, MsgButtons::Ok,
               MsgIcon::Exclamation);
        return false;
    }
    return true;
}

void resetSession() { gCurrentUserID.clear(); }

} // namespace spinlane
