// The record manager's SQLite store: a directory's data files in one WAL database,
// records.db, a catalogue _files naming each file's table by number (f12) with position,
// version, one byte-ordered column and index per key, and the record. Builds on the
// system's SQLite. One object per connection; not thread-safe (see rm_backend.h).
#ifndef BASICS_PLATFORM_RM_SQLITE_BACKEND_H_
#define BASICS_PLATFORM_RM_SQLITE_BACKEND_H_

#include <memory>
#include <string>

#include "rm_backend.h"

namespace rm {

// The store's file name inside its directory.
constexpr const char* kStoreFileName = "records.db";

// Opens (create: makes when missing) the store of directory. Answers null with status
// set when it cannot: 12 when the store is missing, 2 when the file is not a store.
std::unique_ptr<Backend> OpenSqliteBackend(const std::string& directory, bool create,
                                           Status* status);

}  // namespace rm

#endif  // BASICS_PLATFORM_RM_SQLITE_BACKEND_H_
