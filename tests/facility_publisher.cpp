// An instrument for the broker tests, to be killed at will: publishes as spinlane-web does, with
// the [broker] section of the configuration file named first and the instrument named second.
// Each line on standard input names a file whose content becomes the published state. Says
// "published N" on standard output each time the broker has taken N states, and every problem
// on standard error.
#include "core/ProfileFile.h"
#include "facility/BrokerSettings.h"
#include "facility/InstrumentPublisher.h"

#include <QCoreApplication>
#include <QFile>
#include <QSocketNotifier>

#include <cstdio>
#include <unistd.h>

using namespace spinlane;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() != 3) {
        std::fprintf(stderr, "usage: facility_publisher CONFIG INSTRUMENT\n");
        return 2;
    }
    QStringList errors;
    const facility::BrokerSettings settings =
        facility::readBrokerSettings(ProfileDocument::load(arguments[1]), arguments[1], &errors);
    if (!errors.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(errors.join(u'\n')));
        return 2;
    }
    facility::InstrumentPublisher publisher(arguments[2]);
    quint64 told = 0;
    QObject::connect(&publisher.client(), &facility::MqttClient::problem, [](const QString& text) {
        std::fprintf(stderr, "%s\n", qPrintable(text));
    });
    QObject::connect(&publisher.client(), &facility::MqttClient::published, [&] {
        if (publisher.publishedStates() != told) {
            told = publisher.publishedStates();
            std::printf("published %llu\n", static_cast<unsigned long long>(told));
            std::fflush(stdout);
        }
    });
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray pending;
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char buffer[4096];
        const ssize_t got = read(STDIN_FILENO, buffer, sizeof buffer);
        if (got <= 0) {
            input.setEnabled(false);
            return;
        }
        pending.append(buffer, got);
        for (qsizetype end; (end = pending.indexOf('\n')) >= 0; pending.remove(0, end + 1)) {
            QFile file(QString::fromLocal8Bit(pending.left(end)));
            if (file.open(QIODevice::ReadOnly))
                publisher.setState(file.readAll());
        }
    });
    if (!publisher.start(settings))
        return 1;
    return app.exec();
}
