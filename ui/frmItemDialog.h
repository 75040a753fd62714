#pragma once

#include "queue/QueueItem.h"

#include <QDialog>

class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QToolButton;

namespace spinlane {

// The frame captions, which are also the dialog's modes.
inline const QString kAddItemCaption = QStringLiteral("Add Spinlane Item");
inline const QString kEditItemCaption = QStringLiteral("Edit Selected Item");
inline const QString kItemPropertiesCaption = QStringLiteral("Selected Item Properties");
// cmdConfig's captions: idle, and while the user configures experiments in Expedra.
inline const QString kConfigureCaption = QStringLiteral("Configure");
inline const QString kUpdateCaption = QStringLiteral("Update");
inline const QString kConfigureToolTip =
    QStringLiteral("Jump to Expedra program to configure exp. list.");

// The item dialog, in which an item is added, edited or shown read-only. Its mode is the caption
// of the frame fraDialog, set by the operation that opens it. OK hands the fields to the add or
// edit commit; OK, Cancel and the close box all end in Form_Unload, after which the dialog is
// gone. Each control's objectName is its name.
class frmItemDialog : public QDialog {
    Q_OBJECT
public:
    explicit frmItemDialog(QWidget* parent = nullptr);

    QString mode() const;
    // The fields as a queue item (its status left empty).
    QueueItem fields() const;

    void GenerateItemSN();
    // Boxes that cannot be typed in look so.
    void showReadOnlyFields();

    QPushButton* cmdOK = nullptr;
    QPushButton* cmdCancel = nullptr;
    QGroupBox* fraDialog = nullptr;
    QLineEdit* txtOutputFile = nullptr;
    QPushButton* cmdConfig = nullptr;
    QLineEdit* txtItemSN = nullptr;
    QToolButton* cmdDetail = nullptr;
    QLabel* lblSolSel = nullptr;
    QComboBox* cboSolList = nullptr;
    QComboBox* cboExpList = nullptr;
    QLineEdit* txtSpinlaneNum = nullptr;
    QLineEdit* txtSampleName = nullptr;
    QLabel* lblSampleNum = nullptr;
    QLineEdit* txtSampleNum = nullptr;
    QLineEdit* txtSampleDes = nullptr;
    QLineEdit* txtUserID = nullptr;
    QLineEdit* txtStatus = nullptr;
    QPushButton* cmdUpdate = nullptr;
    QToolButton* cmdOutputFile = nullptr;
    QLineEdit* txtOrg = nullptr;
    QLabel* lblSolRequired = nullptr;

    // Handlers, each guarded against run-time errors.
    void cmdOK_Click();
    void cmdCancel_Click();
    void txtSpinlaneNum_KeyPress(int keyAscii);
    void txtSpinlaneNum_LostFocus();
    void txtSampleNum_Change();
    void txtUserID_Change();
    void cmdOutputFile_Click();
    void cboExpList_Click();
    void cmdDetail_Click();
    void cmdConfig_Click();
    void cmdUpdate_Click();

    // The experiment list again from Expedra, keeping the chosen position.
    void refillExperimentList();
    // Closes the dialog for another operation's: a properties view then leaves the selection as
    // it is.
    void closeForNextOperation();

protected:
    void closeEvent(QCloseEvent* event) override; // Form_Unload
    bool eventFilter(QObject* watched, QEvent* event) override;
    void reject() override; // Escape closes the dialog as its close box does

private:
    void createControls();
    void Form_Load();
    void Form_Unload();
    void endConfiguring();

    bool m_reselectOnUnload = true;
};

} // namespace spinlane
