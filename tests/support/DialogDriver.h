#pragma once

#include <QApplication>
#include <QFileDialog>
#include <QTest>
#include <QTimer>

#include <functional>

// Drives the real dialogs the program opens, from inside their own exec() loops.
namespace spinlane::testing {

// Runs `inspect` on the next dialog of type T: the dialog's show event queues the call, so no
// timer races the dialog. A dialog still open ten seconds later is rejected and fails the test
// instead of hanging it.
template <typename T> void whenShown(std::function<void(T*)> inspect)
{
    class ShowFilter : public QObject {
    public:
        explicit ShowFilter(std::function<void(T*)> inspect)
            : m_inspect(std::move(inspect))
        {
        }
        bool eventFilter(QObject* watched, QEvent* event) override
        {
            auto* dialog = qobject_cast<T*>(watched);
            if (event->type() != QEvent::Show || !dialog)
                return false;
            QMetaObject::invokeMethod(
                dialog, [dialog, inspect = m_inspect] { inspect(dialog); }, Qt::QueuedConnection);
            QTimer::singleShot(10'000, dialog, [dialog] {
                QTest::qFail("the dialog was still open at its deadline", __FILE__, __LINE__);
                dialog->reject();
            });
            deleteLater();
            qApp->removeEventFilter(this);
            return false;
        }

    private:
        std::function<void(T*)> m_inspect;
    };
    qApp->installEventFilter(new ShowFilter(std::move(inspect)));
}

// Chooses `path` as a person typing it would. The name field takes a selected file only while it
// has no focus, and whether it has focus when the dialog opens depends on the platform.
inline void chooseFile(QFileDialog* dialog, const QString& path)
{
    if (QWidget* focused = dialog->focusWidget())
        focused->clearFocus();
    dialog->selectFile(path);
    QMetaObject::invokeMethod(dialog, "accept");
}

} // namespace spinlane::testing
