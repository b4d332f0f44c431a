// The record manager's server store: a company's data files in one schema of a PostgreSQL
// database, a catalogue _files naming each file's table by number (f12) with position,
// version, one bytea column and B-tree index per key, and the record. Builds on libpq.
// One object per connection; not thread-safe (see rm_backend.h).
#ifndef BASICS_PLATFORM_RM_PG_BACKEND_H_
#define BASICS_PLATFORM_RM_PG_BACKEND_H_

#include <memory>
#include <string>

#include "rm_backend.h"

namespace rm {

// Opens a connection to the server conninfo names and the company kept in schema (create:
// makes the schema and its catalogue when missing). Answers null with *status set when it
// cannot: 12 when the schema is missing and not to be made, 2 when the server cannot be
// reached (its reason in *reason when not null).
std::unique_ptr<Backend> OpenPgBackend(const std::string& conninfo, const std::string& schema,
                                       bool create, Status* status, std::string* reason = nullptr);

// Whether the server conninfo names answers; 0, or 2 with its reason in *reason (not null).
Status ProbePgServer(const std::string& conninfo, std::string* reason);

// Checks that every table the catalogue of schema names exists with its indexes. Answers 0,
// 12 when there is no such schema, 2 with up to max_problems descriptions in *problems.
Status CheckPgSchema(const std::string& conninfo, const std::string& schema, int max_problems,
                     std::vector<std::string>* problems);

}  // namespace rm

#endif  // BASICS_PLATFORM_RM_PG_BACKEND_H_
