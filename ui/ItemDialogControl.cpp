#include "ui/ItemDialogControl.h"

#include "core/Conversions.h"
#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "queue/QueueEditing.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "runner/ProgramLinks.h"
#include "ui/frmItemDialog.h"
#include "ui/frmSpinlane.h"

#include <QAction>
#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QToolButton>

using namespace Qt::StringLiterals;

namespace spinlane {

namespace {

QPointer<frmItemDialog>& theDialog()
{
    static QPointer<frmItemDialog> dialog;
    return dialog;
}

frmSpinlane& mainForm()
{
    frmSpinlane* form = MainForm();
    if (!form)
        throw RuntimeError(RuntimeError::ObjectNotSet);
    return *form;
}

// A fresh dialog over the main window; one that is still open gives way to it.
frmItemDialog& LoadItemDialog()
{
    if (frmItemDialog* open = theDialog())
        open->closeForNextOperation();
    auto* dialog = new frmItemDialog(&mainForm());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    theDialog() = dialog;
    return *dialog;
}

void showDialog(frmItemDialog& dialog)
{
    dialog.showReadOnlyFields();
    dialog.show();
    dialog.raise();
    dialog.activateWindow();
}

qint32 selectedRow()
{
    const qint32 row = gQueueList.selectedIndex();
    if (row == 0)
        throw RuntimeError(RuntimeError::ObjectNotSet);
    return row;
}

// A solvent the list no longer offers is kept, so that editing other fields does not drop it.
void chooseSolvent(QComboBox* list, const QString& solvent)
{
    int index = list->findText(solvent);
    if (index < 0 && !solvent.isEmpty()) {
        list->addItem(solvent);
        index = list->count() - 1;
    }
    list->setCurrentIndex(index);
}

} // namespace

frmItemDialog* ItemDialog() { return theDialog(); }

void AddQueueItem()
{
    const qint32 position = NewItemPosition();
    frmItemDialog& dialog = LoadItemDialog();
    dialog.txtSpinlaneNum->setText(formatQueueNumber(position));
    dialog.fraDialog->setEnabled(true);
    dialog.fraDialog->setTitle(kAddItemCaption);
    dialog.cmdCancel->setVisible(true);
    dialog.txtStatus->setText(u"Idle"_s);
    dialog.txtStatus->setEnabled(false);
    dialog.txtSpinlaneNum->setEnabled(true);
    dialog.GenerateItemSN();
    dialog.txtItemSN->setEnabled(true);
    dialog.txtUserID->setText(gCurrentUserID);
    dialog.txtOrg->setText(trimSpaces(mainForm().txtOrg->text()));
    if (gCurrentUserID.isEmpty())
        dialog.txtUserID->setReadOnly(false);
    showDialog(dialog);
}

void EditSelectedItem()
{
    if (!HasPermission())
        return;
    const qint32 row = selectedRow();
    frmItemDialog& dialog = LoadItemDialog();
    dialog.fraDialog->setEnabled(true);
    dialog.fraDialog->setTitle(kEditItemCaption);
    dialog.cmdCancel->setVisible(true);
    // The queue number, serial number and status are not the user's to change.
    dialog.txtStatus->setEnabled(false);
    dialog.txtSpinlaneNum->setEnabled(false);
    dialog.txtItemSN->setEnabled(false);
    FillItemDialog(dialog);
    // An item without an owner may be given one.
    if (gQueueList.subItem(row, QueueList::UserIDSubItem).isEmpty())
        dialog.txtUserID->setReadOnly(false);
    showDialog(dialog);
}

void ShowItemProperties()
{
    selectedRow();
    frmItemDialog& dialog = LoadItemDialog();
    dialog.fraDialog->setTitle(kItemPropertiesCaption);
    dialog.cmdCancel->setVisible(false);
    dialog.cmdConfig->setVisible(false);
    dialog.cmdOutputFile->setVisible(false);
    dialog.txtItemSN->setEnabled(true);
    for (QLineEdit* box : {dialog.txtItemSN, dialog.txtSpinlaneNum, dialog.txtOrg,
                           dialog.txtOutputFile, dialog.txtSampleDes, dialog.txtSampleName,
                           dialog.txtSampleNum, dialog.txtStatus, dialog.txtUserID})
        box->setReadOnly(true);
    dialog.cboExpList->setEnabled(false);
    dialog.cboSolList->setEnabled(false);
    dialog.cmdUpdate->setEnabled(false);
    FillItemDialog(dialog);
    showDialog(dialog);
}

// In the order of the item's fields: the sample number's look-up runs before the item's own
// name and owner are put in.
void FillItemDialog(frmItemDialog& dialog)
{
    const qint32 queueNum = toInt32(leadingNumber(gQueueList.row(selectedRow()).text));
    const QueueItem item = gQueue(queueNum);
    dialog.txtSpinlaneNum->setText(formatQueueNumber(queueNum));
    dialog.txtItemSN->setText(item.ItemSN);
    dialog.txtSampleNum->setText(QString::number(item.SampleNum));
    dialog.txtSampleName->setText(item.SampleName);
    dialog.txtSampleDes->setText(item.SampleDes);
    chooseSolvent(dialog.cboSolList, item.Solvent);
    dialog.cboExpList->setCurrentIndex(
        item.ExpTitleIndex < dialog.cboExpList->count() ? item.ExpTitleIndex : -1);
    dialog.txtUserID->setText(item.UserID);
    dialog.txtOrg->setText(item.Organization);
    dialog.txtOutputFile->setText(item.OutputFilePath);
    dialog.txtStatus->setText(item.Status);
}

// Experiments ----------------------------------------------------------------------------------

void RefreshExperimentTitles() { gExpTitles = linked(gExpedra).GetExperimentTitles(); }

void RefreshSolvents() { gSolvents = linked(gExpedra).GetSolvents(); }

void ExpedraConfigureStart()
{
    msgBox(u"Jump to Expedra program for experiment configurations. \r\n"
           u"After completing each experiment configuration, \r\n"
           u"be sure to click on Finish to save it individually at the end."_s,
           MsgButtons::Ok, MsgIcon::Exclamation);
    automation().ShowWindow(gExpedraWnd, WindowCommand::Show);
    linked(gExpedra).SetShown(true);
}

void HandBackFromExpedra()
{
    linked(gExpedra).SetShown(false);
    // Expedra's window stays up while it shows the running experiment's progress.
    if (!mainForm().menuItem(u"mnuPrefs"_s, 60)->isChecked())
        automation().ShowWindow(gExpedraWnd, WindowCommand::Hide);
}

void ExpedraConfigureDone()
{
    HandBackFromExpedra();
    if (frmItemDialog* dialog = ItemDialog())
        dialog->refillExperimentList();
}

void ItemDialogUnloaded(const frmItemDialog* dialog)
{
    if (theDialog() == dialog)
        theDialog() = nullptr;
}

} // namespace spinlane
