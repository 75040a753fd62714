#include "ui/frmItemDialog.h"

#include "core/Conversions.h"
#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "core/Startup.h"
#include "queue/QueueEditing.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "queue/StatusBar.h"
#include "runner/ProgramLinks.h"
#include "settings/Settings.h"
#include "ui/ItemDialogControl.h"
#include "ui/Login.h"
#include "ui/desktop/DesktopSeams.h"
#include "ui/frmSpinlane.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QSignalBlocker>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include <type_traits>

using namespace Qt::StringLiterals;

namespace spinlane {

namespace {

frmSpinlane& mainForm()
{
    frmSpinlane* form = MainForm();
    if (!form)
        throw RuntimeError(RuntimeError::ObjectNotSet);
    return *form;
}

void setBold(QWidget* widget, bool bold)
{
    QFont font = widget->font();
    font.setBold(bold);
    widget->setFont(font);
}

// Elements 0 .. upper bound - 1 of a list from Expedra, nothing chosen.
void fillList(QComboBox* list, const QStringList& entries)
{
    const QSignalBlocker quiet(list);
    list->clear();
    for (qint32 i = 0; i < upperBound(entries); ++i)
        list->addItem(entries.at(i));
    list->setCurrentIndex(-1);
}

} // namespace

frmItemDialog::frmItemDialog(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(u"frmItemDialog"_s);
    setWindowTitle(u"Spinlane Item Dialog"_s);
    createControls();
    Form_Load();
}

void frmItemDialog::createControls()
{
    fraDialog = new QGroupBox(this);
    fraDialog->setObjectName(u"fraDialog"_s);
    auto* grid = new QGridLayout(fraDialog);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(3, 1);

    const auto label = [this](const QString& name, const QString& caption, QWidget* buddy,
                              bool bold = false) {
        auto* result = new QLabel(caption, fraDialog);
        result->setObjectName(name);
        result->setBuddy(buddy);
        setBold(result, bold);
        return result;
    };
    const auto textBox = [this](QLineEdit*& box, const QString& name) {
        box = new QLineEdit(fraDialog);
        box->setObjectName(name);
        return box;
    };
    const auto button = [this](auto*& control, const QString& name, const QString& caption,
                               const QString& toolTip) {
        control = new std::remove_reference_t<decltype(*control)>(fraDialog);
        control->setObjectName(name);
        control->setText(caption);
        control->setToolTip(toolTip);
        return control;
    };
    const auto list = [this](QComboBox*& combo, const QString& name, const QString& toolTip) {
        combo = new QComboBox(fraDialog);
        combo->setObjectName(name);
        combo->setToolTip(toolTip);
        combo->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        combo->setMinimumContentsLength(16);
        return combo;
    };

    textBox(txtSpinlaneNum, u"txtSpinlaneNum"_s);
    textBox(txtStatus, u"txtStatus"_s);
    grid->addWidget(label(u"lblSpinlaneNum"_s, u"Spinlane No.:"_s, txtSpinlaneNum), 0, 0);
    grid->addWidget(txtSpinlaneNum, 0, 1);
    grid->addWidget(label(u"lblStatus"_s, u"Status:"_s, txtStatus), 0, 2);
    grid->addWidget(txtStatus, 0, 3);

    textBox(txtItemSN, u"txtItemSN"_s)->setToolTip(u"Generate S/N automatically"_s);
    textBox(txtSampleNum, u"txtSampleNum"_s);
    // A sample position: at most nine digits, so that it always fits its field.
    txtSampleNum->setValidator(
        new QRegularExpressionValidator(QRegularExpression(u"\\d{0,9}(\\.\\d*)?"_s), txtSampleNum));
    lblSampleNum = label(u"lblSampleNum"_s, u"Sample No.:"_s, txtSampleNum, true);
    grid->addWidget(label(u"lblItemSN"_s, u"Item S/N:"_s, txtItemSN), 1, 0);
    grid->addWidget(txtItemSN, 1, 1);
    grid->addWidget(lblSampleNum, 1, 2);
    grid->addWidget(txtSampleNum, 1, 3);

    textBox(txtSampleName, u"txtSampleName"_s);
    grid->addWidget(label(u"lblSampleName"_s, u"Sample Name:"_s, txtSampleName), 2, 0);
    grid->addWidget(txtSampleName, 2, 1, 1, 3);
    textBox(txtSampleDes, u"txtSampleDes"_s);
    grid->addWidget(label(u"lblSampleDes"_s, u"Sample Description:"_s, txtSampleDes), 3, 0);
    grid->addWidget(txtSampleDes, 3, 1, 1, 3);

    list(cboExpList, u"cboExpList"_s, u"Choose from available experiments only."_s);
    button(cmdDetail, u"cmdDetail"_s, {}, u"Exp. Detail"_s);
    cmdDetail->setIcon(style()->standardIcon(QStyle::SP_MessageBoxInformation));
    button(cmdUpdate, u"cmdUpdate"_s, kUpdateCaption, u"Update experiments list"_s);
    button(cmdConfig, u"cmdConfig"_s, kConfigureCaption, kConfigureToolTip);
    auto* experiment = new QHBoxLayout;
    experiment->addWidget(cboExpList, 1);
    experiment->addWidget(cmdDetail);
    experiment->addWidget(cmdUpdate);
    experiment->addWidget(cmdConfig);
    grid->addWidget(label(u"lblExpTitle"_s, u"Exp. Title:"_s, cboExpList, true), 4, 0);
    grid->addLayout(experiment, 4, 1, 1, 3);

    list(cboSolList, u"cboSolList"_s, u"Select from list if lock process is required."_s);
    lblSolSel = label(u"lblSolSel"_s, u"Solvent:"_s, cboSolList);
    lblSolRequired = label(u"lblSolRequired"_s, u"Solvent Required."_s, nullptr);
    QPalette warning = lblSolRequired->palette();
    warning.setColor(QPalette::WindowText, QColor(0xB0, 0x00, 0x00));
    lblSolRequired->setPalette(warning);
    lblSolRequired->hide();
    grid->addWidget(lblSolSel, 5, 0);
    grid->addWidget(cboSolList, 5, 1);
    grid->addWidget(lblSolRequired, 5, 2, 1, 2);

    textBox(txtUserID, u"txtUserID"_s)->setReadOnly(true); // typed only where the mode allows
    textBox(txtOrg, u"txtOrg"_s);
    grid->addWidget(label(u"lblUserID"_s, u"User ID:"_s, txtUserID), 6, 0);
    grid->addWidget(txtUserID, 6, 1);
    grid->addWidget(label(u"lblOrg"_s, u"Organization:"_s, txtOrg), 6, 2);
    grid->addWidget(txtOrg, 6, 3);

    textBox(txtOutputFile, u"txtOutputFile"_s);
    button(cmdOutputFile, u"cmdOutputFile"_s, {}, u"Open directory"_s);
    cmdOutputFile->setIcon(style()->standardIcon(QStyle::SP_DirOpenIcon));
    auto* output = new QHBoxLayout;
    output->addWidget(txtOutputFile, 1);
    output->addWidget(cmdOutputFile);
    grid->addWidget(label(u"lblOutputFile"_s, u"Output File Path:"_s, txtOutputFile, true), 7, 0);
    grid->addLayout(output, 7, 1, 1, 3);

    auto* note = label(u"lblNote"_s, u"* * * Bold text fields are mandatory entries! * * *"_s,
                       nullptr, true);
    note->setAlignment(Qt::AlignCenter);
    grid->addWidget(note, 8, 0, 1, 4);

    cmdOK = new QPushButton(u"OK"_s, this);
    cmdOK->setObjectName(u"cmdOK"_s);
    cmdCancel = new QPushButton(u"Cancel"_s, this);
    cmdCancel->setObjectName(u"cmdCancel"_s);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cmdOK);
    buttons->addWidget(cmdCancel);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(fraDialog);
    layout->addLayout(buttons);
    // Enter belongs to the queue-number field; no button takes it.
    for (QPushButton* b : findChildren<QPushButton*>())
        b->setAutoDefault(false);
    setMinimumWidth(560);

