#include "ui/Login.h"

#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "queue/Session.h"
#include "ui/WindowLayout.h"
#include "ui/frmSpinlane.h"

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>

using namespace Qt::StringLiterals;

namespace spinlane {

namespace {

// Logged out, nothing behind the panel acts: the window's controls are disabled, so no click,
// Tab, mnemonic or shortcut reaches them, and the menus that edit the queue are hidden.
void openToUser(frmSpinlane& form, bool open)
{
    for (int index : {10, 20})
        form.menubarMenu(index)->menuAction()->setVisible(open);
    form.centralWidget()->setEnabled(open);
}

void showPanel(frmSpinlane& form)
{
    form.picLogin->show();
    form.picLogin->raise();
    openToUser(form, false);
    form.txtUserID->setFocus();
}

} // namespace

void ShowLoginPanel(frmSpinlane& form)
{
    PlaceLoginPanel(form);
    showPanel(form);
}

void Login(frmSpinlane& form)
{
    const QString userID = form.txtUserID->text();
    if (!LoginAccepted(userID, form.txtPW->text())) {
        msgBox(u"Wrong password!"_s, MsgButtons::Ok, MsgIcon::Critical);
        return;
    }
    form.picLogin->hide();
    openToUser(form, true);
    gCurrentUserID = userID;
    form.menuItem(u"mnuFile"_s, 46)->setText(u"Log out "_s + gCurrentUserID);
}

void Logout(frmSpinlane& form)
{
    showPanel(form);
    form.menuItem(u"mnuFile"_s, 46)->setText(u"Log out "_s);
}

void UserIDChanged(const QString& userID, QWidget& form)
{
    auto* txtOrg = form.findChild<QLineEdit*>(u"txtOrg"_s);
    if (!txtOrg)
        throw RuntimeError(RuntimeError::ObjectNotSet);
    txtOrg->clear();
    auto* main = qobject_cast<frmSpinlane*>(&form);
    if (!main)
        main = MainForm();
    if (main) {
        const bool enabled = PasswordBoxEnabled(userID);
        main->lblPW->setEnabled(enabled);
        main->txtPW->setEnabled(enabled);
        if (!enabled)
            main->txtPW->clear();
    }
    txtOrg->setText(OrganizationOf(userID));
}

} // namespace spinlane
