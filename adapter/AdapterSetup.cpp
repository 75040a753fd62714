#include "adapter/AdapterSetup.h"

#include "adapter/Values.h"
#include "core/ProfileFile.h"
#include "core/TextTable.h"
#include "runner/LabBus.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace spinlane::adapter {
namespace {

const QString kTimeoutKey = u"Timeout"_s;
const QString kHelperKey = u"Helper"_s;

bool sameName(const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) == 0; }

// Collects the mistakes of one file.
class Mistakes {
public:
    Mistakes(const QString& path, QStringList* errors)
        : m_path(path)
        , m_errors(errors)
    {
    }
    void add(int line, const QString& key, const QString& text)
    {
        m_errors->append(m_path + u':' + QString::number(line) + u": "_s + key + u": "_s + text);
    }
    void addForFile(const QString& text) { m_errors->append(m_path + u": "_s + text); }

private:
    QString m_path;
    QStringList* m_errors;
};

// The placeholders a command of `op` may use: its arguments by number and what the program's
// setters keep, each list also by element ("SampleInfo.3").
bool isKnownPlaceholder(const QString& name, const LabOperation& op, const LabInterface& interface)
{
    static const QRegularExpression form(u"^([A-Za-z]+|[1-9][0-9]*)(?:\\.([1-9][0-9]*))?$"_s);
    const QRegularExpressionMatch match = form.match(name);
    if (!match.hasMatch())
        return false;
    const QString base = match.captured(1);
    const bool element = match.hasCaptured(2);
    bool isNumber = false;
    const int number = base.toInt(&isNumber);
    if (isNumber)
        return number <= op.inputs.size() && (!element || op.inputs.at(number - 1) == u"as"_s);
    for (const LabOperation& setter : interface.operations) {
        if (setter.stores == base)
            return !element || setter.inputs.first() == u"as"_s;
    }
    return false;
}

// The program's path: one with a slash from the file's folder, a bare name from PATH.
std::optional<QString> findProgram(const QString& program, const QString& folder, QString* why)
{
    const QString path = program.contains(u'/')
                             ? QDir::cleanPath(QDir(folder).absoluteFilePath(program))
                                                : QStandardPaths::findExecutable(program);
    if (path.isEmpty()) {
        *why = u"cannot find the program "_s + program + u" in PATH"_s;
        return std::nullopt;
    }
    const QFileInfo info(path);
    if (!info.isFile() || !info.isExecutable()) {
        *why = path + u" is not an executable file"_s;
        return std::nullopt;
    }
    return path;
}

class Reader {
public:
    Reader(const QString& path, QStringList* errors)
        : m_mistakes(path, errors)
    {
        m_setup.folder = QFileInfo(path).absolutePath();
    }

    AdapterSetup read(const ProfileDocument& file)
    {
        ProgramSetup* program = nullptr;
        QHash<QString, int> seen; // folded key -> its line, in the current section
        QHash<QString, int> sections;
        for (const ProfileDocument::Item& item : file.items()) {
            if (item.header) {
                program = nullptr;
                seen.clear();
                const QString folded = item.section.toCaseFolded();
                if (sections.contains(folded)) {
                    m_mistakes.add(item.line, u'[' + item.section + u']',
                                   u"the section is given twice (first on line "_s
                                       + QString::number(sections.value(folded)) + u')');
                    continue;
                }
                sections.insert(folded, item.line);
                program = beginProgram(item);
                continue;
            }
            if (item.key.startsWith(u';') || item.key.startsWith(u'#'))
                continue; // a comment
            if (item.section.isEmpty() && !program) {
                m_mistakes.add(item.line, item.key, u"is outside any section"_s);
                continue;
            }
            if (!program)
                continue; // in a section already refused
            const QString folded = item.key.toCaseFolded();
            if (seen.contains(folded)) {
                m_mistakes.add(item.line, item.key,
                               u"is given twice (first on line "_s
                                   + QString::number(seen.value(folded)) + u')');
                continue;
            }
            seen.insert(folded, item.line);
            if (!item.value) {
                m_mistakes.add(item.line, item.key, u"has no \"=\" and no value"_s);
                continue;
            }
            readKey(*program, item.line, item.key, *item.value);
        }
        for (ProgramSetup& p : m_setup.programs)
            finishProgram(p);
        if (m_setup.programs.isEmpty() && sections.isEmpty())
            m_mistakes.addForFile(u"serves no program: add a section for each program it serves, "
                                  "such as [Carousio.clsCarousio]"_s);
        return m_setup;
    }

private:
    ProgramSetup* beginProgram(const ProfileDocument::Item& header)
    {
        for (const QString& className : labClasses()) {
            if (sameName(className, header.section)) {
                ProgramSetup& program = m_setup.programs.emplace_back();
                program.className = className;
                program.line = header.line;
                program.interface = labInterface(className);
                return &program;
            }
        }
        m_mistakes.add(header.line, u'[' + header.section + u']',
                       u"is not a program Spinlane drives ("_s + labClasses().join(u", "_s) + u')');
        return nullptr;
    }

