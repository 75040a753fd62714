#include "core/SystemSeams.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QEventLoop>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>
#include <QUrl>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace spinlane {

QSettingsStore::QSettingsStore() = default;

QSettingsStore::QSettingsStore(const QString& iniFilePath)
    : m_iniFilePath(iniFilePath)
{
}

std::unique_ptr<QSettings> QSettingsStore::open(const QString& app) const
{
    if (!m_iniFilePath.isEmpty()) {
        auto settings = std::make_unique<QSettings>(m_iniFilePath, QSettings::IniFormat);
        settings->beginGroup(app);
        return settings;
    }
#ifdef Q_OS_WIN
    return std::make_unique<QSettings>(
        u"HKEY_CURRENT_USER\\Software\\VB and VBA Program Settings\\"_s + app,
        QSettings::NativeFormat);
#else
    return std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope, app, app);
#endif
}

QString QSettingsStore::value(const QString& app, const QString& section, const QString& key,
                              const QString& defaultValue) const
{
    auto settings = open(app);
    settings->beginGroup(section);
    return settings->value(key, defaultValue).toString();
}

void QSettingsStore::setValue(const QString& app, const QString& section, const QString& key,
                              const QString& value)
{
    auto settings = open(app);
    settings->beginGroup(section);
    settings->setValue(key, value);
}

QDateTime SystemClock::now() const
{
    QDateTime now = QDateTime::currentDateTime();
    now.setTime(QTime(now.time().hour(), now.time().minute(), now.time().second()));
    return now;
}

void QtEventPump::waitForEvents(int maxMs)
{
    if (maxMs <= 0)
        return;
    if (!QCoreApplication::instance()) {
        QThread::msleep(static_cast<unsigned long>(maxMs));
        return;
    }
    QEventLoop loop;
    QTimer::singleShot(maxMs, &loop, &QEventLoop::quit);
    loop.exec();
}

void SystemDesktopPrograms::showTextFile(const QString& path)
{
#ifdef Q_OS_WIN
    QProcess::startDetached(u"notepad.exe"_s, {path});
#else
    QDesktopServices::openUrl(QUrl::fromLocalFile(path));
#endif
}

QString SystemDesktopPrograms::systemInformationTool() const
{
#ifdef Q_OS_WIN
    const QStringList candidates{u"msinfo32"_s};
#else
    const QStringList candidates{u"kinfocenter"_s, u"hardinfo2"_s, u"hardinfo"_s};
#endif
    for (const QString& name : candidates) {
        const QString program = QStandardPaths::findExecutable(name);
        if (!program.isEmpty())
            return program;
    }
    return {};
}

void SystemDesktopPrograms::start(const QString& program) { QProcess::startDetached(program, {}); }

void ProcessExit::end(int status)
{
    std::fflush(nullptr);
    std::_Exit(status);
}

} // namespace spinlane
