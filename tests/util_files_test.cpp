// Files of the utility library: temporary names, status and deletion of ordinary and data
// files (tables of the store), the company-open marker and single-user access, across objects and
// across processes (fork), including a holder that is killed.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "record_manager.h"
#include "scripted_messages.h"
#include "temp_dir.h"
#include "utility.h"

namespace {

// A child process that runs body and exits with its answer, and two pipes to step it:
// the child calls Signal() when it reached a point, the parent Release() to let it go on.
class Child {
 public:
  explicit Child(const std::function<int(Child&)>& body) {
    if (::pipe(to_parent_) != 0 || ::pipe(to_child_) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) _exit(body(*this));
  }
  ~Child() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      Wait();
    }
    for (int fd : {to_parent_[0], to_parent_[1], to_child_[0], to_child_[1]}) ::close(fd);
  }
  void Signal(char byte = '.') { (void)!::write(to_parent_[1], &byte, 1); }
  char AwaitSignal() {
    char byte = 0;
    return ::read(to_parent_[0], &byte, 1) == 1 ? byte : 0;
  }
  void Release() { (void)!::write(to_child_[1], "g", 1); }
  void AwaitRelease() {
    char byte;
    (void)!::read(to_child_[0], &byte, 1);
  }
  // The child's exit code; -1 when it was killed.
  int Wait() {
    if (pid_ <= 0) return -1;
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void Kill() {
    ::kill(pid_, SIGKILL);
    Wait();
  }
  bool started() const { return pid_ > 0; }

 private:
  pid_t pid_ = -1;
  int to_parent_[2] = {-1, -1};
  int to_child_[2] = {-1, -1};
};

std::string TempName(const char* prefix) {
  char name[kMaxPathName];
  EXPECT_EQ(ZOR_GetTempFileName(prefix, name), 1);
  return name;
}

std::string DirOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

TEST(TempNames, UniqueInAPrivateDirectoryOfTheProcess) {
  std::set<std::string> names;
  for (int i = 0; i < 300; ++i) names.insert(TempName("JRST"));
  EXPECT_EQ(names.size(), 300u);
  const std::string first = *names.begin();
  const std::string dir = DirOf(first);
  EXPECT_EQ(first.substr(dir.size() + 1, 4), "JRST");
  EXPECT_EQ(first.substr(first.size() - 4), ".TMP");
  struct stat info;
  ASSERT_EQ(::stat(dir.c_str(), &info), 0);
  EXPECT_TRUE(S_ISDIR(info.st_mode));
  EXPECT_EQ(info.st_mode & 0777, 0700u) << "private to the process's user";
  EXPECT_NE(::stat(first.c_str(), &info), 0) << "only a name: nothing is created";

  // A prefix cannot leave the directory, and a forked child gets names of its own.
  std::string odd = TempName("../x/..\\y");
  EXPECT_EQ(DirOf(odd), dir);
  Child child([&dir](Child& self) {
    std::string name = TempName("JRST");
    ::rmdir(DirOf(name).c_str());  // _exit skips the clean-up at exit
    self.Signal(DirOf(name) != dir && name.find("JRST") != std::string::npos ? 'y' : 'n');
    return 0;
  });
  ASSERT_TRUE(child.started());
  EXPECT_EQ(child.AwaitSignal(), 'y');
  EXPECT_EQ(child.Wait(), 0);
  char* null_out = nullptr;
  EXPECT_EQ(ZOR_GetTempFileName("X", null_out), 0);
}

