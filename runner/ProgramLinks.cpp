#include "runner/ProgramLinks.h"

#include "core/ProgramSettings.h"
#include "core/Seams.h"
#include "core/wait_in_seconds.h"

using namespace Qt::StringLiterals;

namespace spinlane {

std::shared_ptr<Console> gConsole;
std::shared_ptr<Expedra> gExpedra;
std::shared_ptr<Tubelink> gTubelink;
std::shared_ptr<SampleChanger> gSampleChanger;
qint32 gExpedraWnd = 0;
qint32 gTubelinkWnd = 0;
qint32 gSampleChangerWnd = 0;

namespace {

class NoAutomation : public AutomationBackend {
public:
    std::shared_ptr<AutomationObject> GetObject(const QString&) override { return none(); }
    std::shared_ptr<AutomationObject> CreateObject(const QString&) override { return none(); }
    void ShowWindow(qint32, WindowCommand) override { }
    void CloseWindow(qint32) override { }

private:
    static std::shared_ptr<AutomationObject> none()
    {
        throw RuntimeError(RuntimeError::CannotCreateObject);
    }
};

AutomationBackend*& backend()
{
    static NoAutomation none;
    static AutomationBackend* current = &none;
    return current;
}

template <typename Program> std::shared_ptr<Program> as(std::shared_ptr<AutomationObject> object)
{
    auto program = std::dynamic_pointer_cast<Program>(std::move(object));
    if (!program)
        throw RuntimeError(RuntimeError::TypeMismatch);
    return program;
}

// Each call on its own: one that fails does not keep the next from being made.
template <typename Call> void ignoringErrors(Call&& call)
{
    try {
        call();
    } catch (const RuntimeError&) {
    }
}

// Experiments only: the sample program of the current mode is let go (the changer is told to
// quit); a window handle of 0 means there is no link to drop.
void dropSampleLink()
{
    if (gSampleControl == 1 && gTubelinkWnd != 0) {
        gTubelinkWnd = 0;
        gTubelink.reset();
    }
    if (gSampleControl == 2 && gSampleChangerWnd != 0) {
        gSampleChangerWnd = 0;
        linked(gSampleChanger).Quit();
        gSampleChanger.reset();
    }
}

} // namespace

AutomationBackend& automation() { return *backend(); }

AutomationBackend* installAutomation(AutomationBackend* replacement)
{
    AutomationBackend* previous = backend();
    backend() = replacement;
    return previous;
}

void ConnectPrograms()
{
    AutomationBackend& programs = automation();
    try {
        gConsole = as<Console>(programs.GetObject(kConsoleClass));
    } catch (const RuntimeError&) {
        msgBox(u"Start Korvo application first."_s, MsgButtons::Ok, MsgIcon::Exclamation);
        EndProgram();
    }
    try {
        gExpedra = as<Expedra>(programs.CreateObject(kExpedraClass));
    } catch (const RuntimeError&) {
        msgBox(u"No OLE connection to Expedra program."_s, MsgButtons::Ok, MsgIcon::Exclamation);
        EndProgram();
    }

    wait_in_seconds(1);
    ignoringErrors([] { gExpedra->SetShown(false); });
    ignoringErrors([] { gExpedraWnd = gExpedra->GetWindowHandle(); });
    ignoringErrors([&] { programs.ShowWindow(gExpedraWnd, WindowCommand::Hide); });

    if (gExpQueueOnly) {
        dropSampleLink();
        return;
    }

    if (gSampleControl == 1) {
        try {
            gTubelink = as<Tubelink>(programs.CreateObject(kTubelinkClass));
        } catch (const RuntimeError&) {
            if (msgBox(u"No OLE connection to Tubelink program.\r\nContinue anyway?"_s,
                       MsgButtons::YesNo, MsgIcon::Question)
                == MsgAnswer::No)
                EndProgram();
            return;
        }
        wait_in_seconds(1);
        gTubelinkWnd = gTubelink->GetWindowHandle();
        programs.CloseWindow(gTubelinkWnd);
    } else if (gSampleControl == 2) {
        try {
            gSampleChanger = as<SampleChanger>(programs.CreateObject(kSampleChangerClass));
        } catch (const RuntimeError&) {
            msgBox(u"No OLE connection to Sampel Changer program."_s, MsgButtons::Ok,
                   MsgIcon::Exclamation);
            EndProgram();
        }
        gSampleChanger->SetVisible(false);
        gSampleChangerWnd = gSampleChanger->GetWindowHandle();
        programs.ShowWindow(gSampleChangerWnd, WindowCommand::Hide);
    }
}

void ReleasePrograms()
{
    ignoringErrors([] { linked(gExpedra).Quit(); });
    if (gSampleControl == 2)
        ignoringErrors([] { linked(gSampleChanger).Quit(); });
}

void resetProgramLinks()
{
    gConsole.reset();
    gExpedra.reset();
    gTubelink.reset();
    gSampleChanger.reset();
    gExpedraWnd = gTubelinkWnd = gSampleChangerWnd = 0;
}

} // namespace spinlane
