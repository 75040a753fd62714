#include "sim/SimTubelink.h"

#include "runner/Programs.h"

using namespace Qt::StringLiterals;

namespace spinlane::sim {

SimTubelink::SimTubelink(const SimSettings& settings)
    : SimProgram(kTubelinkClass, u"Tubelink"_s, settings.tubelink, settings.callLogPath)
{
}

int SimTubelink::GetWindowHandle()
{
    received(u"GetWindowHandle"_s);
    return windowHandle();
}

} // namespace spinlane::sim