TEST(OrdinaryFiles, StatusAndDeletion) {
  TempDir dir;
  const std::string path = dir.File("notes.txt");
  std::ofstream(path) << "hello";
  struct timespec times[2] = {{1700000000, 123456789}, {1700000000, 123456789}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);

  struct _stat status {};
  ASSERT_EQ(_stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_size, 5);
  EXPECT_EQ(status.st_mtime_sec, 1700000000);
  EXPECT_EQ(status.st_mtime_ns, 1700000000123456789LL);
  // The library's names separate directories with backslashes too.
  const std::string windows_style = dir.path() + "\\notes.txt";
  EXPECT_EQ(_stat(windows_style.c_str(), &status), 0);

  EXPECT_EQ(_stat(dir.File("missing.txt").c_str(), &status), -1);
  EXPECT_EQ(_stat(dir.path().c_str(), &status), -1) << "a directory is not a file";
  EXPECT_EQ(_stat(nullptr, &status), -1);
  EXPECT_EQ(_stat(path.c_str(), nullptr), -1);

  EXPECT_EQ(FileDeleteWithLCK(windows_style.c_str()), 1);
  EXPECT_NE(::access(path.c_str(), F_OK), 0);
  EXPECT_EQ(FileDeleteWithLCK(path.c_str()), 0) << "nothing left to delete";
  EXPECT_EQ(FileDeleteWithLCK(dir.path().c_str()), 0) << "a directory is never deleted";
  EXPECT_EQ(FileDeleteWithLCK(nullptr), 0);
  EXPECT_EQ(FileDeleteWithLCK(""), 0);
}

// A small data file: 16-byte records keyed by a 4-byte integer.
bool CreateDataFile(const std::string& name) {
  FileSpec spec{};
  spec.recordLength = 16;
  spec.pageSize = 1024;
  spec.numberOfSegments = 1;
  spec.segments[0] = KeySegmentSpec{1, 4, kKeyExtendedType, kExtInteger, 0};
  return ZORCreateFile(&spec, 0, name.c_str()) == 1;
}

bool InsertInto(const std::string& name, int32_t key) {
  BtrvFile* file = nullptr;
  if (RealOpenBFile(&file, name.c_str(), kOpenModeNormal, 0, __FILE__, __LINE__) == 0) return false;
  char record[16] = {};
  std::memcpy(record, &key, sizeof key);
  bool inserted = InsertRecord(file, sizeof record, record) != 0;
  RealCloseFile(&file, __FILE__, __LINE__);
  return inserted;
}

TEST(DataFiles, StatusIsTheLastCommittedChangeSeenAcrossProcesses) {
  TempDir dir;
  ScopedChdir in_company(dir.path());
  const std::string name = dir.File("SETTINGS.DAT");
  ASSERT_TRUE(CreateDataFile(name));

  struct _stat created {};
  ASSERT_EQ(_stat(name.c_str(), &created), 0);
  EXPECT_GT(created.st_mtime_ns, 0);
  EXPECT_EQ(created.st_mtime_sec, created.st_mtime_ns / 1000000000);
  struct _stat bare {};
  ASSERT_EQ(_stat("settings.dat", &bare), 0) << "the bare name, any case, in the current directory";
  EXPECT_EQ(bare.st_mtime_ns, created.st_mtime_ns);
  EXPECT_EQ(::access(name.c_str(), F_OK), -1) << "a table of the store, not a file";

  Child writer([&name](Child&) {
    ::usleep(2000);
    return InsertInto(name, 7) ? 0 : 1;
  });
  ASSERT_EQ(writer.Wait(), 0);
  struct _stat changed {};
  ASSERT_EQ(_stat(name.c_str(), &changed), 0);
  EXPECT_GT(changed.st_mtime_ns, created.st_mtime_ns) << "another process's write is seen";
  EXPECT_EQ(_stat(dir.File("OTHER.DAT").c_str(), &changed), -1);
}

