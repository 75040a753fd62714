#pragma once

#include <QString>

class QWidget;

// The login panel over the main window. Until somebody logs in, the panel covers the window and
// the File and Preferences menus are hidden; the queue runner goes on in either state.
namespace spinlane {

class frmSpinlane;

void ShowLoginPanel(frmSpinlane& form);
// Admits the user ID typed, asking the administrator for the password ("Wrong password!").
void Login(frmSpinlane& form);
// Shows the panel again; the boxes keep what was typed and gCurrentUserID its value.
void Logout(frmSpinlane& form);

// While a user ID is typed, in the login panel or the item dialog (`form`, which has a txtOrg
// box): the organization of that user's first item, and the main window's password box enabled
// for the administrator only.
void UserIDChanged(const QString& userID, QWidget& form);

} // namespace spinlane
