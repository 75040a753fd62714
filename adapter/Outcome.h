#pragma once

#include <QString>
#include <QVariant>

#include <functional>

namespace spinlane::adapter {

// How one call carried out by a command or the helper ended.
struct Outcome {
    QVariant answer; // of the operation's answer type; invalid for an operation without one
    QString error; // empty when the call succeeded
};

using OutcomeHandler = std::function<void(const Outcome&)>;

} // namespace spinlane::adapter