TEST(DataFiles, DeletedThroughTheStoreUnlessInUse) {
  TempDir dir;
  const std::string name = dir.File("JRST.TMP");
  ASSERT_TRUE(CreateDataFile(name));
  BtrvFile* file = nullptr;
  ASSERT_NE(RealOpenBFile(&file, name.c_str(), kOpenModeNormal, 0, __FILE__, __LINE__), 0);
  EXPECT_EQ(FileDeleteWithLCK(name.c_str()), 0) << "open by a handle: in use";
  EXPECT_TRUE(ZORDataFileExists(name.c_str(), nullptr));
  RealCloseFile(&file, __FILE__, __LINE__);

  const std::string windows_style = dir.path() + "\\jrst.tmp";
  EXPECT_EQ(FileDeleteWithLCK(windows_style.c_str()), 1);
  EXPECT_FALSE(ZORDataFileExists(name.c_str(), nullptr));
  EXPECT_EQ(FileDeleteWithLCK(name.c_str()), 0);
  struct _stat status {};
  EXPECT_EQ(_stat(name.c_str(), &status), -1);

  // The sorted walk's file: a temporary name made into a data file, then removed.
  char temp[kMaxPathName];
  ASSERT_EQ(ZOR_GetTempFileName("JRST", temp), 1);
  ASSERT_TRUE(CreateDataFile(temp));
  EXPECT_EQ(_stat(temp, &status), 0);
  EXPECT_EQ(FileDeleteWithLCK(temp), 1);
  EXPECT_EQ(_stat(temp, &status), -1);
}

TEST(SingleUserAccess, ExcludesOtherObjectsAndEndsWithTheObject) {
  TempDir dir;
  ScopedChdir in_company(dir.path());
  ScriptedMessages messages;
  {
    CZORSingleUserAccess first(0);
    EXPECT_TRUE(first.Start(20258, 0, nullptr));
    EXPECT_TRUE(first.Held());
    EXPECT_TRUE(first.Start(20258, 0, nullptr)) << "already held";

    CZORSingleUserAccess second(0);
    EXPECT_FALSE(second.Start(0, 0, nullptr)) << "message 0: refused without asking";
    EXPECT_TRUE(messages.shown().empty());
    EXPECT_FALSE(second.Start(20258, 0, nullptr));
    EXPECT_EQ(messages.Numbers(), std::vector<int>{20258});
    EXPECT_EQ(messages.Last().style & MB_BUTTONS_MASK, MB_RETRYCANCEL);

    CZORSingleUserAccess other_area(1);
    EXPECT_TRUE(other_area.Start(0, 0, nullptr)) << "areas are independent";

    first.End();
    EXPECT_FALSE(first.Held());
    EXPECT_TRUE(second.Start(0, 0, nullptr));
  }
  CZORSingleUserAccess after(0);
  EXPECT_TRUE(after.Start(0, 0, nullptr)) << "destructors ended the access";
  after.End();

  // Retry tries again: here the holder lets go while the question is shown.
  auto holder = std::make_unique<CZORSingleUserAccess>(0);
  ASSERT_TRUE(holder->Start(0, 0, nullptr));
  messages.Clear();
  SetMessageHandler([&holder](const HostMessage&) {
    holder.reset();
    return IDRETRY;
  });
  CZORSingleUserAccess waiting(0);
  EXPECT_TRUE(waiting.Start(20258, 0, "posting"));
  SetMessageHandler(nullptr);

  CZORSingleUserAccess bad_area(-1);
  EXPECT_FALSE(bad_area.Start(0, 0, nullptr));
}