    connect(cmdOK, &QPushButton::clicked, this, [this] { cmdOK_Click(); });
    connect(cmdCancel, &QPushButton::clicked, this, [this] { cmdCancel_Click(); });
    connect(txtSpinlaneNum, &QLineEdit::returnPressed, this,
            [this] { txtSpinlaneNum_KeyPress(13); });
    txtSpinlaneNum->installEventFilter(this);
    connect(txtSampleNum, &QLineEdit::textChanged, this, [this] { txtSampleNum_Change(); });
    connect(txtUserID, &QLineEdit::textChanged, this, [this] { txtUserID_Change(); });
    connect(cmdOutputFile, &QToolButton::clicked, this, [this] { cmdOutputFile_Click(); });
    connect(cboExpList, &QComboBox::currentIndexChanged, this, [this] { cboExpList_Click(); });
    connect(cmdDetail, &QToolButton::clicked, this, [this] { cmdDetail_Click(); });
    connect(cmdConfig, &QPushButton::clicked, this, [this] { cmdConfig_Click(); });
    connect(cmdUpdate, &QPushButton::clicked, this, [this] { cmdUpdate_Click(); });
}

QString frmItemDialog::mode() const { return fraDialog->title(); }

QueueItem frmItemDialog::fields() const
{
    QueueItem item;
    item.ItemSN = txtItemSN->text();
    item.SampleNum = toInt32(leadingNumber(txtSampleNum->text()));
    item.SampleName = txtSampleName->text();
    item.SampleDes = txtSampleDes->text();
    item.Solvent = cboSolList->currentText();
    item.ExpTitleIndex = qint16(cboExpList->currentIndex());
    item.UserID = txtUserID->text();
    item.Organization = txtOrg->text();
    item.OutputFilePath = txtOutputFile->text();
    return item;
}

