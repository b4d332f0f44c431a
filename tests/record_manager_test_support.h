// Shared pieces of the record manager's tests: fixtures run once per store backend (TEST_P),
// one with a small master file; a builder of creation descriptions, record field helpers,
// and forked children that answer through a pipe. Single-threaded use.
#ifndef BASICS_TESTS_RECORD_MANAGER_TEST_SUPPORT_H_
#define BASICS_TESTS_RECORD_MANAGER_TEST_SUPPORT_H_

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "record_manager.h"
#include "record_manager_internal.h"
#include "rm_sqlite_backend.h"
#include "temp_dir.h"

namespace rmtest {

// A store backend under test: either a factory for every store, or a way to serve a test's
// directory from somewhere (answering why it could not; empty when it did).
struct BackendCase {
  std::string name;
  rm::BackendFactory factory;
  std::function<std::string(const std::string& directory)> serve;
  bool server() const { return static_cast<bool>(serve); }
};

// Serves directory from a fresh schema on the server BASICS_TEST_PG names.
inline std::string ServeFromTestServer(const std::string& directory) {
  const char* conninfo = std::getenv("BASICS_TEST_PG");
  if (conninfo == nullptr || *conninfo == '\0') {
    return "BASICS_TEST_PG is not set: the server tests need the test server";
  }
  static int counter = 0;
  const std::string schema = "rmtest_" + std::to_string(getpid()) + "_" +
                             std::to_string(++counter) + "_" + std::to_string(time(nullptr));
  std::string error;
  if (ZORServeDirectoryFromServer(directory.c_str(), conninfo, schema.c_str(), &error) != 0) {
    return "the test server cannot be reached: " + error;
  }
  return std::string();
}

inline std::vector<BackendCase> AllBackends() {
  return {{"Sqlite",
           [](const std::string& dir, bool create, rm::Status* st) {
             return rm::OpenSqliteBackend(dir, create, st);
           },
           nullptr},
          {"Postgres", nullptr, ServeFromTestServer}};
}
inline void PrintTo(const BackendCase& c, std::ostream* os) { *os << c.name; }
inline std::string BackendName(const ::testing::TestParamInfo<BackendCase>& info) {
  return info.param.name;
}

// One key segment: 1-based position, length, extended type (kNoExt for none), flags.
constexpr int kNoExt = -1;
struct Seg {
  uint16_t position, length;
  int ext;
  uint16_t flags = 0;
};

struct SpecBuilder {
  explicit SpecBuilder(uint16_t record_length) {
    spec.recordLength = record_length;
    spec.pageSize = 1024;
  }
  // Adds a key; key_flags go on every segment, number >= 0 makes it a manual key number.
  SpecBuilder& Key(std::initializer_list<Seg> segments, uint16_t key_flags = 0, int number = -1) {
    for (const Seg& seg : segments) {
      const bool manual = &seg == segments.begin() && number >= 0;
      const int flags = seg.flags | key_flags | (seg.ext != kNoExt ? kKeyExtendedType : 0) |
                        (&seg + 1 != segments.end() ? kKeySegmented : 0) |
                        (manual ? kKeyManualNumber : 0);
      spec.segments[spec.numberOfSegments++] = {
          seg.position, seg.length, static_cast<uint16_t>(flags),
          static_cast<uint8_t>(seg.ext == kNoExt ? 0 : seg.ext),
          static_cast<uint8_t>(manual ? number : 0)};
    }
    return *this;
  }
  const FileSpec* get() const { return &spec; }
  FileSpec spec{};
};

// A record as bytes with little-endian field helpers.
struct Rec {
  explicit Rec(size_t n) : b(n, 0) {}
  void* data() { return b.data(); }
  uint32_t size() const { return static_cast<uint32_t>(b.size()); }
  template <typename T>
  Rec& Put(size_t off, T v) {
    std::memcpy(&b[off], &v, sizeof v);
    return *this;
  }
  Rec& Text(size_t off, const char* text, size_t cap) {  // into zeroed bytes
    std::memcpy(&b[off], text, std::min(cap, std::strlen(text)));
    return *this;
  }
  template <typename T>
  T Get(size_t off) const {
    T v;
    std::memcpy(&v, &b[off], sizeof v);
    return v;
  }
  std::vector<uint8_t> b;
};

// The results of several calls, for one EXPECT: a braced list runs them left to right.
using Ints = std::vector<int32_t>;

// kStatusOk when a call succeeded, else the handle's status: one EXPECT per failing call.
inline uint16_t Why(int ok, BtrvFile* f) { return ok ? uint16_t{kStatusOk} : GetErrorCode(f); }

// A forked child that runs body, hands its answer (0 to 255) to Answer() (999 when none
// came) and then waits, holding whatever it took, for SIGKILL from Kill() or from this
// object's end; so no test machinery runs twice.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<int()>& body) {
    if (pipe(fds_) != 0) return;
    fflush(nullptr);
    if ((pid_ = fork()) == 0) {
      const uint8_t answer = static_cast<uint8_t>(body());
      while (write(fds_[1], &answer, 1) == 1) pause();  // only SIGKILL ends the wait
      _exit(0);
    }
    close(fds_[1]);
  }
  ~ChildProcess() {
    Kill();
    close(fds_[0]);
  }
  int Answer() {  // once only
    uint8_t answer = 0;
    return read(fds_[0], &answer, 1) == 1 ? answer : 999;
  }
  void Kill() {
    if (pid_ > 0 && kill(pid_, SIGKILL) == 0) waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  int fds_[2] = {-1, -1};
  pid_t pid_ = -1;
};
inline int RunInChild(const std::function<int()>& body) { return ChildProcess(body).Answer(); }

