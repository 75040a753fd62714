#pragma once

#include "core/ProfileFile.h"
#include "core/ProgramSettings.h"

#include <QString>

#include <optional>

// Loading and saving the program's settings.
namespace spinlane {

// Locates the settings file (asking the user unless the remembered path is the default one),
// checks its version against the program's and reads the settings and the whole queue into
// the program state, from the recovery journal when the previous session did not close normally
// and the user wants it back (its "In progress" item comes back "Stopped"). Ends the program when
// the user cancels or declines.
void LoadSettings();

// The main window's position when it is neither minimized nor maximized.
struct WindowPosition {
    float top; // twips
    float left; // twips
};

// The settings file as the close would write it now: the file on disk with every setting and
// queue item written over it. Raises what reading the queue raises.
ProfileDocument settingsDocument();

// Writes the window position to the per-user store and every setting and queue item to the
// settings file, offering a back-up copy first when the file came from another version. The
// file is read once, changed in memory and written once; keys nobody changed (such as the
// password) and stale item sections stay as they are. Then the recovery journal is removed; when
// the file cannot be written, a warning names the file and the reason, and the journal stays.
// Returns false when neither the file nor the journal could take the session's work: the
// program must not end then.
bool SaveSettings(const std::optional<WindowPosition>& mainWindow);

} // namespace spinlane
