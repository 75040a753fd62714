#pragma once

namespace spinlane {

// Polls the sample changer until it reports ready, letting the window handle its events between
// polls. There is no time limit: a changer that never gets ready keeps the caller waiting.
void WaitForSampleChanger();

} // namespace spinlane
