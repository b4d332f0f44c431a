// Files of the utility library: temporary names in a private directory of the process
// (each in a directory of its own, so that a temporary data file has a store of its own),
// deletion and status of data files (through the record manager) and ordinary files, the
// company-open marker and single-user access (byte-range locks on the company's lock
// file), and the standard file-name and owner-name globals. Thread-safe; lock objects
// are used by one thread at a time.
//
// The lock file company.lck in the company directory:
//   offset            length  meaning
//   0 .. 255          1 each  single-user access of area N: one exclusive holder
//   4096 + 256*A + i  1 each  company-open marker of area A (0-63), holder slot i (0-255):
//                             each process that has the company open holds one slot
// The locks are open-file-description locks: they conflict between descriptors of one
// process as between processes, and the kernel drops them when the process dies. A company
// served from a server keeps the same bytes as the server's advisory locks instead, which it
// drops with the process's connection.

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "byte_locks_internal.h"
#include "record_manager.h"
#include "rm_store_internal.h"
#include "utility.h"

// ---------------------------------------------------------------------------------------
// Standard file names and owner names
// ---------------------------------------------------------------------------------------

CFileNameString ChartName("CHART.DAT");
CFileNameString CustomerName("CUSTOMER.DAT");
CFileNameString VendorName("VENDOR.DAT");
CFileNameString EmpFileName("EMPLOYEE.DAT");
CFileNameString LineItemName("LINEITEM.DAT");
CFileNameString InvTagName("INVTAG.DAT");
CFileNameString InvLFName("INVCOST.DAT");
CFileNameString RecptTagName("RCPTTAG.DAT");
CFileNameString GeneralFileName("GENERAL.DAT");
CFileNameString JrnlHdrFileName("JRNLHDR.DAT");
CFileNameString JrnlRowFileName("JRNLROW.DAT");
CFileNameString TaxAuthorityName("TAXAUTH.DAT");
CFileNameString RaiseHistoryFileName("RAISEHST.DAT");
CFileNameString AuditTrailName("AUDITTRL.DAT");
CFileNameString EventLogFileName("EVENTLOG.DAT");

// The record manager's access names: every company file is created and opened with one
// of these, so they never change between versions.
CFixedString<9> csTheOwner("BKSOWNR");
CFixedString<9> csStdTheOwner("BKSSTD");

void ResetStandardFileNames() {
  ChartName = "CHART.DAT";
  CustomerName = "CUSTOMER.DAT";
  VendorName = "VENDOR.DAT";
  EmpFileName = "EMPLOYEE.DAT";
  LineItemName = "LINEITEM.DAT";
  InvTagName = "INVTAG.DAT";
  InvLFName = "INVCOST.DAT";
  RecptTagName = "RCPTTAG.DAT";
  GeneralFileName = "GENERAL.DAT";
  JrnlHdrFileName = "JRNLHDR.DAT";
  JrnlRowFileName = "JRNLROW.DAT";
  TaxAuthorityName = "TAXAUTH.DAT";
  RaiseHistoryFileName = "RAISEHST.DAT";
  AuditTrailName = "AUDITTRL.DAT";
  EventLogFileName = "EVENTLOG.DAT";
}

