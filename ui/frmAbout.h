#pragma once

#include <QDialog>

class QLabel;
class QPushButton;

namespace spinlane {

// The About box: the program's title and version, how it handles samples, and a button that
// starts the platform's system-information tool (disabled where there is none).
class frmAbout : public QDialog {
    Q_OBJECT
public:
    explicit frmAbout(QWidget* parent = nullptr);

    QLabel* lblTitle = nullptr;
    QLabel* lblVersion = nullptr;
    QLabel* lblDescription = nullptr;
    QPushButton* cmdOK = nullptr;
    QPushButton* cmdSysInfo = nullptr;

private:
    void cmdSysInfo_Click();
};

// The sentence the About box shows for the sample-control settings.
QString sampleControlDescription();

// Shows the About box over `parent`, modal and not blocking; one at a time.
void ShowAbout(QWidget* parent);
void CloseAbout();

} // namespace spinlane