    std::optional<CommandTemplate> command(int line, const QString& key, const QString& text)
    {
        QString why;
        std::optional<CommandTemplate> command = CommandTemplate::parse(text, &why);
        if (command && command->programHasPlaceholder())
            why = u"the program cannot be a placeholder"_s;
        else if (command) {
            if (const auto path = findProgram(command->program(), m_setup.folder, &why)) {
                command->setProgram(*path);
                return command;
            }
        }
        m_mistakes.add(line, key, why);
        return std::nullopt;
    }

    void readKey(ProgramSetup& program, int line, const QString& key, const QString& value)
    {
        if (sameName(key, kTimeoutKey)) {
            bool ok = false;
            const double seconds = value.toDouble(&ok);
            if (ok && seconds * 1000 >= kShortestTimeoutMs && seconds * 1000 < kLongestTimeoutMs)
                program.timeoutMs = qRound(seconds * 1000);
            else
                m_mistakes.add(line, key,
                               u"\""_s + value
                                   + u"\" is not a number of seconds from 0.1 to below 10"_s);
            return;
        }
        if (sameName(key, kHelperKey)) {
            program.helper = command(line, key, value);
            if (program.helper && !program.helper->placeholders().isEmpty())
                m_mistakes.add(line, key, u"the helper's command line takes no placeholders"_s);
            return;
        }
        const LabOperation* op = operationNamed(program, key);
        if (!op) {
            m_mistakes.add(line, key, u"is not an operation of "_s + program.className);
            return;
        }
        m_given.insert(op);
        OperationSetup setup{op, Service::Nothing, value, std::nullopt, {}};
        const QString kind = value.section(u':', 0, 0).trimmed().toLower();
        const QString rest = value.section(u':', 1).trimmed();
        const bool hasColon = value.contains(u':');
        if (kind == u"run"_s && hasColon) {
            setup.service = Service::Run;
            setup.command = command(line, key, rest);
            if (!setup.command)
                return;
            for (const QString& name : setup.command->placeholders()) {
                if (!isKnownPlaceholder(name, *op, *program.interface))
                    m_mistakes.add(line, key, u"unknown placeholder {"_s + name + u'}');
            }
        } else if (kind == u"const"_s && hasColon) {
            setup.service = Service::Const;
            if (!readAnswer(setup, line, key, rest))
                return;
        } else if (sameName(value.trimmed(), u"helper"_s)) {
            setup.service = Service::Helper;
        } else if (sameName(value.trimmed(), u"store"_s)) {
            setup.service = Service::Store;
            if (op->stores.isEmpty()) {
                m_mistakes.add(line, key, u"store is only for operations that set a value"_s);
                return;
            }
        } else {
            m_mistakes.add(line, key,
                           u"\""_s + value
                               + u"\" is none of run: COMMAND, helper, store, const: VALUE"_s);
            return;
        }
        setup.written = value.trimmed();
        program.operations.append(setup);
    }

