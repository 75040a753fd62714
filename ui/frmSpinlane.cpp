#include "ui/frmSpinlane.h"

#include "core/Conversions.h"
#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "core/Startup.h"
#include "core/wait_in_seconds.h"
#include "queue/QueueEditing.h"
#include "queue/QueueReorder.h"
#include "queue/QueueStore.h"
#include "queue/StatusBar.h"
#include "runner/Forecast.h"
#include "runner/ProgramLinks.h"
#include "runner/RunControls.h"
#include "runner/RunQueue.h"
#include "settings/RecoveryJournal.h"
#include "settings/Settings.h"
#include "ui/ForecastHints.h"
#include "ui/ItemDialogControl.h"
#include "ui/Login.h"
#include "ui/QueueView.h"
#include "ui/Twips.h"
#include "ui/WindowLayout.h"
#include "ui/frmAbout.h"
#include "ui/frmItemDialog.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QProgressBar>
#include <QPushButton>
#include <QStatusBar>
#include <QStyle>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include <memory>

using namespace Qt::StringLiterals;

namespace spinlane {

namespace {

// Design size of the window's client area, between the menu bar and the status bar.
constexpr int kClientWidth = 12000;
constexpr int kClientHeight = 6000;

std::unique_ptr<frmSpinlane>& theMainForm()
{
    static std::unique_ptr<frmSpinlane> form;
    return form;
}

QString itemName(const QString& menu, int index) { return menu + u'_' + QString::number(index); }

QAction* addItem(QMenu* menu, const QString& array, int index, const QString& caption,
                 const QKeySequence& shortcut = {})
{
    QAction* item = menu->addAction(caption);
    item->setObjectName(itemName(array, index));
    item->setShortcut(shortcut);
    return item;
}

void addSeparator(QMenu* menu, const QString& array, int index)
{
    menu->addSeparator()->setObjectName(itemName(array, index));
}

QMenu* addMenu(QMenuBar* bar, int index, const QString& title)
{
    QMenu* menu = bar->addMenu(title);
    menu->setObjectName(itemName(u"mnuMenubar"_s, index));
    return menu;
}

template <typename Widget>
Widget* designed(QWidget* parent, const QString& name, int left, int top, int width, int height)
{
    auto* widget = new Widget(parent);
    widget->setObjectName(name);
    widget->setGeometry(twipsToPixels(left, parent), twipsToPixels(top, parent),
                        twipsToPixels(width, parent), twipsToPixels(height, parent));
    return widget;
}

} // namespace

frmSpinlane::frmSpinlane(QWidget* parent)
    : QMainWindow(parent)
{
    setObjectName(u"frmSpinlane"_s);
    setWindowTitle(programTitle());
    setWindowIcon(QIcon(u":/spinlane/spinlane.png"_s));
    createControls();
    createMenus();
    createStatusBar();
    createLoginPanel();
    resize(twipsToPixels(kClientWidth, this), twipsToPixels(kClientHeight, this)
                                                  + menuBar()->sizeHint().height()
                                                  + statusBar()->sizeHint().height());

    connect(&gRunControls, &RunControls::changed, this, [this] { showRunControls(); });
    connect(&gStatusBar, &StatusBar::changed, this, [this] { showStatusBar(); });
    showRunControls();
    showStatusBar();

    // The forecast, an addition to the classic window: each row's tooltip, and the queue's
    // expected end in the title while a run goes on (checked on every change of the list or the
    // run controls, and every 15 seconds, so the minute shown follows the run).
    lvwSpinlane->setRowToolTip([this](int row) { return rowForecastToolTip(row); });
    connect(&gQueueList, &QAbstractItemModel::dataChanged, this, [this] { showForecastTitle(); });
    auto* forecastTimer = new QTimer(this);
    forecastTimer->setInterval(15000);
    connect(forecastTimer, &QTimer::timeout, this, [this] { showForecastTitle(); });
    forecastTimer->start();
}

void frmSpinlane::showForecastTitle()
{
    setWindowTitle(forecastWindowTitle(forecastNow(), programTitle()));
}

QString frmSpinlane::rowForecastToolTip(int row) const
{
    const QAbstractItemModel* model = lvwSpinlane->model();
    const qint32 number = model->index(row, QueueList::QueueNumColumn).data().toString().toInt();
    const QString title = model->index(row, QueueList::ExpTitleColumn).data().toString();
    return forecastToolTip(forecastNow(), number, title);
}

frmSpinlane::~frmSpinlane() = default;

void frmSpinlane::createControls()
{
    auto* client = new QWidget(this);
    client->setObjectName(u"picClient"_s);
    setCentralWidget(client);

    lvwSpinlane = new QueueView(gQueueList, client);
    lvwSpinlane->setObjectName(u"lvwSpinlane"_s);
    lvwSpinlane->setGeometry(twipsToPixels(120, client), twipsToPixels(120, client),
                             twipsToPixels(10200, client), twipsToPixels(5100, client));

    // Below the list.
    chkEntireQueue = designed<QCheckBox>(client, u"chkEntireQueue"_s, 150, 5430, 2400, 330);
    chkEntireQueue->setText(u"Run Entire Queue"_s);
    cmdStartQueue = designed<QPushButton>(client, u"cmdStartQueue"_s, 2640, 5340, 2850, 510);
    cmdStartQueue->setEnabled(false); // until start-up is done
    QFont bold = cmdStartQueue->font();
    bold.setBold(true);
    cmdStartQueue->setFont(bold);
    cmdStartOver = designed<QPushButton>(client, u"cmdStartOver"_s, 5610, 5340, 1800, 510);
    cmdStartOver->setText(u"Start Over"_s);

    // Right of the list.
    // Add and Delete follow the list's right edge as the window is resized; Edit keeps its place,
    // above the list, which may grow under it. The buttons have no captions, so no mnemonic
    // reaches them; their tool tips name them.
    cmdAdd = designed<QPushButton>(client, u"cmdAdd"_s, 10440, 120, 1440, 450);
    cmdAdd->setToolTip(u"Add a new item"_s);
    cmdEdit = designed<QPushButton>(client, u"cmdEdit"_s, 10440, 660, 1440, 450);
    cmdDelete = designed<QPushButton>(client, u"cmdDelete"_s, 10440, 1200, 1440, 450);
    cmdDelete->setToolTip(u"Delete the selected item"_s);
    for (auto [button, name, theme, fallback] :
         {std::tuple{cmdAdd, u"Add"_s, u"list-add"_s, QStyle::SP_FileIcon},
          std::tuple{cmdEdit, u"Edit"_s, u"document-edit"_s, QStyle::SP_FileDialogContentsView},
          std::tuple{cmdDelete, u"Delete"_s, u"edit-delete"_s, QStyle::SP_TrashIcon}}) {
        button->setAccessibleName(name);
        button->setIcon(QIcon::fromTheme(theme, style()->standardIcon(fallback)));
    }

    updQueueItem = designed<QWidget>(client, u"updQueueItem"_s, 10950, 1800, 420, 900);
    updQueueItem->setToolTip(u"Change item queue order"_s);
    auto* arrows = new QVBoxLayout(updQueueItem);
    arrows->setContentsMargins(0, 0, 0, 0);
    arrows->setSpacing(0);
    for (auto [button, arrow, name] :
         {std::tuple{&updQueueItemUp, Qt::UpArrow, u"updQueueItemUp"_s},
          std::tuple{&updQueueItemDown, Qt::DownArrow, u"updQueueItemDown"_s}}) {
        *button = new QToolButton(updQueueItem);
        (*button)->setObjectName(name);
        (*button)->setArrowType(arrow);
        (*button)->setToolTip(updQueueItem->toolTip());
        (*button)->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
        arrows->addWidget(*button);
    }

    cmdEdit->raise();

    connect(cmdStartQueue, &QPushButton::clicked, this, [this] { cmdStartQueue_Click(); });
    connect(cmdStartOver, &QPushButton::clicked, this, [this] { cmdStartOver_Click(); });
    connect(chkEntireQueue, &QCheckBox::clicked, this, [this] { chkEntireQueue_Click(); });
    connect(cmdAdd, &QPushButton::clicked, this, [this] { cmdAdd_Click(); });
    connect(cmdEdit, &QPushButton::clicked, this, [this] { cmdEdit_Click(); });
    connect(cmdDelete, &QPushButton::clicked, this, [this] { cmdDelete_Click(); });
    connect(updQueueItemUp, &QToolButton::clicked, this, [this] { updQueueItem_UpClick(); });
    connect(updQueueItemDown, &QToolButton::clicked, this, [this] { updQueueItem_DownClick(); });
    connect(lvwSpinlane->header(), &QHeaderView::sectionClicked, this,
            [this](int column) { lvwSpinlane_ColumnClick(column); });
    connect(lvwSpinlane, &QueueView::queueNumberTyped, this,
            [this](const QString& text) { lvwSpinlane_AfterLabelEdit(text); });
    connect(lvwSpinlane, &QueueView::popupRequested, this,
            [this](const QPoint& position) { menubarMenu(110)->popup(position); });
}

void frmSpinlane::createLoginPanel()
{
    picLogin = new QWidget(this);
    picLogin->setObjectName(u"picLogin"_s);
    picLogin->setAutoFillBackground(true);
    picLogin->move(0, menuBar()->sizeHint().height());

    fraLogin = designed<QGroupBox>(picLogin, u"fraLogin"_s, 0, 0, 4800, 2250);
    fraLogin->setTitle(u"Log in:"_s);
    auto* grid = new QGridLayout(fraLogin);
    const auto field = [&](QLabel*& label, const QString& labelName, const QString& caption,
                           QLineEdit*& box, const QString& boxName, int row) {
        label = new QLabel(caption, fraLogin);
        label->setObjectName(labelName);
        box = new QLineEdit(fraLogin);
        box->setObjectName(boxName);
        label->setBuddy(box);
        grid->addWidget(label, row, 0);
        grid->addWidget(box, row, 1);
        connect(box, &QLineEdit::returnPressed, this, [this] { cmdEnter->click(); });
    };
    field(lblUserID, u"lblUserID"_s, u"User ID:"_s, txtUserID, u"txtUserID"_s, 0);
    field(lblPW, u"lblPW"_s, u"Password:"_s, txtPW, u"txtPW"_s, 1);
    field(lblOrg, u"lblOrg"_s, u"Organization:"_s, txtOrg, u"txtOrg"_s, 2);
    txtPW->setEchoMode(QLineEdit::Password);
    lblPW->setEnabled(false);
    txtPW->setEnabled(false);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    cmdEnter = new QPushButton(u"Enter"_s, fraLogin);
    cmdEnter->setObjectName(u"cmdEnter"_s);
    cmdEnter->setDefault(true);
    cmdExit = new QPushButton(u"Exit"_s, fraLogin);
    cmdExit->setObjectName(u"cmdExit"_s);
    buttons->addWidget(cmdEnter);
    buttons->addWidget(cmdExit);
    grid->addLayout(buttons, 3, 0, 1, 2);

    connect(txtUserID, &QLineEdit::textChanged, this, [this] { txtUserID_Change(); });
    connect(cmdEnter, &QPushButton::clicked, this, [this] { cmdEnter_Click(); });
    connect(cmdExit, &QPushButton::clicked, this, [this] { cmdExit_Click(); });
}

void frmSpinlane::createMenus()
{
    QMenuBar* bar = menuBar();
    QMenu* file = addMenu(bar, 10, u"&File"_s);
    const QString mnuFile = u"mnuFile"_s;
    addItem(file, mnuFile, 5, u"&Add"_s, QKeySequence(Qt::CTRL | Qt::Key_A));
    addItem(file, mnuFile, 10, u"&Edit"_s, QKeySequence(Qt::CTRL | Qt::Key_E));
    addItem(file, mnuFile, 20, u"&Delete"_s, QKeySequence(Qt::CTRL | Qt::Key_D));
    addSeparator(file, mnuFile, 25);
    addItem(file, mnuFile, 30, u"&Properties"_s, QKeySequence(Qt::CTRL | Qt::Key_P));
    addSeparator(file, mnuFile, 45);
    addItem(file, mnuFile, 46, u"&Log out"_s);
    addItem(file, mnuFile, 50, u"E&xit"_s);
    for (int index : {5, 10, 20, 30, 46, 50})
        connect(menuItem(mnuFile, index), &QAction::triggered, this,
                [this, index] { mnuFile_Click(index); });

    QMenu* prefs = addMenu(bar, 20, u"&Preferences"_s);
    const QString mnuPrefs = u"mnuPrefs"_s;
    addItem(prefs, mnuPrefs, 20, u"&Exp Queue Only"_s);
    addSeparator(prefs, mnuPrefs, 25);
    addItem(prefs, mnuPrefs, 30, u"Enable Log"_s);
    addItem(prefs, mnuPrefs, 40, u"Open Log"_s);
    addSeparator(prefs, mnuPrefs, 45);
    addItem(prefs, mnuPrefs, 50, u"&Always On Top"_s);
    addSeparator(prefs, mnuPrefs, 55);
    addItem(prefs, mnuPrefs, 60, u"Show Current Exp. Progress"_s);
    addItem(prefs, mnuPrefs, 70, u"Show Sample Changer"_s);
    addSeparator(prefs, mnuPrefs, 75);
    for (int index : {20, 30, 40, 50, 60, 70}) {
        QAction* item = menuItem(mnuPrefs, index);
        item->setCheckable(index != 40);
        connect(item, &QAction::triggered, this, [this, index] { mnuPrefs_Click(index); });
    }
    QMenu* layout = prefs->addMenu(u"&Queue Layout"_s);
    layout->setObjectName(u"mnuQueueLayout"_s);
    layout->menuAction()->setObjectName(itemName(mnuPrefs, 80));
    const QString mnuQueueLayout = u"mnuQueueLayout"_s;
    addItem(layout, mnuQueueLayout, 10, u"&List View"_s, QKeySequence(Qt::CTRL | Qt::Key_L));
    addItem(layout, mnuQueueLayout, 20, u"&Tree View"_s, QKeySequence(Qt::CTRL | Qt::Key_T));
    for (int index : {10, 20}) {
        QAction* item = menuItem(mnuQueueLayout, index);
        item->setCheckable(true);
        connect(item, &QAction::triggered, this, [this, index] { mnuQueueLayout_Click(index); });
    }

    // Holds no command of its own.
    addMenu(bar, 30, u"&Commands"_s)->menuAction()->setVisible(false);

    QMenu* help = addMenu(bar, 100, u"&Help"_s);
    addItem(help, u"mnuHelp"_s, 10, u"&About"_s);
    connect(menuItem(u"mnuHelp"_s, 10), &QAction::triggered, this, [this] { mnuHelp_Click(10); });

    // The list's context menu: a menu of the window that the menu bar never shows.
    auto* popup = new QMenu(u"Popup"_s, this);
    popup->setObjectName(itemName(u"mnuMenubar"_s, 110));
    const QString mnuPopup = u"mnuPopup"_s;
    addItem(popup, mnuPopup, 3, u"Add"_s);
    addItem(popup, mnuPopup, 5, u"Edit"_s);
    addItem(popup, mnuPopup, 10, u"Delete"_s);
    addSeparator(popup, mnuPopup, 15);
    addItem(popup, mnuPopup, 20, u"Properties"_s);
    for (int index : {3, 5, 10, 20})
        connect(menuItem(mnuPopup, index), &QAction::triggered, this,
                [this, index] { mnuPopup_Click(index); });
}

void frmSpinlane::createStatusBar()
{
    QStatusBar* bar = statusBar();
    bar->setObjectName(u"stbSpinlane"_s);
    bar->setSizeGripEnabled(false);
    const QString toolTips[5] = {u"Current Selected Sample Name"_s,
                                 u"Current Selected Experiment Title"_s, u"Spinlane Progress"_s,
                                 u"Current Selected Exp Output File Path"_s,
                                 u"Sample Spin Status"_s};
    const int widths[5] = {1800, 1800, 1500, 0, 1500};
    for (int i = 0; i < 5; ++i) {
        auto* panel = new QLabel(bar);
        panel->setObjectName(u"stbSpinlane_"_s + QString::number(i + 1));
        panel->setToolTip(toolTips[i]);
        panel->setFrameShape(QFrame::StyledPanel);
        panel->setFrameShadow(QFrame::Sunken);
        if (widths[i] > 0)
            panel->setFixedWidth(twipsToPixels(widths[i], this));
        else
            panel->setMinimumWidth(twipsToPixels(1200, this));
        bar->addWidget(panel, widths[i] > 0 ? 0 : 1);
        stbPanels[i] = panel;
    }

    // The progress bar sits inside panel 3, 60 twips below the status bar's top.
    auto* progressPanel = new QHBoxLayout(stbPanels[2]);
    const int inset = twipsToPixels(60, this);
    progressPanel->setContentsMargins(inset, inset, inset, inset);
    pgbSpinlane = new QProgressBar(stbPanels[2]);
    pgbSpinlane->setObjectName(u"pgbSpinlane"_s);
    pgbSpinlane->setTextVisible(false);
    pgbSpinlane->setToolTip(toolTips[2]);
    progressPanel->addWidget(pgbSpinlane);
}

QAction* frmSpinlane::menuItem(const QString& menu, int index) const
{
    return findChild<QAction*>(itemName(menu, index));
}

QMenu* frmSpinlane::menubarMenu(int index) const
{
    return findChild<QMenu*>(itemName(u"mnuMenubar"_s, index));
}

void frmSpinlane::setSampleColumnWidth(int width)
{
    lvwSpinlane->setColumnWidthHundredthsMm(QueueList::SampleNumColumn, width);
}

std::optional<WindowPosition> frmSpinlane::restoredPosition() const
{
    if (isMinimized() || isMaximized())
        return std::nullopt;
    return WindowPosition{float(pixelsToTwips(pos().y(), this)),
                          float(pixelsToTwips(pos().x(), this))};
}

void frmSpinlane::showRunControls()
{
    showForecastTitle();
    cmdStartQueue->setText(gRunControls.startQueueCaption());
    cmdStartQueue->setToolTip(gRunControls.startQueueToolTip());
    cmdStartOver->setVisible(gRunControls.startOverVisible());
}

void frmSpinlane::showStatusBar()
{
    stbPanels[0]->setText(gStatusBar.text(StatusBar::SamplePanel));
    stbPanels[1]->setText(gStatusBar.text(StatusBar::ExperimentPanel));
    stbPanels[3]->setText(gStatusBar.text(StatusBar::OutputFilePanel));
    stbPanels[3]->setToolTip(gStatusBar.outputFileToolTip());
    stbPanels[4]->setText(gStatusBar.text(StatusBar::SpinPanel));
    pgbSpinlane->setRange(0, gStatusBar.progressMaximum());
    pgbSpinlane->setValue(gStatusBar.progressValue());
}

// Run controls --------------------------------------------------------------------------------

void frmSpinlane::cmdStartQueue_Click()
{
    guarded(ClickStartQueue);
}

void frmSpinlane::chkEntireQueue_Click()
{
    guarded([this] {
        if (gRunControls.startQueueCaption() == kRunAgainCaption)
            return;
        const bool checked = chkEntireQueue->isChecked();
        qint32 checkedRows = 0;
        for (qint32 row = 1; row <= gQueueList.count(); ++row) {
            gQueueList.setChecked(row, checked);
            checkedRows += checked ? 1 : 0;
        }
        gStatusBar.setProgress(checkedRows > 0 ? checkedRows : 1, gStatusBar.progressValue());
    });
}

void frmSpinlane::cmdStartOver_Click()
{
    guarded([this] {
        gCurrentQueueNum = 0;
        chkEntireQueue->setChecked(false);
        for (qint32 row = 1; row <= gQueueList.count(); ++row) {
            gQueueList.setGhosted(row, false);
            gQueueList.setBold(row, false);
            gQueueList.setChecked(row, false);
            gQueueList.setForeColor(row, kWindowTextColor);
            gQueue(toInt32(leadingNumber(gQueueList.row(row).text))).Status = u"Idle"_s;
            gQueueList.setSubItem(row, QueueList::StatusSubItem, u"Idle"_s);
        }
        gStatusBar.resetProgressValue();
        gRunControls.setStartQueueCaption(kStartCaption);
        chkEntireQueue->setEnabled(true);
        gRunControls.setStartQueueToolTip({});
        gCurrentQueueNum = 0;
        SyncQueueFromList(0);
    });
}

// Editing the queue ----------------------------------------------------------------------------

// Edit, Delete and Properties need an item; Add always acts.
void frmSpinlane::editSelectedItem()
{
    if (gQueueList.count() >= 1)
        EditSelectedItem();
}

void frmSpinlane::deleteSelectedItems()
{
    if (gQueueList.count() >= 1)
        DeleteSelectedItems();
}

void frmSpinlane::showItemProperties()
{
    if (gQueueList.count() >= 1)
        ShowItemProperties();
}

void frmSpinlane::cmdAdd_Click()
{
    guarded([] { AddQueueItem(); });
}

void frmSpinlane::cmdEdit_Click()
{
    guarded([this] { editSelectedItem(); });
}

void frmSpinlane::cmdDelete_Click()
{
    guarded([this] { deleteSelectedItems(); });
}

void frmSpinlane::updQueueItem_UpClick()
{
    guarded([] { MoveSelectedRow(-1); });
}

void frmSpinlane::updQueueItem_DownClick()
{
    guarded([] { MoveSelectedRow(+1); });
}

void frmSpinlane::lvwSpinlane_AfterLabelEdit(const QString& newText)
{
    guarded([&newText] { RenumberSelectedRow(newText); });
}

// The number column puts the rows back in queue order; any other column only shows them in its
// order, which leaves the run order as it is. Not while the queue runs.
void frmSpinlane::lvwSpinlane_ColumnClick(int column)
{
    guarded([column] {
        if (gRunControls.startQueueCaption() != kStopCaption)
            SyncQueueFromList(qint16(column));
    });
}

// Closing --------------------------------------------------------------------------------------

void frmSpinlane::closeEvent(QCloseEvent* event)
{
    event->ignore();
    guarded([this, event] { Form_Unload(event); });
}

void frmSpinlane::Form_Unload(QCloseEvent* event)
{
    // A running queue cannot be closed.
    if (gRunControls.startQueueCaption() == kStopCaption)
        return;
    CloseAbout();
    // The item dialog's own unload hands Expedra back when the user was sent there to configure.
    if (frmItemDialog* dialog = ItemDialog())
        dialog->close();
    if (gRunControls.startQueueCaption() == kStopCaption) {
        RequestStop();
        wait_in_seconds(1);
        while (gStopRequested)
            seams().eventPump->waitForEvents(kEventWaitMs);
    }
    if (!SaveSettings(restoredPosition()))
        return;
    ReleasePrograms();
    event->accept();
    EndProgram();
}

void frmSpinlane::resizeEvent(QResizeEvent* event)
{
    QMainWindow::resizeEvent(event);
    guarded([this] {
        if (gStarting || isMinimized())
            return;
        ArrangeLayout(*this);
    });
}

// Menus ----------------------------------------------------------------------------------------

void frmSpinlane::mnuFile_Click(int index)
{
    guarded([this, index] {
        switch (index) {
        case 5: AddQueueItem(); break;
        case 10: editSelectedItem(); break;
        case 20: deleteSelectedItems(); break;
        case 30: showItemProperties(); break;
        case 46: Logout(*this); break;
        case 50: close(); break;
        default: break;
        }
    });
}

void frmSpinlane::mnuPopup_Click(int index)
{
    guarded([this, index] {
        switch (index) {
        case 3: AddQueueItem(); break;
        case 5: editSelectedItem(); break;
        case 10: deleteSelectedItems(); break;
        case 20: showItemProperties(); break;
        default: break;
        }
    });
}

void frmSpinlane::mnuQueueLayout_Click(int index)
{
    guarded([this, index] {
        gQueueLayout = qint16(index / 10);
        menuItem(u"mnuQueueLayout"_s, 10)->setChecked(index == 10);
        menuItem(u"mnuQueueLayout"_s, 20)->setChecked(index == 20);
        SettingsChanged();
    });
}

void frmSpinlane::mnuHelp_Click(int index)
{
    guarded([this, index] {
        if (index == 10)
            ShowAbout(this);
    });
}

// Login ----------------------------------------------------------------------------------------

void frmSpinlane::cmdEnter_Click()
{
    guarded([this] { Login(*this); });
}

void frmSpinlane::cmdExit_Click()
{
    guarded([this] { close(); });
}

void frmSpinlane::txtUserID_Change()
{
    guarded([this] { UserIDChanged(txtUserID->text(), *this); });
}

// The one main window -------------------------------------------------------------------------

frmSpinlane* MainForm() { return theMainForm().get(); }

frmSpinlane& LoadMainForm()
{
    if (!theMainForm())
        theMainForm() = std::make_unique<frmSpinlane>();
    return *theMainForm();
}

void DeleteMainForm()
{
    CloseAbout();
    theMainForm().reset();
}

} // namespace spinlane
