#pragma once

#include <QTextStream>

// Standard output and standard error of the command-line tools, as text streams.
namespace spinlane::tools {

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

} // namespace spinlane::tools
