#include "sim/SimSettings.h"

#include "core/Conversions.h"
#include "core/ProfileFile.h"
#include "core/RuntimeError.h"

#include <cstdio>
#include <optional>

using namespace Qt::StringLiterals;

namespace spinlane::sim {
namespace {

class Reader {
public:
    explicit Reader(const QString& path)
        : m_file(path.isEmpty() ? ProfileDocument() : ProfileDocument::load(path))
    {
    }

    bool has(const QString& section, const QString& key) const
    {
        return m_file.value(section, key).has_value();
    }

    QString text(const QString& section, const QString& key, const QString& fallback) const
    {
        return m_file.value(section, key).value_or(fallback).trimmed();
    }

    double number(const QString& section, const QString& key, double fallback) const
    {
        const auto value = raw(section, key);
        if (!value)
            return fallback;
        bool ok = false;
        const double number = value->toDouble(&ok);
        return ok && number >= 0 ? number : unreadable(section, key, fallback);
    }

    bool flag(const QString& section, const QString& key, bool fallback) const
    {
        const auto value = raw(section, key);
        if (!value)
            return fallback;
        try {
            return toBoolean(*value);
        } catch (const RuntimeError&) {
            return unreadable(section, key, fallback);
        }
    }

    QStringList list(const QString& section, const QString& key, const QStringList& fallback) const
    {
        const auto value = raw(section, key);
        if (!value)
            return fallback;
        QStringList items;
        for (const QString& item : value->split(u','))
            if (!item.trimmed().isEmpty())
                items.append(item.trimmed());
        return items;
    }

    QList<int> numbers(const QString& section, const QString& key) const
    {
        QList<int> numbers;
        for (const QString& item : list(section, key, {})) {
            bool ok = false;
            const int number = item.toInt(&ok);
            if (ok)
                numbers.append(number);
            else
                unreadable(section, key, 0);
        }
        return numbers;
    }

    Misbehaviour misbehaviour(const QString& section) const
    {
        Misbehaviour m;
        m.crash = trigger(section, u"Crash"_s);
        m.hang = trigger(section, u"Hang"_s);
        m.hangSeconds = number(section, u"HangSeconds"_s, m.hangSeconds);
        m.broken = flag(section, u"Broken"_s, m.broken);
        return m;
    }

private:
    std::optional<QString> raw(const QString& section, const QString& key) const
    {
        const auto value = m_file.value(section, key);
        if (!value || value->trimmed().isEmpty())
            return std::nullopt;
        return value->trimmed();
    }

    // "Operation:n"; a bare operation name means its first call.
    CallTrigger trigger(const QString& section, const QString& key) const
    {
        const auto value = raw(section, key);
        if (!value)
            return {};
        const QStringList parts = value->split(u':');
        bool ok = parts.size() == 1;
        const int call = parts.size() == 2 ? parts.at(1).trimmed().toInt(&ok) : 1;
        if (!ok || call < 1 || parts.size() > 2)
            return unreadable(section, key, CallTrigger{});
        return {parts.at(0).trimmed(), call};
    }

    template <typename T> T unreadable(const QString& section, const QString& key, T fallback) const
    {
        std::fprintf(stderr, "simulated lab settings: cannot read [%s] %s; using the default\n",
                     qPrintable(section), qPrintable(key));
        return fallback;
    }

    ProfileDocument m_file;
};

QList<Experiment> demoExperiments()
{
    return {
        {u"PROTON"_s, u"1H, 16 scans, relaxation delay 1 s"_s, true, true, 20, 20},
        {u"CARBON"_s, u"13C with proton decoupling, 256 scans"_s, true, true, 20, 45},
        {u"COSY"_s, u"1H-1H correlation, 128 increments, not spinning"_s, true, false, 0, 40},
        {u"PROTON NO LOCK"_s, u"1H in a protonated solvent, 8 scans"_s, false, true, 20, 15},
    };
}

} // namespace

SimSettings SimSettings::load(const QString& path)
{
    const Reader file(path);
    SimSettings s;
    s.callLogPath = file.text(u"General"_s, u"CallLog"_s, {});

    s.console = file.misbehaviour(u"Console"_s);
    s.expedra = file.misbehaviour(u"Expedra"_s);
    s.changer = file.misbehaviour(u"Changer"_s);
    s.tubelink = file.misbehaviour(u"Tubelink"_s);

    for (int n = 1; file.has(u"Experiment "_s + QString::number(n), u"Title"_s); ++n) {
        const QString section = u"Experiment "_s + QString::number(n);
        Experiment e;
        e.title = file.text(section, u"Title"_s, {});
        e.details = file.text(section, u"Details"_s, {});
        e.lockRequired = file.flag(section, u"LockRequired"_s, e.lockRequired);
        e.spin = file.flag(section, u"Spin"_s, e.spin);
        e.spinRate = file.number(section, u"SpinRate"_s, e.spin ? e.spinRate : 0);
        e.seconds = file.number(section, u"Duration"_s, e.seconds);
        s.experiments.append(e);
    }
    if (s.experiments.isEmpty())
        s.experiments = demoExperiments();
    s.solvents =
        file.list(u"Expedra"_s, u"Solvents"_s,
                  {u"CDCl3"_s, u"D2O"_s, u"DMSO-d6"_s, u"CD3OD"_s, u"C6D6"_s, u"Acetone-d6"_s});
    s.failingRuns = file.numbers(u"Expedra"_s, u"FailRuns"_s);

    const QString changer = u"Changer"_s;
    s.positions = int(file.number(changer, u"Positions"_s, s.positions));
    s.loadSeconds = file.number(changer, u"LoadSeconds"_s, s.loadSeconds);
    s.ejectSeconds = file.number(changer, u"EjectSeconds"_s, s.ejectSeconds);
    s.spinRampHzPerSecond = file.number(changer, u"SpinRamp"_s, s.spinRampHzPerSecond);
    s.readySeconds = file.number(changer, u"ReadySeconds"_s, s.readySeconds);
    s.failingLoads = file.numbers(changer, u"FailLoads"_s);
    s.failingEjects = file.numbers(changer, u"FailEjects"_s);
    return s;
}

} // namespace spinlane::sim
