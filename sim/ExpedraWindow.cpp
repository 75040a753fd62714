#include "sim/ExpedraWindow.h"

#include "sim/LiveRefresh.h"
#include "sim/SimExpedra.h"

#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace spinlane::sim {
namespace {

QString onOff(bool on) { return on ? u"on"_s : u"off"_s; }

} // namespace

ExpedraWindow::ExpedraWindow(SimExpedra& program)
    : m_program(program)
    , m_experiments(new QListWidget)
    , m_setUp(new QLabel)
    , m_state(new QLabel)
    , m_progress(new QProgressBar)
{
    setWindowTitle(u"Expedra (simulated)"_s);
    for (const Experiment& e : program.experiments())
        m_experiments->addItem(e.details.isEmpty() ? e.title : e.title + u" \u2014 "_s + e.details);
    m_experiments->setSelectionMode(QAbstractItemView::SingleSelection);
    m_experiments->setFocusPolicy(Qt::NoFocus);
    m_setUp->setTextFormat(Qt::PlainText);
    m_progress->setRange(0, 1000);
    m_progress->setTextVisible(false);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(u"Experiments"_s));
    layout->addWidget(m_experiments);
    layout->addWidget(m_setUp);
    layout->addWidget(m_state);
    layout->addWidget(m_progress);
    resize(420, 360);

    refreshLive(this, program, &ExpedraWindow::refresh);
}

void ExpedraWindow::refresh()
{
    m_experiments->setCurrentRow(m_program.currentExperiment());
    const QStringList info = m_program.sampleInfo();
    const int solvent = m_program.solventIndex();
    m_setUp->setText(
        u"User: %1 (%2)\nSample: %3\nSolvent: %4\nLock %5, set-up %6\nOutput: %7"_s.arg(
            info.value(0), info.value(1), QString(info.value(2)).replace(u"\r\n"_s, u" / "_s),
            solvent >= 0 ? m_program.solvents().value(solvent) : u"\u2014"_s,
            onOff(m_program.lockEnabled()), onOff(m_program.setupEnabled()),
            m_program.outputFile()));

    static const QString states[] = {u"Idle"_s, u"Running"_s, u"Finished"_s, u"Failed"_s,
                                     u"Aborted"_s};
    const auto state = m_program.runState();
    const QString title = m_program.experiments().at(m_program.currentExperiment()).title;
    m_state->setText(state == SimExpedra::RunState::Idle
                         ? states[0]
                         : u"Run %1 (%2): %3"_s.arg(QString::number(m_program.runNumber()), title,
                                                    states[int(state)]));
    m_progress->setValue(int(m_program.runProgress() * 1000));
}

} // namespace spinlane::sim
