#pragma once

#include "web/StatusMirror.h"

#include <QJsonObject>

// The instrument as the API, the live channel and the page see it: the JSON of schema 1
// (man spinlane-web). Only what the status interface carries can get into it.
namespace spinlane::web {

inline constexpr int kSchema = 1;

struct JsonOptions {
    QString instrument;
    bool hideSampleNames = false; // every item's "sample" is ""
    bool hideUsers = false; // every item's "user" is ""; userItemsJson() still finds them
};

// Without "updated", which the caller adds: the time the copy last changed. While Spinlane is not
// running, the queue is the last one the mirror saw (without expected times) and "asOf" says when
// that was.
QJsonObject instrumentJson(const StatusMirror& mirror, const JsonOptions& options);

// The queue numbers of `user`'s items (the ID compared whole, without regard to case), for
// /api/v1/instrument/users/ID: how "my samples" finds a user's items when IDs are hidden.
QJsonObject userItemsJson(const StatusMirror& mirror, const QString& user);

// A time from Spinlane (ISO 8601) as the API writes it: with its offset, "" when unknown.
QString isoTime(const QString& text);

} // namespace spinlane::web
