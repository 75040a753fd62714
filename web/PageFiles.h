#pragma once

#include "web/HttpFace.h"

#include <QString>

#include <iterator>
#include <optional>

// The files of the pages, compiled into the program, by the path they are served at.
namespace spinlane::web {

struct PageFile {
    const char* path;
    const char* resource;
    const char* type;
};

// The file served at `path` among [first, last); nothing when none is.
std::optional<HttpReply> pageFileAt(const QString& path, const PageFile* first, const PageFile* last);

template <std::size_t N>
std::optional<HttpReply> pageFileAt(const QString& path, const PageFile (&files)[N])
{
    return pageFileAt(path, std::begin(files), std::end(files));
}

} // namespace spinlane::web
