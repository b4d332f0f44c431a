// Files of the utility library: temporary names, status and deletion of ordinary and data files,
// the company-open marker and single-user access, across objects and processes (fork).
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "record_manager.h"
#include "record_manager_test_support.h"
#include "scripted_messages.h"
#include "temp_dir.h"
#include "utility.h"

namespace {

// A forked child that runs body, sends its answer and waits to be killed (at the latest when the
// object goes). The sides step each other with bytes on a socket pair; 0: the child is gone.
class Child {
 public:
  explicit Child(const std::function<char(Child&)>& body) {
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, fds_) != 0) return;
    if ((pid_ = ::fork()) == 0) {
      Send(body(*this));
      for (;;) ::pause();
    }
    ::close(fds_[1]);
  }
  ~Child() {
    Kill();
    ::close(fds_[0]);
  }
  void Send(char byte) { (void)!::write(fds_[pid_ == 0], &byte, 1); }
  char Receive() {
    char byte = 0;
    return ::read(fds_[pid_ == 0], &byte, 1) == 1 ? byte : 0;
  }
  void Kill() {
    if (pid_ > 0 && ::kill(pid_, SIGKILL) == 0) ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
  int fds_[2] = {-1, -1};
};

std::string TempName(const char* prefix) {
  char name[kMaxPathName];
  EXPECT_EQ(ZOR_GetTempFileName(prefix, name), 1);
  return name;
}

std::string DirOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

