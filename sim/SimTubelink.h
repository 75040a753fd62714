#pragma once

#include "sim/SimProgram.h"

namespace spinlane::sim {

// The single-sample interface: Spinlane only handles its window.
class SimTubelink : public SimProgram {
    Q_OBJECT
public:
    explicit SimTubelink(const SimSettings& settings);

public Q_SLOTS:
    int GetWindowHandle();
};

} // namespace spinlane::sim
