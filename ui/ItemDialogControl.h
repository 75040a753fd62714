#pragma once

// The item dialog's operations: opening it in each of its modes over the main window, and taking
// the user to Expedra to configure experiments and back. There is one dialog at a time; opening
// it again closes the one that is open.
namespace spinlane {

class frmItemDialog;

frmItemDialog* ItemDialog(); // the open dialog, or nullptr

// Asks where the new item goes and opens the dialog for it.
void AddQueueItem();
// Opens the selected item for editing, when the user may change it.
void EditSelectedItem();
// Shows the selected item read-only.
void ShowItemProperties();
void FillItemDialog(frmItemDialog& dialog);

void RefreshExperimentTitles();
void RefreshSolvents();

// Brings Expedra forward for configuring experiments, after telling the user how.
void ExpedraConfigureStart();
// Back from Expedra: its window hides unless it shows the run's progress, and the dialog's
// experiment list is fetched again.
void ExpedraConfigureDone();
// Back from Expedra without a new list.
void HandBackFromExpedra();

void ItemDialogUnloaded(const frmItemDialog* dialog);

} // namespace spinlane
