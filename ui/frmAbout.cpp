#include "ui/frmAbout.h"

#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "core/Startup.h"
#include "settings/Settings.h"
#include "ui/desktop/DesktopSeams.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace spinlane {

namespace {

QPointer<frmAbout>& openAbout()
{
    static QPointer<frmAbout> about;
    return about;
}

} // namespace

QString sampleControlDescription()
{
    if (gExpQueueOnly)
        return u"Experiment queue only: the samples are not handled, only the experiments run."_s;
    switch (gSampleControl) {
    case 1:
        return u"Single-sample interface: each sample is put in by hand; Spinlane runs the "
               u"experiments."_s;
    case 2:
        return u"Sample changer: Spinlane loads, spins and ejects every sample and runs its "
               u"experiment."_s;
    default: return u"No sample handling: the queue is only walked through."_s;
    }
}

frmAbout::frmAbout(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(u"frmAbout"_s);
    setWindowTitle(u"About "_s + programTitle());

    lblTitle = new QLabel(programTitle(), this);
    lblTitle->setObjectName(u"lblTitle"_s);
    QFont titleFont = lblTitle->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.8);
    titleFont.setBold(true);
    lblTitle->setFont(titleFont);
    lblVersion = new QLabel(u"Version "_s + gExeVersion, this);
    lblVersion->setObjectName(u"lblVersion"_s);
    lblDescription = new QLabel(u"Runs the NMR spectrometer's sample queue unattended.\n\n"_s
                                    + sampleControlDescription(),
                                this);
    lblDescription->setObjectName(u"lblDescription"_s);
    lblDescription->setWordWrap(true);

    cmdOK = new QPushButton(u"OK"_s, this);
    cmdOK->setObjectName(u"cmdOK"_s);
    cmdOK->setDefault(true);
    cmdSysInfo = new QPushButton(u"&System Info..."_s, this);
    cmdSysInfo->setObjectName(u"cmdSysInfo"_s);
    cmdSysInfo->setEnabled(!seams().desktopPrograms->systemInformationTool().isEmpty());

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cmdOK);
    buttons->addWidget(cmdSysInfo);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(lblTitle);
    layout->addWidget(lblVersion);
    layout->addSpacing(lblVersion->fontMetrics().height());
    layout->addWidget(lblDescription);
    layout->addStretch();
    layout->addLayout(buttons);
    setMinimumWidth(lblVersion->fontMetrics().averageCharWidth() * 60);

    connect(cmdOK, &QPushButton::clicked, this, &QDialog::accept);
    connect(cmdSysInfo, &QPushButton::clicked, this, [this] { cmdSysInfo_Click(); });
}

void frmAbout::cmdSysInfo_Click()
{
    guarded([] {
        const QString tool = seams().desktopPrograms->systemInformationTool();
        if (!tool.isEmpty())
            seams().desktopPrograms->start(tool);
    });
}

void ShowAbout(QWidget* parent)
{
    QPointer<frmAbout>& about = openAbout();
    if (!about) {
        about = new frmAbout(parent);
        about->setAttribute(Qt::WA_DeleteOnClose);
        about->setWindowModality(Qt::ApplicationModal);
    }
    about->show();
    stay_on_top(about.data(), true);
    about->raise();
}

void CloseAbout()
{
    if (QPointer<frmAbout>& about = openAbout())
        delete about.data();
}

} // namespace spinlane