// Fixture: a fresh directory per test, the backend of the parameter installed, and a
// check that the test closed every handle it opened (but f_ and g_).
class RecordManagerTest : public ::testing::TestWithParam<BackendCase> {
 protected:
  void SetUp() override {
    rm::SetBackendFactory(GetParam().factory);
    rm::SetBackendDecorator(nullptr);
    SetBatchWaitMilliseconds(10000);
    if (GetParam().server()) {
      const std::string why = GetParam().serve(dir_.path());
      if (!why.empty()) GTEST_FAIL() << why;
    }
  }
  void TearDown() override {
    Close(f_);
    Close(g_);
    EXPECT_EQ(OpenHandleCount(), 0u) << "a test left a handle open";
    EXPECT_EQ(rm::OpenStoreCount(), 0u);
    rm::SetBackendDecorator(nullptr);
    rm::SetBackendFactory(nullptr);
    ZORStopServingDirectory(dir_.path().c_str());
  }
  bool OnServer() const { return GetParam().server(); }
  std::string Path(const std::string& name) const { return dir_.File(name); }

  // The status of creating name from spec (kStatusOk when made).
  uint16_t Create(const FileSpec* spec, const std::string& name, int flags = 0) const {
    return ZORCreateFile(spec, flags, Path(name).c_str()) ? uint16_t{kStatusOk}
                                                          : GetErrorCode(nullptr);
  }
  BtrvFile* CreateAndOpen(const FileSpec* spec, const std::string& name) {
    EXPECT_EQ(Create(spec, name), kStatusOk);
    return Open(name);
  }
  // The open handle (name in the test's directory unless absolute), or null with
  // GetErrorCode(nullptr) telling why; asserts nothing, so that children may use it.
  BtrvFile* TryOpen(const std::string& name, uint16_t mode = kOpenModeNormal) const {
    BtrvFile* f = nullptr;
    RealOpenBFile(&f, (name[0] == '/' ? name : Path(name)).c_str(), mode, 0, __FILE__, __LINE__);
    return f;
  }
  BtrvFile* Open(const std::string& name, uint16_t mode = kOpenModeNormal) {
    BtrvFile* f = TryOpen(name, mode);
    EXPECT_NE(f, nullptr) << GetErrorCode(nullptr);
    return f;
  }
  // The status of an open expected to fail (kStatusOk, the file closed again, if it opened).
  uint16_t OpenFails(const std::string& name, uint16_t mode = kOpenModeNormal) {
    BtrvFile* f = TryOpen(name, mode);
    if (f == nullptr) return GetErrorCode(nullptr);
    Close(f);
    return kStatusOk;
  }
  static void Close(BtrvFile*& f) { RealCloseFile(&f, __FILE__, __LINE__); }

  TempDir dir_;
  BtrvFile* f_ = nullptr;  // closed after the test, when still open
  BtrvFile* g_ = nullptr;
};

// A small master file open as f_: number (s32, unique), name (string 12, duplicates,
// modifiable), amount (s32). The reads answer the number of the record read, or minus the
// status when they fail; the writes answer the status. None shows the lock prompt.
constexpr uint16_t kMasterLen = 20;
class MasterFileTest : public RecordManagerTest {
 protected:
  void SetUp() override {
    RecordManagerTest::SetUp();
    if (HasFatalFailure()) return;
    f_ = CreateAndOpen(SpecBuilder(kMasterLen)
                           .Key({{1, 4, kExtInteger}})
                           .Key({{5, 12, kExtString}}, kKeyDuplicates | kKeyModifiable)
                           .get(),
                       "MASTER.DAT");
    ASSERT_NE(f_, nullptr);
  }
  static Rec Make(int32_t number, const char* name = "x", int32_t amount = 0) {
    return Rec(kMasterLen).Put(0, number).Text(4, name, 12).Put(16, amount);
  }
  static void Insert(BtrvFile* f, int32_t number, const char* name = "x") {
    ASSERT_EQ(Why(InsertRecord(f, kMasterLen, Make(number, name).data()), f), kStatusOk);
  }
  static int32_t Num(uint8_t ok, BtrvFile* f, const Rec& r) {
    return ok ? r.Get<int32_t>(0) : -GetErrorCode(f);
  }
  // GetFileEqual with a lock bias, on the number (key 0) or on the name (key 1).
  static int32_t Equal(BtrvFile* f, int32_t number, uint16_t lock = 0, int16_t key = 0,
                       const char* name = "x") {
    Rec r = Make(number, name);
    f->NoLockMessageOnNextCall();
    return Num(GetFileEqual(f, lock, r.size(), r.data(), key), f, r);
  }
  static int32_t Next(BtrvFile* f, int16_t key = 0, bool back = false) {
    Rec r(kMasterLen);
    return Num((back ? GetFilePrevious : GetFileNext)(f, 0, r.size(), r.data(), key), f, r);
  }
  static int32_t Prev(BtrvFile* f, int16_t key = 0) { return Next(f, key, true); }
  static uint16_t Update(BtrvFile* f, Rec r, int16_t key = 0) {
    f->NoLockMessageOnNextCall();
    return Why(UpdateFile(f, r.size(), r.data(), key), f);
  }
  static uint16_t Delete(BtrvFile* f) {
    f->NoLockMessageOnNextCall();
    return Why(DeleteRecord(f, 0, nullptr), f);
  }
};

}  // namespace rmtest

#endif  // BASICS_TESTS_RECORD_MANAGER_TEST_SUPPORT_H_