    bool readAnswer(OperationSetup& setup, int line, const QString& key, const QString& text)
    {
        const LabOperation& op = *setup.operation;
        if (op.output.isEmpty()) {
            if (!text.isEmpty())
                m_mistakes.add(line, key, u"gives no answer: write \"const:\" alone"_s);
            return text.isEmpty();
        }
        // A list is written on one line, its elements separated by commas.
        QString answerText = text;
        if (op.output == u"as"_s) {
            QStringList elements = text.split(u',');
            for (QString& element : elements)
                element = element.trimmed();
            answerText = text.isEmpty() ? QString() : elements.join(u'\n');
        }
        QString why;
        const std::optional<QVariant> answer = answerFromText(answerText, op.output, &why);
        if (!answer) {
            m_mistakes.add(line, key, why);
            return false;
        }
        setup.answer = *answer;
        return true;
    }

    static const LabOperation* operationNamed(const ProgramSetup& program, const QString& key)
    {
        for (const LabInterface* interface : {program.interface, &labWindowInterface()}) {
            for (const LabOperation& op : interface->operations) {
                if (sameName(op.name, key))
                    return &op;
            }
        }
        return nullptr;
    }

    // Puts the operations in the table's order, the window's left out as doing nothing; every
    // other operation must be there.
    void finishProgram(ProgramSetup& program)
    {
        const int headerLine = program.line;
        QList<OperationSetup> ordered;
        bool usesHelper = false;
        for (const LabInterface* interface : {program.interface, &labWindowInterface()}) {
            for (const LabOperation& op : interface->operations) {
                const auto given = std::find_if(
                    program.operations.cbegin(), program.operations.cend(),
                    [&](const OperationSetup& setup) { return setup.operation == &op; });
                if (given != program.operations.cend()) {
                    ordered.append(*given);
                    usesHelper = usesHelper || given->service == Service::Helper;
                } else if (op.windowOnly || m_given.contains(&op)) {
                    ordered.append({&op, Service::Nothing, {}, std::nullopt, {}});
                } else {
                    m_mistakes.add(headerLine, op.name,
                                   u"is missing from ["_s + program.className + u']');
                }
            }
        }
        program.operations = ordered;
        if (usesHelper && !program.helper)
            m_mistakes.add(headerLine, kHelperKey,
                           u"is missing from ["_s + program.className
                               + u"], whose operations go to the helper"_s);
        else if (!usesHelper && program.helper)
            m_mistakes.add(headerLine, kHelperKey,
                           u"no operation of ["_s + program.className + u"] goes to the helper"_s);
    }

    Mistakes m_mistakes;
    AdapterSetup m_setup;
    QSet<const LabOperation*> m_given; // with a value or not
};

} // namespace

const OperationSetup* ProgramSetup::find(const QString& interfaceName, const QString& member) const
{
    for (const OperationSetup& setup : operations) {
        if (setup.operation->name != member)
            continue;
        const bool own = interface->operation(member) == setup.operation;
        if (interfaceName.isEmpty()
            || interfaceName == (own ? interface->name : kLabWindowInterface))
            return &setup;
    }
    return nullptr;
}

AdapterSetup readAdapterSetup(const QString& path, QStringList* errors)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        errors->append(path + u": cannot be read: "_s + file.errorString());
        return {};
    }
    return Reader(path, errors).read(ProfileDocument::fromBytes(file.readAll()));
}

QString describeSetup(const AdapterSetup& setup)
{
    QString text;
    for (const QString& className : labClasses()) {
        const auto program =
            std::find_if(setup.programs.cbegin(), setup.programs.cend(),
                         [&](const ProgramSetup& p) { return p.className == className; });
        if (program == setup.programs.cend()) {
            text += u'[' + className + u"] not served\n"_s;
            continue;
        }
        text += u'[' + className + u"] as "_s + labBusName(className) + u", timeout "_s
                + QString::number(program->timeoutMs / 1000.0) + u" s\n"_s;
        std::vector<QStringList> rows;
        if (program->helper)
            rows.push_back(
                {u""_s, kHelperKey, displayCommand(program->helper->expand([](const QString&) {
                     return QString();
                 }))});
        for (const OperationSetup& op : program->operations) {
            rows.push_back(
                {u""_s, op.operation->name,
                 op.service == Service::Nothing
                     ? u"left out: does nothing"_s
                           + (op.operation->output.isEmpty() ? QString() : u", answers 0"_s)
                     : op.written});
        }
        text += textTable(rows);
    }
    return text;
}

} // namespace spinlane::adapter