TEST(SingleUserAccess, HoldsAcrossProcessesUntilTheHolderEndsOrDies) {
  TempDir dir;
  ScopedChdir in_company(dir.path());
  {
    Child holder([](Child& self) {
      CZORSingleUserAccess access(0);
      self.Signal(access.Start(0, 0, nullptr) ? 'y' : 'n');
      self.AwaitRelease();
      access.End();
      self.Signal();
      self.AwaitRelease();
      return 0;
    });
    ASSERT_TRUE(holder.started());
    ASSERT_EQ(holder.AwaitSignal(), 'y');
    CZORSingleUserAccess mine(0);
    EXPECT_FALSE(mine.Start(0, 0, nullptr));
    holder.Release();
    holder.AwaitSignal();
    EXPECT_TRUE(mine.Start(0, 0, nullptr)) << "released by End in the other process";
    holder.Release();
    EXPECT_EQ(holder.Wait(), 0);
  }
  {
    Child holder([](Child& self) {
      CZORSingleUserAccess access(3);
      self.Signal(access.Start(0, 0, nullptr) ? 'y' : 'n');
      ::pause();
      return 0;
    });
    ASSERT_TRUE(holder.started());
    ASSERT_EQ(holder.AwaitSignal(), 'y');
    CZORSingleUserAccess mine(3);
    EXPECT_FALSE(mine.Start(0, 0, nullptr));
    holder.Kill();
    EXPECT_TRUE(mine.Start(0, 0, nullptr)) << "released when the holder died";
  }
  {
    // A child forked while the parent holds the access neither gets it nor frees it.
    CZORSingleUserAccess mine(5);
    ASSERT_TRUE(mine.Start(0, 0, nullptr));
    Child child([&mine](Child&) {
      CZORSingleUserAccess theirs(5);
      bool refused = !theirs.Start(0, 0, nullptr);
      mine.End();  // the copy inherited from the parent: must leave the parent's lock
      return refused ? 0 : 1;
    });
    EXPECT_EQ(child.Wait(), 0);
    CZORSingleUserAccess again(5);
    EXPECT_FALSE(again.Start(0, 0, nullptr)) << "still held by this process";
  }
}

TEST(SharedCompanyFile, CountsTheProcessesThatHaveTheCompanyOpen) {
  TempDir company;
  TempDir elsewhere;
  ScopedChdir in_elsewhere(elsewhere.path());
  CZORSharedFile shared(4);
  EXPECT_FALSE(shared.IsOpen());
  EXPECT_EQ(shared.OpenCount(), 0);
  EXPECT_STREQ(shared.Directory(), "");
  ASSERT_TRUE(shared.Open(company.path().c_str()));
  EXPECT_TRUE(shared.IsOpen());
  EXPECT_EQ(shared.Directory(), company.path());
  EXPECT_EQ(shared.OpenCount(), 1);
  CZORSharedFile same_process(4);
  ASSERT_TRUE(same_process.Open((company.path() + "/.").c_str()));
  EXPECT_EQ(shared.OpenCount(), 1) << "processes are counted, not objects";
  same_process.Close();
  EXPECT_TRUE(shared.IsOpen());

  {
    const std::string path = company.path();
    Child other([&path](Child& self) {
      CZORSharedFile theirs(4);
      self.Signal(theirs.Open(path.c_str()) ? static_cast<char>('0' + theirs.OpenCount()) : 'n');
      ::pause();
      return 0;
    });
    ASSERT_TRUE(other.started());
    EXPECT_EQ(other.AwaitSignal(), '2');
    EXPECT_EQ(shared.OpenCount(), 2);

    // Single-user access takes the company of the open marker, not the current directory.
    Child access([&path](Child& self) {
      CZORSharedFile theirs_open(4);
      if (!theirs_open.Open(path.c_str())) return 1;
      CZORSingleUserAccess theirs(0);
      self.Signal(theirs.Start(0, 0, nullptr) ? 'y' : 'n');
      ::pause();
      return 0;
    });
    ASSERT_TRUE(access.started());
    ASSERT_EQ(access.AwaitSignal(), 'y');
    EXPECT_EQ(::access(company.File("company.lck").c_str(), F_OK), 0);
    EXPECT_NE(::access(elsewhere.File("company.lck").c_str(), F_OK), 0);
    CZORSingleUserAccess mine(0);
    EXPECT_FALSE(mine.Start(0, 0, nullptr));
    access.Kill();

    other.Kill();
    EXPECT_EQ(shared.OpenCount(), 1) << "a process that dies leaves the count";
  }
  shared.Close();
  EXPECT_FALSE(shared.IsOpen());
  EXPECT_EQ(shared.OpenCount(), 0);
  EXPECT_FALSE(shared.Open(company.File("no-such-dir").c_str()));
  EXPECT_FALSE(shared.Open(nullptr));
}

}  // namespace
