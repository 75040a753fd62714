#pragma once

#include "ledger/LedgerRecord.h"

#include <QByteArray>
#include <QString>

#include <optional>

// One ledger record as it travels to the facility: a JSON object, its members the record's fields
// and the identity of the workstation's ledger that numbered it (the instrument is the topic's,
// never the message's). The facility reads a message once,
// checks every member and keeps only what it read.
namespace spinlane::facility {

inline constexpr int kLedgerMessageSchema = 1;
// A message larger than this is no record.
inline constexpr int kMaxLedgerMessageBytes = 16 * 1024;

QByteArray ledgerMessage(const LedgerRecord& record);

// The record a message holds, for `instrument`; nothing, with the reason, for a message of another
// schema, without a ledger's identity, a member missing or of the wrong type, a text longer than 1,024 characters or holding a
// control character, a number that is not one or out of range, a time that is not UTC.
std::optional<LedgerRecord> readLedgerMessage(const QString& instrument, const QByteArray& message,
                                              QString* why);

} // namespace spinlane::facility