TEST(TempNames, UniqueInAPrivateDirectoryThatProcessesDoNotShare) {
  std::set<std::string> names;
  for (int i = 0; i < 300; ++i) names.insert(TempName("JRST"));
  EXPECT_EQ(names.size(), 300u);
  // Each name has a directory of its own inside the process's directory.
  const std::string first = *names.begin(), home = DirOf(first), dir = DirOf(home);
  EXPECT_EQ(first.substr(home.size() + 1, 4), "JRST");
  EXPECT_EQ(home.substr(dir.size() + 1, 4), "JRST");
  struct stat info;
  ASSERT_EQ(::stat(dir.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u) << "private to the process's user";
  ASSERT_EQ(::stat(home.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);
  EXPECT_NE(::stat(first.c_str(), &info), 0) << "only a name: the file is not created";
  EXPECT_EQ(DirOf(DirOf(TempName("../x/..\\y"))), dir) << "a prefix cannot leave the directory";
  EXPECT_EQ(ZOR_GetTempFileName("X", nullptr), 0);
  Child child([&dir](Child&) {
    std::string name = TempName("JRST");
    // The child is killed: no clean-up at exit.
    std::filesystem::remove_all(DirOf(DirOf(name)));
    return DirOf(DirOf(name)) != dir ? 'y' : 'n';
  });
  EXPECT_EQ(child.Receive(), 'y') << "a forked child gets a directory of its own";
}

// A temporary data file goes with its directory when deleted, once nothing holds it open;
// while a handle has it open, deleting it is refused as for any data file.
TEST(TempNames, ATemporaryDataFileIsDeletedWithItsDirectory) {
  char name[kMaxPathName];
  ASSERT_EQ(ZOR_GetTempFileName("JRST", name), 1);
  const std::string home = DirOf(name);
  ASSERT_NE(ZORCreateFile(rmtest::SpecBuilder(64).Key({{1, 4, kExtInteger}}).get(), 0, name), 0);
  BtrvFile* file = nullptr;
  ASSERT_NE(RealOpenBFile(&file, name, kOpenModeExclusive, 0, __FILE__, __LINE__), 0);
  char record[64] = {1};
  ASSERT_NE(InsertRecord(file, sizeof record, record), 0);
  EXPECT_EQ(FileDeleteWithLCK(name), 0) << "open in this process";
  EXPECT_TRUE(ZORDataFileExists(name, nullptr));
  RealCloseFile(&file, __FILE__, __LINE__);
  EXPECT_EQ(FileDeleteWithLCK(name), 1);
  EXPECT_FALSE(ZORDataFileExists(name, nullptr));
  struct stat info;
  EXPECT_NE(::stat(home.c_str(), &info), 0) << "the directory went with it";
  EXPECT_EQ(FileDeleteWithLCK(name), 0) << "nothing left to delete";

  // An ordinary file under a temporary name takes its directory with it too.
  ASSERT_EQ(ZOR_GetTempFileName("TXT", name), 1);
  std::ofstream(name) << "x";
  EXPECT_EQ(FileDeleteWithLCK(name), 1);
  EXPECT_NE(::stat(DirOf(name).c_str(), &info), 0);
}

TEST(OrdinaryFiles, StatusAndDeletion) {
  TempDir dir;
  const std::string path = dir.File("notes.txt"), windows_style = dir.path() + "\\notes.txt";
  std::ofstream(path) << "hello";
  struct timespec times[2] = {{1700000000, 123456789}, {1700000000, 123456789}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  struct _stat status {};
  EXPECT_EQ(_stat(windows_style.c_str(), &status), 0) << "backslashes separate directories too";
  ASSERT_EQ(_stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_size, 5);
  EXPECT_EQ(status.st_mtime_sec, 1700000000);
  EXPECT_EQ(status.st_mtime_ns, 1700000000123456789LL);
  EXPECT_EQ(_stat(dir.File("missing.txt").c_str(), &status), -1);
  EXPECT_EQ(_stat(dir.path().c_str(), &status), -1) << "a directory is not a file";
  EXPECT_EQ(_stat(nullptr, &status), -1);
  EXPECT_EQ(_stat(path.c_str(), nullptr), -1);

  EXPECT_EQ(FileDeleteWithLCK(windows_style.c_str()), 1);
  EXPECT_EQ(FileDeleteWithLCK(path.c_str()), 0) << "nothing left to delete";
  EXPECT_EQ(FileDeleteWithLCK(dir.path().c_str()), 0) << "a directory is never deleted";
  EXPECT_EQ(FileDeleteWithLCK(nullptr), 0);
  EXPECT_EQ(FileDeleteWithLCK(""), 0);
}

bool CreateDataFile(const std::string& name) {
  FileSpec spec{16, 1024, 1, 0, {KeySegmentSpec{1, 4, kKeyExtendedType, kExtInteger, 0}}};
  return ZORCreateFile(&spec, 0, name.c_str()) == 1;
}

TEST(DataFiles, StatusFollowsCommitsOfAllProcessesAndDeletionWaitsForClose) {
  TempDir dir;
  ScopedChdir in_company(dir.path());
  const std::string name = dir.File("SETTINGS.DAT");
  ASSERT_TRUE(CreateDataFile(name));
  struct _stat created {};
  struct _stat changed {};
  ASSERT_EQ(_stat("settings.dat", &created), 0) << "the bare name, any case, in the current dir";
  EXPECT_GT(created.st_mtime_ns, 0);
  EXPECT_EQ(created.st_mtime_sec, created.st_mtime_ns / 1000000000);
  EXPECT_EQ(::access(name.c_str(), F_OK), -1) << "a table of the store, not a file";

  Child writer([&name](Child&) {
    ::usleep(2000);
    BtrvFile* file = nullptr;
    char record[16] = {7};
    if (!RealOpenBFile(&file, name.c_str(), kOpenModeNormal, 0, __FILE__, __LINE__)) return 'n';
    bool inserted = InsertRecord(file, sizeof record, record) != 0;
    RealCloseFile(&file, __FILE__, __LINE__);
    return inserted ? 'y' : 'n';
  });
  ASSERT_EQ(writer.Receive(), 'y');
  ASSERT_EQ(_stat(name.c_str(), &changed), 0);
  EXPECT_GT(changed.st_mtime_ns, created.st_mtime_ns) << "another process's write is seen";
  EXPECT_EQ(_stat(dir.File("OTHER.DAT").c_str(), &changed), -1);

  BtrvFile* file = nullptr;
  ASSERT_NE(RealOpenBFile(&file, name.c_str(), kOpenModeNormal, 0, __FILE__, __LINE__), 0);
  EXPECT_EQ(FileDeleteWithLCK(name.c_str()), 0) << "open by a handle: in use";
  EXPECT_TRUE(ZORDataFileExists(name.c_str(), nullptr));
  RealCloseFile(&file, __FILE__, __LINE__);
  EXPECT_EQ(FileDeleteWithLCK((dir.path() + "\\settings.dat").c_str()), 1);
  EXPECT_FALSE(ZORDataFileExists(name.c_str(), nullptr));
  EXPECT_EQ(_stat(name.c_str(), &changed), -1);
  // The sorted walk's file: a temporary name made into a data file, then removed.
  const std::string temp = TempName("JRST");
  ASSERT_TRUE(CreateDataFile(temp));
  EXPECT_EQ(_stat(temp.c_str(), &changed), 0);
  EXPECT_EQ(FileDeleteWithLCK(temp.c_str()), 1);
}

TEST(SingleUserAccess, ExcludesOtherObjectsAndProcessesUntilEndedOrKilled) {
  TempDir dir;
  ScopedChdir in_company(dir.path());
  ScriptedMessages messages;
  {
    CZORSingleUserAccess first(0), second(0), other_area(1);
    EXPECT_TRUE(first.Start(20258, 0, nullptr) && first.Held());
    EXPECT_TRUE(first.Start(20258, 0, nullptr)) << "already held";
    EXPECT_FALSE(second.Start(0, 0, nullptr)) << "message 0: refused without asking";
    EXPECT_FALSE(second.Start(20258, 0, nullptr));
    EXPECT_EQ(messages.Numbers(), std::vector<int>{20258});
    EXPECT_EQ(messages.Last().style & MB_BUTTONS_MASK, MB_RETRYCANCEL);
    EXPECT_TRUE(other_area.Start(0, 0, nullptr)) << "areas are independent";
    first.End();
    EXPECT_FALSE(first.Held());
    EXPECT_TRUE(second.Start(0, 0, nullptr));
  }
  // Retry tries again: here the destructors ended it, and the owner lets go while asked.
  auto owner = std::make_unique<CZORSingleUserAccess>(0);
  ASSERT_TRUE(owner->Start(0, 0, nullptr));
  SetMessageHandler([&owner](const HostMessage&) {
    owner.reset();
    return IDRETRY;
  });
  CZORSingleUserAccess waiting(0), bad_area(-1);
  EXPECT_TRUE(waiting.Start(20258, 0, "posting"));
  SetMessageHandler(nullptr);
  EXPECT_FALSE(bad_area.Start(0, 0, nullptr));

  for (bool killed : {false, true}) {
    Child holder([](Child& self) {
      CZORSingleUserAccess access(3);
      self.Send(access.Start(0, 0, nullptr) ? 'y' : 'n');
      self.Receive();
      access.End();
      return '.';
    });
    ASSERT_EQ(holder.Receive(), 'y');
    CZORSingleUserAccess mine(3);
    EXPECT_FALSE(mine.Start(0, 0, nullptr));
    killed ? holder.Kill() : holder.Send('.');
    holder.Receive();
    EXPECT_TRUE(mine.Start(0, 0, nullptr)) << (killed ? "the holder died" : "it ended");
  }
  // A child forked while the parent holds the access neither gets it nor frees it.
  CZORSingleUserAccess mine(5), again(5);
  ASSERT_TRUE(mine.Start(0, 0, nullptr));
  Child child([&mine](Child&) {
    CZORSingleUserAccess theirs(5);
    bool refused = !theirs.Start(0, 0, nullptr);
    mine.End();  // the copy inherited from the parent: must leave the parent's lock
    return refused ? 'y' : 'n';
  });
  EXPECT_EQ(child.Receive(), 'y');
  EXPECT_FALSE(again.Start(0, 0, nullptr)) << "still held by this process";
}

TEST(SharedCompanyFile, CountsTheProcessesThatHaveTheCompanyOpen) {
  TempDir company, elsewhere;
  ScopedChdir in_elsewhere(elsewhere.path());
  const std::string path = company.path();
  CZORSharedFile shared(4), same_process(4);
  ASSERT_TRUE(shared.Open(path.c_str()));
  EXPECT_EQ(shared.Directory(), path);
  ASSERT_TRUE(same_process.Open((path + "/.").c_str()));
  EXPECT_EQ(shared.OpenCount(), 1) << "processes are counted, not objects";
  same_process.Close();
  EXPECT_TRUE(shared.IsOpen());

  // The other process's single-user access is in the company of its marker, not its directory.
  Child other([&path](Child& self) {
    CZORSharedFile theirs(4);
    if (!theirs.Open(path.c_str())) return 'n';
    CZORSingleUserAccess access(0);
    self.Send(access.Start(0, 0, nullptr) ? static_cast<char>('0' + theirs.OpenCount()) : 'n');
    return self.Receive();  // holds both until killed
  });
  EXPECT_EQ(other.Receive(), '2');
  EXPECT_EQ(shared.OpenCount(), 2);
  EXPECT_EQ(::access(company.File("company.lck").c_str(), F_OK), 0);
  EXPECT_NE(::access(elsewhere.File("company.lck").c_str(), F_OK), 0);
  EXPECT_FALSE(CZORSingleUserAccess(0).Start(0, 0, nullptr));
  other.Kill();
  EXPECT_EQ(shared.OpenCount(), 1) << "a process that dies leaves the count";
  shared.Close();
  EXPECT_FALSE(shared.IsOpen());
  EXPECT_EQ(shared.OpenCount(), 0);
  EXPECT_STREQ(shared.Directory(), "");
  EXPECT_FALSE(shared.Open(company.File("no-such-dir").c_str()));
  EXPECT_FALSE(shared.Open(nullptr));
}

}  // namespace
