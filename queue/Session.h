#pragma once

#include <QString>

// Who works with the queue. Any user ID is accepted; only the administrator has a password and
// may change other users' items.
namespace spinlane {

extern QString gCurrentUserID; // the user of the last login; kept after a logout

// The user ID "administrator" in any capitals; with a blank around it, an ordinary user.
bool IsAdministrator(const QString& userID);

// While a user ID is typed: the password box is for the administrator, blanks around the ID
// aside.
bool PasswordBoxEnabled(const QString& userID);

// The login's decision: the administrator's password is compared without regard to case; every
// other user ID, the empty one included, needs none.
bool LoginAccepted(const QString& userID, const QString& password);

// The organization of the first item in the queue whose owner is `userID` (case aside); empty
// when the queue has no item of that user.
QString OrganizationOf(const QString& userID);

// Whether the current user may change the selected item: the administrator may change every
// item, others their own and those without an owner. A refusal tells the user.
bool HasPermission();

void resetSession();

} // namespace spinlane
