#pragma once

#include <QString>
#include <QStringList>

#include <memory>

// The laboratory programs Spinlane drives, one interface each, with exactly the operations it
// calls. A call the program cannot carry out raises RuntimeError(AutomationError); nothing in the
// runner catches it.
namespace spinlane {

inline const QString kConsoleClass = QStringLiteral("Korvo.Application");
inline const QString kExpedraClass = QStringLiteral("Expedra.BrelixExpedra");
inline const QString kTubelinkClass = QStringLiteral("Tubelink.Tubelink");
inline const QString kSampleChangerClass = QStringLiteral("Carousio.clsCarousio");

class AutomationObject {
public:
    virtual ~AutomationObject() = default;
};

// The spectrometer console: attached only as proof that it runs; nothing is called on it.
class Console : public AutomationObject { };

// The experiment set-up program: holds the experiments and solvents and runs the experiments.
class Expedra : public AutomationObject {
public:
    virtual void RunExperiment() = 0;
    virtual void AbortExperiment() = 0;
    virtual bool IsExperimentRunning() = 0;
    virtual QStringList GetExperimentTitles() = 0;
    virtual QStringList GetSolvents() = 0;
    virtual qint32 GetWindowHandle() = 0;
    // True brings the program forward for configuring experiments, false hides it.
    virtual void SetShown(bool shown) = 0;
    virtual void Quit() = 0;
    virtual QString GetExperimentDetails() = 0;
    virtual void SetCurrentExperiment(qint32 index) = 0; // 0-based in the experiment list
    virtual bool GetLockRequired() = 0;
    virtual void SetLockEnabled(bool enabled) = 0;
    virtual void SetSetupEnabled(bool enabled) = 0;
    virtual void SetSolventIndex(qint16 index) = 0; // 0-based in the solvent list
    virtual void SetSampleInfo(const QStringList& info) = 0; // user, organization, sample, solvent
    virtual void SetOutputFile(const QString& path) = 0;
    virtual bool GetRunFailed() = 0;
    virtual bool GetSpinOn() = 0;
    virtual double GetSpinRate() = 0; // hertz
    virtual void ReleaseSample() = 0;
};

// The single-sample interface: only its window is handled.
class Tubelink : public AutomationObject {
public:
    virtual qint32 GetWindowHandle() = 0;
};

// The sample changer: loads, spins and ejects the samples.
class SampleChanger : public AutomationObject {
public:
    virtual qint32 GetWindowHandle() = 0;
    virtual void EjectSample() = 0;
    virtual void LoadSample(qint32 position) = 0;
    virtual bool IsEjecting() = 0;
    virtual bool IsLoading() = 0;
    virtual bool GetEjectFailed() = 0;
    virtual bool GetLoadFailed() = 0;
    virtual void Quit() = 0;
    virtual void SetShown(bool shown) = 0; // true shows the program's own window
    virtual void SetVisible(bool visible) = 0;
    virtual double GetActualSpinRate() = 0; // hertz, as measured
    virtual void SetSpinRate(double hertz) = 0;
    virtual void SetSpin(bool on) = 0;
    virtual bool IsReady() = 0;
};

// Commands for a program's main window, with the classic values.
enum class WindowCommand : int { Hide = 0, Show = 5 };

// Reaches the programs by class name, and their main windows by the handles they report.
class AutomationBackend {
public:
    virtual ~AutomationBackend() = default;
    // The running instance; CannotCreateObject when the program is not running.
    virtual std::shared_ptr<AutomationObject> GetObject(const QString& className) = 0;
    // A new link, starting the program when needed; CannotCreateObject when it cannot.
    virtual std::shared_ptr<AutomationObject> CreateObject(const QString& className) = 0;
    virtual void ShowWindow(qint32 handle, WindowCommand command) = 0;
    virtual void CloseWindow(qint32 handle) = 0; // minimises
};

// The backend in use; none until one is installed (then every link fails to be made).
AutomationBackend& automation();
AutomationBackend* installAutomation(AutomationBackend* backend);

} // namespace spinlane
