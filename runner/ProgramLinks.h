#pragma once

#include "core/RuntimeError.h"
#include "runner/Programs.h"

// The links to the laboratory programs, made at start-up and again when the sample handling
// changes, released at the end.
namespace spinlane {

extern std::shared_ptr<Console> gConsole;
extern std::shared_ptr<Expedra> gExpedra;
extern std::shared_ptr<Tubelink> gTubelink;
extern std::shared_ptr<SampleChanger> gSampleChanger;
// The programs' main windows; 0 while not attached.
extern qint32 gExpedraWnd;
extern qint32 gTubelinkWnd;
extern qint32 gSampleChangerWnd;

// Attaches the console and creates the set-up program and the sample program of the current
// mode, hiding their windows. Tells the user when a link cannot be made; every failure but the
// single-sample interface's (when the user chooses to go on) ends the program.
void ConnectPrograms();

// At the end: tells the set-up program, and in sample-changer mode the changer, to quit. Errors
// are ignored.
void ReleasePrograms();

// The linked program; ObjectNotSet when there is no link.
template <typename Program> Program& linked(const std::shared_ptr<Program>& link)
{
    if (!link)
        throw RuntimeError(RuntimeError::ObjectNotSet);
    return *link;
}

void resetProgramLinks();

} // namespace spinlane
