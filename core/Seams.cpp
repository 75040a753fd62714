#include "core/Seams.h"

#include "core/RuntimeError.h"
#include "core/SystemSeams.h"

#include <cstdio>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

// Used where no window can ask: the box goes to standard error and the cautious answer wins.
class HeadlessMessageBoxes : public MessageBoxes {
public:
    MsgAnswer show(const MessageBoxRequest& request) override
    {
        std::fprintf(stderr, "%s: %s\n", qPrintable(request.title),
                     qPrintable(QString(request.text).replace(u"\r\n"_s, u"\n"_s)));
        switch (request.buttons) {
        case MsgButtons::Ok: return MsgAnswer::Ok;
        case MsgButtons::OkCancel: return MsgAnswer::Cancel;
        case MsgButtons::YesNo: return MsgAnswer::No;
        }
        return MsgAnswer::Cancel;
    }
};

class CancelledFileDialogs : public FileDialogs {
public:
    QString openFile(const FileDialogRequest&) override { return {}; }
    QString saveFile(const FileDialogRequest&) override { return {}; }
};

Seams& current()
{
    static HeadlessMessageBoxes messageBoxes;
    static CancelledFileDialogs fileDialogs;
    static QSettingsStore settingsStore;
    static SystemClock clock;
    static QtEventPump eventPump;
    static ProcessExit programEnd;
    static SystemDesktopPrograms desktopPrograms;
    static Seams seams{&messageBoxes, &fileDialogs, &settingsStore,  &clock,
                       &eventPump,    &programEnd,  &desktopPrograms};
    return seams;
}

template <typename T> void replaceIfSet(T*& slot, T* replacement)
{
    if (replacement)
        slot = replacement;
}

} // namespace

QString programTitle() { return u"Spinlane"_s; }

const Seams& seams() { return current(); }

Seams installSeams(const Seams& replacement)
{
    Seams& seams = current();
    const Seams previous = seams;
    replaceIfSet(seams.messageBoxes, replacement.messageBoxes);
    replaceIfSet(seams.fileDialogs, replacement.fileDialogs);
    replaceIfSet(seams.settingsStore, replacement.settingsStore);
    replaceIfSet(seams.clock, replacement.clock);
    replaceIfSet(seams.eventPump, replacement.eventPump);
    replaceIfSet(seams.programEnd, replacement.programEnd);
    replaceIfSet(seams.desktopPrograms, replacement.desktopPrograms);
    return previous;
}

MsgAnswer msgBox(const QString& text, MsgButtons buttons, MsgIcon icon, const QString& title)
{
    return current().messageBoxes->show({text, buttons, icon, title});
}

void EndProgram(int status)
{
    current().programEnd->end(status);
    throw ProgramEnded{};
}

} // namespace spinlane
