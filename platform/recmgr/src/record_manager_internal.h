// Hooks of the record manager for tests and tools, not for hosts: which backend the
// stores opened from now on use, and a look at the stores this process has open. Each
// hook applies to stores opened after the call (a store stays open while any handle on
// its directory is open). Thread-safe.
#ifndef BASICS_PLATFORM_RECORD_MANAGER_INTERNAL_H_
#define BASICS_PLATFORM_RECORD_MANAGER_INTERNAL_H_

#include <cstddef>
#include <functional>
#include <memory>

#include "record_manager.h"
#include "rm_backend.h"

namespace rm {

// Makes the backend of each store opened from now on; an empty function restores SQLite.
void SetBackendFactory(BackendFactory factory);

// Wraps the backend of each store opened from now on (e.g. in WrapWithFaults); an empty
// function wraps nothing.
using BackendDecorator = std::function<std::unique_ptr<Backend>(std::unique_ptr<Backend>)>;
void SetBackendDecorator(BackendDecorator decorator);

// Number of stores (directories) this process has open.
size_t OpenStoreCount();

}  // namespace rm

#endif  // BASICS_PLATFORM_RECORD_MANAGER_INTERNAL_H_
