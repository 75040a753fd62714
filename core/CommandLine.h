#pragma once

#include <QStringList>

#include <optional>

namespace spinlane {

// --help and --version, answered alike by every Spinlane command before it does anything else
// (the program before it opens a window, so both work without a display). When the command line
// starts with either option (-h, -v), prints `usage` or "<command> <version>" to standard output
// and returns the exit status 0. Returns nothing for any other command line, including one with an
// option the command does not know, so the command treats its arguments as always.
std::optional<int> answerHelpOrVersion(int argc, char* argv[], const QString& command,
                                       const QString& usage);

} // namespace spinlane