void frmItemDialog::showReadOnlyFields()
{
    for (QLineEdit* box : fraDialog->findChildren<QLineEdit*>()) {
        QPalette shown = palette();
        if (box->isReadOnly())
            shown.setColor(QPalette::Base, shown.color(QPalette::Window));
        box->setPalette(shown);
    }
}

void frmItemDialog::GenerateItemSN()
{
    txtItemSN->clear();
    txtItemSN->setText(spinlane::GenerateItemSN());
}

// Loading --------------------------------------------------------------------------------------

void frmItemDialog::Form_Load()
{
    stay_on_top(this, gAlwaysOnTop);
    fillList(cboSolList, gSolvents);
    fillList(cboExpList, gExpTitles);
    if (upperBound(gExpTitles) > 0)
        cboExpList->setCurrentIndex(0);
    // Without a sample changer, or with experiments only, there is no sample position.
    if (gSampleControl == 1 || (gSampleControl == 2 && gExpQueueOnly)) {
        txtSampleNum->hide();
        lblSampleNum->setEnabled(false);
    }
}

// Fields ---------------------------------------------------------------------------------------

bool frmItemDialog::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == txtSpinlaneNum && event->type() == QEvent::FocusOut)
        txtSpinlaneNum_LostFocus();
    return QDialog::eventFilter(watched, event);
}

void frmItemDialog::txtSpinlaneNum_KeyPress(int keyAscii)
{
    guarded([this, keyAscii] {
        if (keyAscii == 13)
            txtSpinlaneNum->setText(ClampQueueNumber(txtSpinlaneNum->text()));
    });
}

// Only a new item's place is tidied on leaving the field; Enter tidies it in every mode.
void frmItemDialog::txtSpinlaneNum_LostFocus()
{
    guarded([this] {
        if (mode() == kAddItemCaption)
            txtSpinlaneNum->setText(ClampQueueNumber(txtSpinlaneNum->text()));
    });
}

// A sample already queued is described once: a new item for it takes over its description and
// owner.
void frmItemDialog::txtSampleNum_Change()
{
    guarded([this] {
        const qint32 sample = toInt32(leadingNumber(txtSampleNum->text()));
        txtSampleName->clear();
        txtSampleDes->clear();
        txtUserID->clear();
        txtOrg->clear();
        if (const std::optional<QueueItem> item = FirstItemWithSample(sample)) {
            txtSampleName->setText(item->SampleName);
            txtSampleDes->setText(item->SampleDes);
            txtUserID->setText(item->UserID);
            txtOrg->setText(item->Organization);
        } else {
            txtUserID->setText(gCurrentUserID);
            txtOrg->setText(mainForm().txtOrg->text());
        }
    });
}

void frmItemDialog::txtUserID_Change()
{
    guarded([this] { UserIDChanged(txtUserID->text(), *this); });
}

void frmItemDialog::cmdOutputFile_Click()
{
    guarded([this] {
        // A new item's number lies beyond the queue: it offers no file of its own.
        QString start;
        try {
            start = gQueue(toInt32(leadingNumber(txtSpinlaneNum->text()))).OutputFilePath;
        } catch (const RuntimeError&) {
        }
        const FileDialogRequest request{u"Choose a Location & Enter a File Name:"_s,
                                        u"(*.kvd)|*.kvd|(*.*)|*.*"_s, OverwritePrompt,
                                        start.isEmpty() ? korvoPath(u"Data/*.kvd"_s) : start};
        const QString chosen = seams().fileDialogs->saveFile(request);
        if (chosen.isEmpty())
            msgBox(u"No new file was entered."_s, MsgButtons::Ok, MsgIcon::Exclamation);
        txtOutputFile->setText(chosen);
    });
}

