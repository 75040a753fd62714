// The facility on arbitrary messages: the first line is the topic, the rest the payload. Nothing
// crashes, a state is taken only as it came and only for the instrument its topic names, and
// what the facility serves stays valid JSON.
#include "facility/FacilityModel.h"
#include "facility/StatePayload.h"
#include "facility/Topics.h"

#include <QCoreApplication>
#include <QJsonDocument>

#include <cstdint>
#include <cstdlib>

using namespace spinlane::facility;

namespace {
void check(bool condition)
{
    if (!condition)
        std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz_statepayload";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);

    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype end = input.indexOf('\n');
    const QString topic = QString::fromUtf8(end < 0 ? input : input.left(end));
    const QByteArray payload = end < 0 ? QByteArray() : input.mid(end + 1);

    const TopicParts parts = parseTopic(topic);
    const PayloadReading reading = readStatePayload(payload, parts.instrument, 64 * 1024);
    check(reading.state.has_value() == (reading.fault == PayloadFault::None));
    if (reading.state) {
        const PayloadReading again = readStatePayload(reading.state->json, parts.instrument, 1 << 20);
        check(again.state && again.state->json == reading.state->json);
        check(reading.state->instrument == parts.instrument);
        // Read again beside itself, lending its own queue: the same state either way.
        const PayloadReading lent = readStatePayload(payload, parts.instrument, 64 * 1024, &*reading.state);
        check(lent.state && lent.state->json == reading.state->json);
    }

    FacilityModel model;
    model.take(topic, payload);
    model.take(onlineTopic(QStringLiteral("x")), payload);
    check(model.instruments().size() <= 2);
    const QStringList names = model.instruments();
    for (const QString& instrument : names)
        check(isValidInstrumentName(instrument));
    QJsonParseError error{};
    QJsonDocument::fromJson(model.facilityJson(), &error);
    check(error.error == QJsonParseError::NoError);
    QJsonDocument::fromJson(model.samplesJson(QStringLiteral("ann")), &error);
    check(error.error == QJsonParseError::NoError);
    return 0;
}
