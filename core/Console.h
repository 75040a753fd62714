#pragma once

#include <QTextStream>

// Standard output and standard error of the command-line programs, as text streams.
namespace spinlane::console {

inline QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

inline QTextStream& err()
{
    static QTextStream stream(stderr);
    return stream;
}

} // namespace spinlane::console
