// The settings-file engine on arbitrary bytes: parsing keeps every byte, and whatever a series of
// writes and clears leaves in memory reads back the same after the document is written and
// parsed again.
#include "core/ProfileFile.h"

#include <cstdint>
#include <cstdlib>

using namespace spinlane;

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

// The operations come first, one per line: "w section|key|value" or "c section". A line "--"
// ends them; the rest of the input is the file.
struct Operation {
    bool write;
    QString section, key, value;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype split = input.indexOf("\n--\n");
    const QByteArray file = split < 0 ? input : input.mid(split + 4);
    std::vector<Operation> operations;
    if (split >= 0) {
        for (const QByteArray& line : input.left(split).split('\n')) {
            if (line.size() < 2 || (line[0] != 'w' && line[0] != 'c'))
                continue;
            const QStringList parts = QString::fromUtf8(line.mid(2)).split(u'|');
            operations.push_back({line[0] == 'w', parts.value(0), parts.value(1), parts.value(2)});
        }
    }

    ProfileDocument document = ProfileDocument::fromBytes(file);
    check(document.toBytes() == file);
    for (const Operation& op : operations) {
        if (op.write)
            document.writeString(op.section, op.key, op.value);
        else
            document.clearSection(op.section);
        const QByteArray written = document.toBytes();
        const ProfileDocument reread = ProfileDocument::fromBytes(written);
        check(reread.toBytes() == written);
        check(reread.value(op.section, op.key) == document.value(op.section, op.key));
        check(reread.readString(op.section, op.key, {}).size() <= kProfileValueMaxChars);
    }
    return 0;
}