// Experiments ----------------------------------------------------------------------------------

// An experiment that needs the lock makes the solvent a mandatory field.
void frmItemDialog::cboExpList_Click()
{
    guarded([this] {
        const int index = cboExpList->currentIndex();
        if (index < 0)
            return;
        Expedra& expedra = linked(gExpedra);
        expedra.SetCurrentExperiment(index);
        const bool lockRequired = expedra.GetLockRequired();
        lblSolRequired->setVisible(lockRequired);
        setBold(lblSolSel, lockRequired);
    });
}

void frmItemDialog::cmdDetail_Click()
{
    guarded([this] {
        const int index = cboExpList->currentIndex();
        if (upperBound(gExpTitles) <= 0 || index < 0)
            return;
        Expedra& expedra = linked(gExpedra);
        expedra.SetCurrentExperiment(index);
        const QString details = expedra.GetExperimentDetails();
        msgBox(details, MsgButtons::Ok, MsgIcon::Information,
               u"Details of "_s + cboExpList->itemText(index));
    });
}

void frmItemDialog::cmdConfig_Click()
{
    guarded([this] {
        const QString caption = cmdConfig->text();
        if (caption == kConfigureCaption) {
            cmdConfig->setText(kUpdateCaption);
            cmdConfig->setToolTip(u"Click to update the exp. list and/or hide Expedra program."_s);
            ExpedraConfigureStart();
        } else if (caption == kUpdateCaption) {
            cmdConfig->setText(kConfigureCaption);
            cmdConfig->setToolTip(kConfigureToolTip);
            ExpedraConfigureDone();
        }
    });
}

void frmItemDialog::cmdUpdate_Click()
{
    guarded([this] { refillExperimentList(); });
}

void frmItemDialog::refillExperimentList()
{
    const int chosen = cboExpList->currentIndex();
    RefreshExperimentTitles();
    fillList(cboExpList, gExpTitles);
    // A position the shorter list no longer has leaves the experiment to be chosen again.
    if (upperBound(gExpTitles) >= 1 && chosen < cboExpList->count())
        cboExpList->setCurrentIndex(chosen);
}

// Closing --------------------------------------------------------------------------------------

void frmItemDialog::endConfiguring()
{
    if (cmdConfig->text() != kUpdateCaption)
        return;
    cmdConfig->setText(kConfigureCaption);
    cmdConfig->setToolTip(kConfigureToolTip);
    ExpedraConfigureDone();
}

void frmItemDialog::cmdOK_Click()
{
    guarded([this] {
        const QString currentMode = mode();
        if (currentMode == kAddItemCaption) {
            // Tidied as leaving the field would: the queue may have changed since.
            txtSpinlaneNum->setText(ClampQueueNumber(txtSpinlaneNum->text()));
            CommitNewItem(toInt16(leadingNumber(txtSpinlaneNum->text())), fields());
            endConfiguring();
        } else if (currentMode == kEditItemCaption) {
            CommitEditedItem(fields());
            endConfiguring();
        }
        close();
    });
}

void frmItemDialog::cmdCancel_Click()
{
    guarded([this] { close(); });
}

void frmItemDialog::reject() { close(); }

void frmItemDialog::closeForNextOperation()
{
    m_reselectOnUnload = false;
    close();
}

void frmItemDialog::closeEvent(QCloseEvent* event)
{
    guarded([this] { Form_Unload(); });
    txtSpinlaneNum->removeEventFilter(this);
    ItemDialogUnloaded(this);
    event->accept();
}

void frmItemDialog::Form_Unload()
{
    if (mode() == kItemPropertiesCaption && m_reselectOnUnload) {
        const qint32 row = toInt32(leadingNumber(txtSpinlaneNum->text()));
        if (row >= 1 && row <= gQueueList.count())
            gQueueList.selectOnly(row);
        UpdateSelectionStatus();
    }
    // Left while configuring experiments: Expedra goes back without a new list.
    if (cmdConfig->text() == kUpdateCaption) {
        cmdConfig->setText(kConfigureCaption);
        cmdConfig->setToolTip(kConfigureToolTip);
        HandBackFromExpedra();
    }
}

} // namespace spinlane
