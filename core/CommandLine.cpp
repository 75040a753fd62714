#include "core/CommandLine.h"

#include <QCommandLineParser>

#include <cstdio>

namespace spinlane {

std::optional<int> answerHelpOrVersion(int argc, char* argv[], const QString& command,
                                       const QString& usage)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));

    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    if (!parser.parse(arguments))
        return std::nullopt;
    QString answer;
    if (parser.isSet(help))
        answer = usage;
    else if (parser.isSet(version))
        answer = command + QStringLiteral(" " SPINLANE_VERSION "\n");
    else
        return std::nullopt;
    std::fputs(answer.toLocal8Bit().constData(), stdout);
    return 0;
}

} // namespace spinlane
