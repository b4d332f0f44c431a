// Shared pieces of the record manager's tests: a fixture run once per store backend
// (TEST_P), a builder of creation descriptions, little-endian field helpers, and a way
// to run a function in a forked child that reports through its exit code.
#ifndef BASICS_TESTS_RECORD_MANAGER_TEST_SUPPORT_H_
#define BASICS_TESTS_RECORD_MANAGER_TEST_SUPPORT_H_

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "record_manager.h"
#include "record_manager_internal.h"
#include "rm_sqlite_backend.h"
#include "temp_dir.h"

namespace rmtest {

// One store backend under test.
struct BackendCase {
  std::string name;
  rm::BackendFactory factory;
};

inline std::vector<BackendCase> AllBackends() {
  return {BackendCase{"Sqlite", [](const std::string& dir, bool create, rm::Status* st) {
                        return rm::OpenSqliteBackend(dir, create, st);
                      }}};
}

inline void PrintTo(const BackendCase& c, std::ostream* os) { *os << c.name; }

inline std::string BackendName(const ::testing::TestParamInfo<BackendCase>& info) {
  return info.param.name;
}

// One key segment of a description: 1-based position, length, extended type (kNoExt for
// none) and extra flags.
constexpr int kNoExt = -1;
struct Seg {
  uint16_t position;
  uint16_t length;
  int ext;
  uint16_t flags = 0;
};

class SpecBuilder {
 public:
  explicit SpecBuilder(uint16_t record_length) {
    std::memset(&spec_, 0, sizeof spec_);
    spec_.recordLength = record_length;
    spec_.pageSize = 1024;
  }
  // Adds a key; key_flags go on every segment, number (when >= 0) makes it a manual key
  // number.
  SpecBuilder& Key(std::initializer_list<Seg> segments, uint16_t key_flags = 0, int number = -1) {
    size_t i = 0;
    for (const Seg& seg : segments) {
      KeySegmentSpec& s = spec_.segments[spec_.numberOfSegments++];
      s.position = seg.position;
      s.length = seg.length;
      s.flags = static_cast<uint16_t>(seg.flags | key_flags);
      if (seg.ext != kNoExt) {
        s.flags |= kKeyExtendedType;
        s.extendedType = static_cast<uint8_t>(seg.ext);
      }
      if (i + 1 < segments.size()) s.flags |= kKeySegmented;
      if (i == 0 && number >= 0) {
        s.flags |= kKeyManualNumber;
        s.keyNumber = static_cast<uint8_t>(number);
      }
      ++i;
    }
    return *this;
  }
  const FileSpec* get() const { return &spec_; }
  FileSpec& spec() { return spec_; }

 private:
  FileSpec spec_;
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
  Rec& Text(size_t off, const char* text, size_t cap) {
    std::memset(&b[off], 0, cap);
    std::memcpy(&b[off], text, std::min(cap, std::strlen(text)));
    return *this;
  }
  template <typename T>
  T Get(size_t off) const {
    T v;
    std::memcpy(&v, &b[off], sizeof v);
    return v;
  }
  std::string TextAt(size_t off, size_t cap) const {
    return std::string(reinterpret_cast<const char*>(&b[off]),
                       strnlen(reinterpret_cast<const char*>(&b[off]), cap));
  }
  std::vector<uint8_t> b;
};

// Runs body in a forked child; answers its exit code (or 128 + signal). The child leaves
// with _exit so that no test machinery runs twice.
inline int RunInChild(const std::function<int()>& body) {
  fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) _exit(body());
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// A child that runs setup, tells the parent it is done through a pipe, and then waits
// to be killed. Kill() sends SIGKILL and reaps it.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<int()>& setup) {
    int fds[2];
    if (pipe(fds) != 0) return;
    fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      close(fds[0]);
      char code = static_cast<char>(setup());
      if (write(fds[1], &code, 1) != 1) _exit(99);
      for (;;) pause();
    }
    close(fds[1]);
    char code = 99;
    ready_ = read(fds[0], &code, 1) == 1;
    setup_code_ = code;
    close(fds[0]);
  }
  ~ChildProcess() { Kill(); }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool ready() const { return ready_; }
  int setup_code() const { return setup_code_; }
  void Kill() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
  bool ready_ = false;
  int setup_code_ = 99;
};

// Fixture: a fresh directory per test, the backend of the parameter installed, and a
// check that the test closed every handle it opened.
class RecordManagerTest : public ::testing::TestWithParam<BackendCase> {
 protected:
  void SetUp() override {
    rm::SetBackendFactory(GetParam().factory);
    rm::SetBackendDecorator(nullptr);
    SetBatchWaitMilliseconds(10000);
  }
  void TearDown() override {
    EXPECT_EQ(OpenHandleCount(), 0u) << "a test left a handle open";
    EXPECT_EQ(rm::OpenStoreCount(), 0u);
    rm::SetBackendDecorator(nullptr);
    rm::SetBackendFactory(nullptr);
  }
  std::string Path(const std::string& name) const { return dir_.File(name); }

  // Creates name from spec (asserting success) and opens it in mode.
  BtrvFile* CreateAndOpen(const FileSpec* spec, const std::string& name,
                          uint16_t mode = kOpenModeNormal) {
    EXPECT_EQ(ZORCreateFile(spec, 0, Path(name).c_str()), 1) << GetErrorCode(nullptr);
    return Open(name, mode);
  }
  BtrvFile* Open(const std::string& name, uint16_t mode = kOpenModeNormal) {
    BtrvFile* f = nullptr;
    EXPECT_EQ(RealOpenBFile(&f, Path(name).c_str(), mode, 0, __FILE__, __LINE__), 1)
        << GetErrorCode(nullptr);
    return f;
  }
  static void Close(BtrvFile*& f) { RealCloseFile(&f, __FILE__, __LINE__); }

  TempDir dir_;
};

}  // namespace rmtest

#endif  // BASICS_TESTS_RECORD_MANAGER_TEST_SUPPORT_H_
