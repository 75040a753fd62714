#pragma once

#include <QMainWindow>

#include <optional>

class QAction;
class QCheckBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QMenu;
class QProgressBar;
class QPushButton;
class QToolButton;

namespace spinlane {

class QueueView;
struct WindowPosition;

// The main window: the queue list, the run controls below it, the editing controls to its right,
// the status bar, the menus and the login panel over everything until a user logs in. Each
// control's objectName is its name; menu items are named by their menu and index
// ("mnuPrefs_30") and the status bar's panels "stbSpinlane_1" to "stbSpinlane_5". The window
// shows the run state (gRunControls) and the status bar's state (gStatusBar) as they change.
class frmSpinlane : public QMainWindow {
    Q_OBJECT
public:
    explicit frmSpinlane(QWidget* parent = nullptr);
    ~frmSpinlane() override;

    QAction* menuItem(const QString& menu, int index) const; // nullptr when there is none
    QMenu* menubarMenu(int index) const;

    // Hundredths of a millimetre; 0 hides the sample column.
    void setSampleColumnWidth(int width);
    std::optional<WindowPosition> restoredPosition() const;

    // Handlers, each guarded against run-time errors.
    void cmdStartQueue_Click();
    void chkEntireQueue_Click();
    void cmdStartOver_Click();
    void cmdEnter_Click();
    void cmdExit_Click();
    void txtUserID_Change();
    void cmdAdd_Click();
    void cmdEdit_Click();
    void cmdDelete_Click();
    void updQueueItem_UpClick();
    void updQueueItem_DownClick();
    void lvwSpinlane_AfterLabelEdit(const QString& newText);
    void lvwSpinlane_ColumnClick(int column);
    void mnuFile_Click(int index);
    void mnuPopup_Click(int index);
    void mnuPrefs_Click(int index);
    void mnuQueueLayout_Click(int index);
    void mnuHelp_Click(int index);

    QueueView* lvwSpinlane = nullptr;
    QCheckBox* chkEntireQueue = nullptr;
    QPushButton* cmdStartQueue = nullptr;
    QPushButton* cmdStartOver = nullptr;
    QPushButton* cmdAdd = nullptr;
    QPushButton* cmdEdit = nullptr;
    QPushButton* cmdDelete = nullptr;
    QWidget* updQueueItem = nullptr; // the up and down arrows
    QToolButton* updQueueItemUp = nullptr;
    QToolButton* updQueueItemDown = nullptr;
    QProgressBar* pgbSpinlane = nullptr;
    QLabel* stbPanels[5] = {};

    QWidget* picLogin = nullptr;
    QGroupBox* fraLogin = nullptr;
    QLabel* lblUserID = nullptr;
    QLineEdit* txtUserID = nullptr;
    QLabel* lblPW = nullptr;
    QLineEdit* txtPW = nullptr;
    QLabel* lblOrg = nullptr;
    QLineEdit* txtOrg = nullptr;
    QPushButton* cmdEnter = nullptr;
    QPushButton* cmdExit = nullptr;

protected:
    void closeEvent(QCloseEvent* event) override; // Form_Unload
    void resizeEvent(QResizeEvent* event) override; // Form_Resize

private:
    void createControls();
    void createLoginPanel();
    void createMenus();
    void createStatusBar();
    void showRunControls();
    void showStatusBar();
    void showForecastTitle();
    QString rowForecastToolTip(int row) const;
    void Form_Unload(QCloseEvent* event);
    void setLogEnabled(QAction* item);
    void setExpQueueOnly(bool on);
    void editSelectedItem();
    void deleteSelectedItems();
    void showItemProperties();
};

// The one main window of the program, while it exists.
frmSpinlane* MainForm();
frmSpinlane& LoadMainForm(); // creates it, hidden, unless it exists
void DeleteMainForm();

} // namespace spinlane