namespace {

// Names reach us in the library's own form ("C:\Books\" + "CHART.DAT" style); both
// separators name directories here, as they do for the record manager.
std::string NativePath(const char* name) {
  std::string path = name != nullptr ? name : "";
  for (char& c : path) {
    if (c == '\\') c = '/';
  }
  return path;
}

// ---------------------------------------------------------------------------------------
// The private temporary directory
// ---------------------------------------------------------------------------------------

struct TempState {
  std::mutex mutex;
  std::string dir;  // made by this process (owner), or empty
  pid_t owner = 0;
  uint32_t counter = 0;
  bool cleanup_registered = false;
  std::set<std::string> names;  // directories made for one temporary name each
};

// Never destroyed: the exit handler below still reads it.
TempState& Temp() {
  static TempState* state = new TempState;
  return *state;
}

// Removes the directory at exit: it is this process's own, and whatever is left in it
// (a sort file's store) was temporary.
void RemoveTempDirAtExit() {
  TempState& state = Temp();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (state.dir.empty() || state.owner != getpid()) return;
  std::error_code ignored;
  std::filesystem::remove_all(state.dir, ignored);
  state.dir.clear();
}

// The directory of this process, made on first use. A forked child makes its own, so
// that parent and child never hand out the same name.
bool TempDirectory(TempState& state, std::string& dir) {
  if (state.dir.empty() || state.owner != getpid()) {
    // The system's temporary directory, deliberately not $TMPDIR: the library reads no
    // environment.
    std::string pattern = std::string(P_tmpdir) + "/basics-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) return false;
    state.dir = pattern;
    state.owner = getpid();
    state.counter = 0;
    state.names.clear();
    if (!state.cleanup_registered) {
      state.cleanup_registered = std::atexit(RemoveTempDirAtExit) == 0;
    }
  }
  dir = state.dir;
  return true;
}

// ---------------------------------------------------------------------------------------
// The company lock file
// ---------------------------------------------------------------------------------------

constexpr const char* kLockFileName = "company.lck";
constexpr int kAccessAreas = 256;
constexpr int kMarkerAreas = 64;
constexpr int kMarkerSlots = 256;
constexpr off_t kMarkerBase = 4096;

off_t MarkerSlotOffset(int area, int slot) {
  return kMarkerBase + static_cast<off_t>(area) * kMarkerSlots + slot;
}

int OpenLockFile(const std::string& directory) {
  return OpenByteLockFile(directory.empty() ? std::string(kLockFileName)
                                            : directory + "/" + kLockFileName);
}

// The canonical form of a directory served from a server, or empty when it is not one.
std::string ServedCanonical(const std::string& native) {
  std::string lexical = rm::LexicalDirectory(native);
  return rm::ServedFrom(lexical, nullptr) ? lexical : std::string();
}

// One company-open marker per process, directory and area, shared by every
// CZORSharedFile object of the process that opens it, so that OpenCount counts
// processes, not objects.
struct Marker {
  pid_t owner = 0;
  int fd = -1;                               // the lock file's, for a local company
  std::unique_ptr<rm::CompanyLocks> server;  // the server's, for a served one
  int area = 0;
  int slot = -1;
  int references = 0;
};

struct MarkerRegistry {
  std::mutex mutex;
  std::map<std::string, Marker> markers;      // by canonical directory and area
  std::vector<std::string> open_directories;  // canonical, in the order opened
};

// Never destroyed: a global CZORSharedFile closes itself at exit.
MarkerRegistry& Registry() {
  static MarkerRegistry* registry = new MarkerRegistry;
  return *registry;
}

std::string MarkerKey(const std::string& canonical, int area) {
  return canonical + '\n' + std::to_string(area);
}

// A marker inherited from the parent across fork belongs to the parent: its descriptor is
// closed here without unlocking, which leaves the parent's slot held by the parent.
void DropInheritedMarker(std::map<std::string, Marker>::iterator it, MarkerRegistry& registry) {
  if (it->second.fd >= 0) ::close(it->second.fd);
  if (it->second.server != nullptr) it->second.server->Abandon();
  registry.markers.erase(it);
}

// The company directory for single-user access: the last company still marked open by
// this process, else the current directory.
std::string CompanyDirectory() {
  MarkerRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  for (auto it = registry.open_directories.rbegin(); it != registry.open_directories.rend(); ++it) {
    for (const auto& [key, marker] : registry.markers) {
      if (marker.owner == getpid() && key.compare(0, it->size() + 1, *it + '\n') == 0) return *it;
    }
  }
  return std::string();
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Temporary names, deletion and status
// ---------------------------------------------------------------------------------------

int ZOR_GetTempFileName(const char* prefix, char* out) {
  if (out == nullptr) return 0;
  out[0] = '\0';
  // Only characters that are safe in any file and table name are kept from the prefix.
  std::string clean;
  for (const char* p = prefix != nullptr ? prefix : ""; *p != '\0' && clean.size() < 16; ++p) {
    char c = *p;
    bool safe = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                c == '_' || c == '-';
    if (safe) clean += c;
  }
  if (clean.empty()) clean = "TMP";

  TempState& state = Temp();
  std::lock_guard<std::mutex> lock(state.mutex);
  std::string dir;
  if (!TempDirectory(state, dir)) return 0;
  for (int attempt = 0; attempt < 1000; ++attempt) {
    char name[64];
    std::snprintf(name, sizeof name, "%s%08X", clean.c_str(), ++state.counter);
    // Each name lives in a directory of its own, so that a temporary data file is the only
    // file of its store and deleting it can remove the store whole.
    const std::string home = dir + "/" + name;
    const std::string path = home + "/" + name + ".TMP";
    if (path.size() >= kMaxPathName) return 0;
    // The directory is ours, so the counter alone makes names unique; a name that exists
    // anyway (placed there by hand) is passed over.
    if (::mkdir(home.c_str(), 0700) != 0) {
      if (errno == EEXIST) continue;
      return 0;
    }
    state.names.insert(home);
    std::memcpy(out, path.c_str(), path.size() + 1);
    return 1;
  }
  return 0;
}

namespace {

// The directory that ZOR_GetTempFileName made for path, when it made one and no handle of
// this process has a file of it open; empty otherwise.
std::string ClosedTempHome(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return std::string();
  std::string home = path.substr(0, slash);
  {
    TempState& state = Temp();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.owner != getpid() || state.names.count(home) == 0) return std::string();
  }
  for (const OpenHandleInfo& handle : ListOpenHandles()) {
    if (NativePath(handle.fileName.c_str()).compare(0, home.size() + 1, home + "/") == 0) {
      return std::string();
    }
  }
  return home;
}

void ForgetTempHome(const std::string& home) {
  TempState& state = Temp();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.names.erase(home);
}

}  // namespace

int FileDeleteWithLCK(const char* name) {
  if (name == nullptr || name[0] == '\0') return 0;
  std::string path = NativePath(name);
  // A temporary data file that nothing holds open goes with its directory: removing its
  // store costs nothing, where dropping the table of a large sort would read (and keep in
  // memory) every page of it.
  const std::string home = ClosedTempHome(path);
  if (!home.empty() && ZORDataFileExists(name, nullptr)) {
    std::error_code failed;
    std::filesystem::remove_all(home, failed);
    if (!failed) {
      ForgetTempHome(home);
      return 1;
    }
  }
  if (ZORDataFileExists(name, nullptr)) return ZORDeleteFile(name) == kStatusOk ? 1 : 0;
  struct stat info;
  if (::stat(path.c_str(), &info) != 0 || S_ISDIR(info.st_mode)) return 0;
  if (::unlink(path.c_str()) != 0) return 0;
  if (!home.empty() && ::rmdir(home.c_str()) == 0) ForgetTempHome(home);
  return 1;
}

int _stat(const char* name, struct _stat* out) {
  if (name == nullptr || name[0] == '\0' || out == nullptr) return -1;
  int64_t changed_ns = 0;
  if (ZORDataFileExists(name, &changed_ns)) {
    // A data file is a table in its directory's store: it has no size of its own.
    out->st_size = 0;
    out->st_mtime_ns = changed_ns;
    out->st_mtime_sec = changed_ns / 1000000000;
    return 0;
  }
  std::string path = NativePath(name);
  struct stat info;
  if (::stat(path.c_str(), &info) != 0 || S_ISDIR(info.st_mode)) return -1;
  out->st_size = static_cast<int64_t>(info.st_size);
  out->st_mtime_sec = static_cast<int64_t>(info.st_mtim.tv_sec);
  out->st_mtime_ns = static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec;
  return 0;
}

// ---------------------------------------------------------------------------------------
// CZORSharedFile
// ---------------------------------------------------------------------------------------

struct CZORSharedFile::Impl {
  std::string directory;  // as given to Open
  std::string canonical;
  std::string key;
  pid_t owner = 0;
};

CZORSharedFile::CZORSharedFile(int area) : area_(area) {}

CZORSharedFile::~CZORSharedFile() { Close(); }

bool CZORSharedFile::Open(const char* directory) {
  Close();
  if (directory == nullptr || area_ < 0 || area_ >= kMarkerAreas) return false;
  std::string native = NativePath(directory);
  if (native.empty()) native.assign(1, '.');  // not = ".": g++ 12 warns wrongly at -O3
  std::string canonical = ServedCanonical(native);
  if (canonical.empty()) {
    char resolved[PATH_MAX];
    if (::realpath(native.c_str(), resolved) == nullptr) return false;
    canonical = resolved;
  }
  std::string key = MarkerKey(canonical, area_);

  MarkerRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  auto it = registry.markers.find(key);
  if (it != registry.markers.end() && it->second.owner != getpid()) {
    DropInheritedMarker(it, registry);
    it = registry.markers.end();
  }
  if (it == registry.markers.end()) {
    Marker marker;
    marker.owner = getpid();
    marker.area = area_;
    if (rm::ServedFrom(canonical, nullptr)) {
      if (rm::CompanyLocks::Open(canonical, &marker.server) != kStatusOk) return false;
      for (int slot = 0; slot < kMarkerSlots && marker.slot < 0; ++slot) {
        rm::LockResult taken = marker.server->TryExclusive(MarkerSlotOffset(area_, slot));
        if (taken == rm::LockResult::kError) break;
        if (taken == rm::LockResult::kGranted) marker.slot = slot;
      }
      if (marker.slot < 0) return false;  // the marker's end lets go of the store
    } else {
      marker.fd = OpenLockFile(canonical);
      if (marker.fd < 0) return false;
      for (int slot = 0; slot < kMarkerSlots && marker.slot < 0; ++slot) {
        ByteLockResult taken = LockByte(marker.fd, MarkerSlotOffset(area_, slot), true);
        if (taken == ByteLockResult::kError) break;
        if (taken == ByteLockResult::kGranted) marker.slot = slot;
      }
      if (marker.slot < 0) {
        ::close(marker.fd);
        return false;
      }
    }
    it = registry.markers.emplace(key, std::move(marker)).first;
  }
  ++it->second.references;
  registry.open_directories.push_back(canonical);

  impl_ = std::make_unique<Impl>();
  impl_->directory = directory;
  impl_->canonical = canonical;
  impl_->key = key;
  impl_->owner = getpid();
  return true;
}

void CZORSharedFile::Close() {
  if (!impl_) return;
  MarkerRegistry& registry = Registry();
  {
    std::lock_guard<std::mutex> lock(registry.mutex);
    for (auto it = registry.open_directories.rbegin(); it != registry.open_directories.rend();
         ++it) {
      if (*it == impl_->canonical) {
        registry.open_directories.erase(std::next(it).base());
        break;
      }
    }
    auto it = registry.markers.find(impl_->key);
    if (it != registry.markers.end()) {
      if (it->second.owner != getpid()) {
        DropInheritedMarker(it, registry);
      } else if (--it->second.references <= 0) {
        if (it->second.server != nullptr) {
          it->second.server->Unlock(MarkerSlotOffset(it->second.area, it->second.slot));
        } else {
          UnlockByte(it->second.fd, MarkerSlotOffset(it->second.area, it->second.slot));
          ::close(it->second.fd);
        }
        registry.markers.erase(it);
      }
    }
  }
  impl_.reset();
}

bool CZORSharedFile::IsOpen() const { return impl_ != nullptr && impl_->owner == getpid(); }

const char* CZORSharedFile::Directory() const { return impl_ ? impl_->directory.c_str() : ""; }

int CZORSharedFile::OpenCount() const {
  if (!IsOpen()) return 0;
  MarkerRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  auto it = registry.markers.find(impl_->key);
  if (it == registry.markers.end() || it->second.owner != getpid()) return 0;
  const Marker& marker = it->second;
  int count = 1;  // this process
  if (marker.server != nullptr) {
    // This process's own slot is its holder's, so it is not counted among the others'.
    return count + marker.server->CountHeldByOthers(MarkerSlotOffset(marker.area, 0), kMarkerSlots);
  }
  for (int slot = 0; slot < kMarkerSlots; ++slot) {
    if (slot != marker.slot && ByteHeldByOther(marker.fd, MarkerSlotOffset(marker.area, slot))) {
      ++count;
    }
  }
  return count;
}

// ---------------------------------------------------------------------------------------
// CZORSingleUserAccess
// ---------------------------------------------------------------------------------------

struct CZORSingleUserAccess::Impl {
  int fd = -1;
  std::unique_ptr<rm::CompanyLocks> server;  // a served company's, instead of fd
  pid_t owner = 0;
  int lock_mode = 0;
  std::string name;
};

CZORSingleUserAccess::CZORSingleUserAccess(int area)
    : area_(area), impl_(std::make_unique<Impl>()) {}

CZORSingleUserAccess::~CZORSingleUserAccess() { End(); }

bool CZORSingleUserAccess::Start(int message_number, int lock_mode, const char* name) {
  if (Held()) return true;
  End();  // drops a descriptor inherited across fork
  if (area_ < 0 || area_ >= kAccessAreas) return false;
  impl_->lock_mode = lock_mode;
  impl_->name = name != nullptr ? name : "";
  std::string directory = CompanyDirectory();
  const bool served = !directory.empty() && rm::ServedFrom(directory, nullptr);
  for (;;) {
    if (served) {
      // A holder of its own per object, as a descriptor of its own is below.
      std::unique_ptr<rm::CompanyLocks> locks;
      if (rm::CompanyLocks::Open(directory, &locks) != kStatusOk) return false;
      rm::LockResult taken = locks->TryExclusive(area_);
      if (taken == rm::LockResult::kGranted) {
        impl_->server = std::move(locks);
        impl_->owner = getpid();
        return true;
      }
      locks.reset();
      if (taken == rm::LockResult::kError || message_number == 0) return false;
      int answer = MessageWithString(MB_RETRYCANCEL | MB_ICONEXCLAMATION, message_number,
                                     impl_->name.c_str());
      if (answer != IDRETRY) return false;
      continue;
    }
    // A descriptor of its own per object: two objects of one process exclude each other
    // just as two processes do.
    int fd = OpenLockFile(directory);
    if (fd < 0) return false;
    ByteLockResult taken = LockByte(fd, area_, true);
    if (taken == ByteLockResult::kGranted) {
      impl_->fd = fd;
      impl_->owner = getpid();
      return true;
    }
    ::close(fd);
    if (taken == ByteLockResult::kError || message_number == 0) return false;
    int answer =
        MessageWithString(MB_RETRYCANCEL | MB_ICONEXCLAMATION, message_number, impl_->name.c_str());
    if (answer != IDRETRY) return false;
  }
}

void CZORSingleUserAccess::End() {
  if (impl_->server != nullptr) {
    // A forked child's copy belongs to the parent: it is forgotten, not let go of.
    if (impl_->owner != getpid()) impl_->server->Abandon();
    impl_->server.reset();
    impl_->owner = 0;
    return;
  }
  if (impl_->fd < 0) return;
  // Only the process that took the lock releases it; a forked child's copy of the
  // descriptor is just closed, leaving the parent's access in place.
  if (impl_->owner == getpid()) UnlockByte(impl_->fd, area_);
  ::close(impl_->fd);
  impl_->fd = -1;
  impl_->owner = 0;
}

bool CZORSingleUserAccess::Held() const {
  return (impl_->fd >= 0 || impl_->server != nullptr) && impl_->owner == getpid();
}
