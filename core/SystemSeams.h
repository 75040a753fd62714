#pragma once

#include "core/Seams.h"

#include <QSettings>

#include <memory>

// The real implementations of the seams that need no window.
namespace spinlane {

// The per-user store: on Windows the registry area that earlier installations used
// (HKEY_CURRENT_USER\Software\VB and VBA Program Settings\<app>\<section>\<key>), elsewhere Qt's
// per-user location for the application. The second constructor keeps the values in an INI
// file of the caller's choosing and never touches the user's store (tests, tools).
class QSettingsStore : public SettingsStore {
public:
    QSettingsStore();
    explicit QSettingsStore(const QString& iniFilePath);

    QString value(const QString& app, const QString& section, const QString& key,
                  const QString& defaultValue) const override;
    void setValue(const QString& app, const QString& section, const QString& key,
                  const QString& value) override;

private:
    std::unique_ptr<QSettings> open(const QString& app) const;
    QString m_iniFilePath;
};

// Local time, read to whole seconds.
class SystemClock : public Clock {
public:
    QDateTime now() const override;
};

// Runs a local event loop that a timer ends; without an application object it sleeps.
class QtEventPump : public EventPump {
public:
    void waitForEvents(int maxMs) override;
};

class ProcessExit : public ProgramEnd {
public:
    void end(int status) override;
};

// Notepad on Windows; elsewhere the desktop's handler for text files. The system-information tool
// is the first of the platform's usual ones that is installed.
class SystemDesktopPrograms : public DesktopPrograms {
public:
    void showTextFile(const QString& path) override;
    QString systemInformationTool() const override;
    void start(const QString& program) override;
};

} // namespace spinlane
