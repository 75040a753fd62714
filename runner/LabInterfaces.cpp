#include "runner/LabInterfaces.h"

#include "runner/LabBus.h"
#include "runner/Programs.h"

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

LabOperation query(const QString& name, const QString& output)
{
    return {name, {}, output, {}, false, false, {}};
}

LabOperation command(const QString& name) { return {name, {}, {}, {}, false, false, {}}; }

LabOperation setter(const QString& name, const QString& input, const QString& stores)
{
    return {name, {input}, {}, stores, false, false, {}};
}

LabOperation window(LabOperation operation)
{
    operation.windowOnly = true;
    return operation;
}

LabOperation list(const QString& name) { return {name, {}, u"as"_s, {}, false, true, {}}; }

const LabOperation kGetWindowHandle = window(query(u"GetWindowHandle"_s, u"i"_s));

const QList<LabInterface>& interfaces()
{
    static const QList<LabInterface> all{
        {labBusName(kConsoleClass), {}},
        {labBusName(kExpedraClass),
         {command(u"RunExperiment"_s),
          command(u"AbortExperiment"_s),
          query(u"IsExperimentRunning"_s, u"b"_s),
          list(u"GetExperimentTitles"_s),
          list(u"GetSolvents"_s),
          kGetWindowHandle,
          window(setter(u"SetShown"_s, u"b"_s, u"Shown"_s)),
          command(u"Quit"_s),
          query(u"GetExperimentDetails"_s, u"s"_s),
          setter(u"SetCurrentExperiment"_s, u"i"_s, u"ExperimentIndex"_s),
          query(u"GetLockRequired"_s, u"b"_s),
          setter(u"SetLockEnabled"_s, u"b"_s, u"LockEnabled"_s),
          setter(u"SetSetupEnabled"_s, u"b"_s, u"SetupEnabled"_s),
          setter(u"SetSolventIndex"_s, u"n"_s, u"SolventIndex"_s),
          setter(u"SetSampleInfo"_s, u"as"_s, u"SampleInfo"_s),
          setter(u"SetOutputFile"_s, u"s"_s, u"OutputFile"_s),
          query(u"GetRunFailed"_s, u"b"_s),
          query(u"GetSpinOn"_s, u"b"_s),
          query(u"GetSpinRate"_s, u"d"_s),
          command(u"ReleaseSample"_s)}},
        {labBusName(kTubelinkClass), {kGetWindowHandle}},
        {labBusName(kSampleChangerClass),
         {kGetWindowHandle, command(u"EjectSample"_s),
          setter(u"LoadSample"_s, u"i"_s, u"Position"_s), query(u"IsEjecting"_s, u"b"_s),
          query(u"IsLoading"_s, u"b"_s), query(u"GetEjectFailed"_s, u"b"_s),
          query(u"GetLoadFailed"_s, u"b"_s), command(u"Quit"_s),
          window(setter(u"SetShown"_s, u"b"_s, u"Shown"_s)),
          window(setter(u"SetVisible"_s, u"b"_s, u"Visible"_s)),
          query(u"GetActualSpinRate"_s, u"d"_s), setter(u"SetSpinRate"_s, u"d"_s, u"SpinRate"_s),
          setter(u"SetSpin"_s, u"b"_s, u"Spin"_s), query(u"IsReady"_s, u"b"_s)}},
    };
    return all;
}

QString argumentXml(const QString& name, const QString& type, const char* direction)
{
    return u"    <arg name=\""_s + name + u"\" type=\""_s + type + u"\" direction=\""_s
           + QLatin1StringView(direction) + u"\"/>\n"_s;
}

QString interfaceXml(const LabInterface& interface)
{
    QString xml = u"  <interface name=\""_s + interface.name + u"\">\n"_s;
    for (const LabOperation& op : interface.operations) {
        xml += u"   <method name=\""_s + op.name + u"\">\n"_s;
        for (qsizetype i = 0; i < op.inputs.size(); ++i)
            xml += argumentXml(op.inputName(i), op.inputs.at(i), "in");
        if (!op.output.isEmpty())
            xml += argumentXml(op.outputName(), op.output, "out");
        xml += u"   </method>\n"_s;
    }
    return xml + u"  </interface>\n"_s;
}

} // namespace

QString LabOperation::inputName(qsizetype index) const
{
    if (index < inputNames.size())
        return inputNames.at(index);
    return stores.isEmpty() ? u"arg"_s + QString::number(index + 1) : stores;
}

QString LabOperation::outputName() const
{
    for (const QString& prefix : {u"Get"_s, u"Is"_s}) {
        if (name.startsWith(prefix) && name.size() > prefix.size())
            return name.mid(prefix.size());
    }
    return name;
}

const LabOperation* LabInterface::operation(QStringView name) const
{
    for (const LabOperation& op : operations) {
        if (op.name == name)
            return &op;
    }
    return nullptr;
}

const QStringList& labClasses()
{
    static const QStringList classes{kConsoleClass, kExpedraClass, kTubelinkClass,
                                     kSampleChangerClass};
    return classes;
}

const LabInterface* labInterface(QStringView className)
{
    const QString name = labBusName(className.toString());
    for (const LabInterface& interface : interfaces()) {
        if (interface.name == name)
            return &interface;
    }
    return nullptr;
}

const LabInterface& labWindowInterface()
{
    static const LabInterface windowInterface{
        kLabWindowInterface,
        {window({u"ShowWindow"_s, {u"i"_s, u"i"_s}, {}, {}, false, false,
                 {u"handle"_s, u"command"_s}}),
         window({u"CloseWindow"_s, {u"i"_s}, {}, {}, false, false, {u"handle"_s}})}};
    return windowInterface;
}

QString labIntrospection(const LabInterface& interface)
{
    return interfaceXml(interface) + interfaceXml(labWindowInterface());
}

} // namespace spinlane
