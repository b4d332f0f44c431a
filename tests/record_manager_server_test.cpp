// A company served from the test server: a directory that does not exist on this machine
// names its files, change times and company markers, and the store check looks at its
// tables. The rest of the record manager's behaviour runs on the server through the other
// record manager tests' "Postgres" cases.
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>
// The server's own client library, to do to the server what a program of ours never does.
#include <postgresql/libpq-fe.h>

#include "record_manager.h"
#include "record_manager_test_support.h"
#include "utility.h"

namespace rmtest {
namespace {

class ServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* conninfo = std::getenv("BASICS_TEST_PG");
    if (conninfo == nullptr || *conninfo == '\0') {
      GTEST_FAIL() << "BASICS_TEST_PG is not set: the server tests need the test server";
    }
    conninfo_ = conninfo;
    dir_ = "/nowhere/company-" + std::to_string(getpid()) + "-" + std::to_string(time(nullptr));
    schema_ = "servertest_" + std::to_string(getpid()) + "_" + std::to_string(++counter_);
    std::string error;
    ASSERT_EQ(ZORServeDirectoryFromServer(dir_.c_str(), conninfo, schema_.c_str(), &error), 0)
        << error;
  }
  void TearDown() override {
    ZORStopServingDirectory(dir_.c_str());
    EXPECT_EQ(OpenHandleCount(), 0u);
  }
  std::string File(const std::string& name) const { return dir_ + "/" + name; }
  // Runs sql on a connection of its own; answers whether it succeeded.
  bool Exec(const std::string& sql) const {
    PGconn* conn = PQconnectdb(conninfo_.c_str());
    PGresult* r = PQexec(conn, sql.c_str());
    const bool ok = PQresultStatus(r) == PGRES_COMMAND_OK || PQresultStatus(r) == PGRES_TUPLES_OK;
    PQclear(r);
    PQfinish(conn);
    return ok;
  }

  static int counter_;
  std::string conninfo_, dir_, schema_;
};
int ServerTest::counter_ = 0;

TEST_F(ServerTest, UnreachableServerAnswers2WithTheServersReason) {
  std::string error;
  EXPECT_EQ(
      ZORServeDirectoryFromServer("/elsewhere", "host=/nonexistent-socket-dir port=1", "x", &error),
      kStatusIoError);
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(ZORServeDirectoryFromServer("/elsewhere", "host=/nonexistent-socket-dir port=1", "x",
                                        nullptr),
            kStatusIoError);
}

TEST_F(ServerTest, ServedDirectoryHoldsFilesTimesAndPassesTheCheck) {
  std::vector<std::string> problems;
  // Nothing made yet: no schema, as a directory without records.db.
  EXPECT_EQ(CheckStoreIntegrity(dir_.c_str(), 5, false, &problems), kStatusFileNotFound);
  SpecBuilder builder(8);
  const FileSpec* spec =
      builder.Key({{1, 4, kExtInteger}}).Key({{5, 4, kExtInteger}}, kKeyDuplicates).get();
  ASSERT_NE(ZORCreateFile(spec, 0, File("ONE.DAT").c_str()), 0) << GetErrorCode(nullptr);
  // Other spellings of the same directory name the same company.
  ASSERT_NE(ZORCreateFile(spec, 0, (dir_ + "/./sub/../TWO.DAT").c_str()), 0);
  EXPECT_EQ(ZORCreateFile(spec, 0, (dir_ + "\\one.dat").c_str()), 0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusFileExists);

  struct _stat before {};
  ASSERT_EQ(_stat(File("ONE.DAT").c_str(), &before), 0);
  EXPECT_EQ(before.st_size, 0);
  // The server's clock: close to this machine's here, as both run on one machine.
  EXPECT_LT(std::abs(before.st_mtime_sec - static_cast<int64_t>(time(nullptr))), 60);
  BtrvFile* f = nullptr;
  ASSERT_NE(RealOpenBFile(&f, File("one.dat").c_str(), kOpenModeNormal, 0, __FILE__, __LINE__), 0);
  int32_t rec[2] = {1, 7};
  ASSERT_NE(InsertRecord(f, sizeof rec, rec), 0);
  RealCloseFile(&f, __FILE__, __LINE__);
  struct _stat after {};
  ASSERT_EQ(_stat(File("ONE.DAT").c_str(), &after), 0);
  EXPECT_GT(after.st_mtime_ns, before.st_mtime_ns);

  EXPECT_EQ(CheckStoreIntegrity(dir_.c_str(), 5, true, &problems), kStatusOk);
  EXPECT_TRUE(problems.empty());
  // A key index gone from the server is told.
  ASSERT_TRUE(Exec("DROP INDEX \"" + schema_ + "\".f1_k1"));
  EXPECT_EQ(CheckStoreIntegrity(dir_.c_str(), 5, false, &problems), kStatusIoError);
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_NE(problems[0].find("one.dat"), std::string::npos) << problems[0];
  EXPECT_EQ(FileDeleteWithLCK(File("TWO.DAT").c_str()), 1);
  EXPECT_EQ(_stat(File("TWO.DAT").c_str(), &after), -1);
  EXPECT_EQ(FileDeleteWithLCK(File("TWO.DAT").c_str()), 0);
  EXPECT_EQ(rm::OpenStoreCount(), 0u);
}

TEST_F(ServerTest, CompanyMarkersAndSingleUserAccessHoldAcrossProcessesUntilTheyDie) {
  CZORSharedFile company(0);
  ASSERT_TRUE(company.Open(dir_.c_str()));
  EXPECT_EQ(company.OpenCount(), 1);
  CZORSingleUserAccess mine(3), other(3);
  ASSERT_TRUE(mine.Start(0, 0, "posting"));
  EXPECT_FALSE(other.Start(0, 0, "posting"));  // another object of this process
  // A child with the company open, trying the access that this process holds, then
  // holding another area until it is killed.
  ChildProcess child([&] {
    // Kept past the answer: the child holds them until it is killed.
    auto* its = new CZORSharedFile(0);
    if (!its->Open(dir_.c_str())) return 1;
    auto* same = new CZORSingleUserAccess(3);
    auto* next = new CZORSingleUserAccess(4);
    if (same->Start(0, 0, "posting")) return 3;
    if (!next->Start(0, 0, "closing")) return 4;
    return its->OpenCount();
  });
  EXPECT_EQ(child.Answer(), 2);
  EXPECT_EQ(company.OpenCount(), 2);
  CZORSingleUserAccess closing(4);
  EXPECT_FALSE(closing.Start(0, 0, "closing"));
  child.Kill();
  usleep(50 * 1000);  // the server notices the closed connection
  EXPECT_EQ(company.OpenCount(), 1);
  EXPECT_TRUE(closing.Start(0, 0, "closing"));
  mine.End();
  EXPECT_TRUE(other.Start(0, 0, "posting"));
  other.End();
  closing.End();
  company.Close();
  EXPECT_EQ(rm::OpenStoreCount(), 0u);
}

TEST_F(ServerTest, LostConnectionAnswers2UntilTheStoreIsOpenedAgain) {
  ASSERT_EQ(ZORServeDirectoryFromServer(dir_.c_str(),
                                        (conninfo_ + " application_name=" + schema_).c_str(),
                                        schema_.c_str(), nullptr),
            0);
  SpecBuilder builder(8);
  const FileSpec* spec = builder.Key({{1, 4, kExtInteger}}).get();
  ASSERT_NE(ZORCreateFile(spec, 0, File("ONE.DAT").c_str()), 0);
  BtrvFile* f = nullptr;
  ASSERT_NE(RealOpenBFile(&f, File("ONE.DAT").c_str(), kOpenModeNormal, 0, __FILE__, __LINE__), 0);
  int32_t rec[2] = {1, 7};
  ASSERT_NE(InsertRecord(f, sizeof rec, rec), 0);
  // The server process of this test's connection, named by its application name.
  ASSERT_TRUE(
      Exec("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE "
           "application_name = '" +
           schema_ + "'"));
  // Every call on the store now fails with 2, whatever it is.
  f->NoLockMessageOnNextCall();
  EXPECT_EQ(Why(GetFileEqual(f, 0, sizeof rec, rec, 0), f), kStatusIoError);
  f->NoLockMessageOnNextCall();
  EXPECT_EQ(Why(InsertRecord(f, sizeof rec, rec), f), kStatusIoError);
  f->NoLockMessageOnNextCall();
  EXPECT_EQ(Why(bBeginBatchUpdate(f), f), kStatusIoError);
  RealCloseFile(&f, __FILE__, __LINE__);
  // Once its last handle is closed, the next open connects afresh.
  ASSERT_NE(RealOpenBFile(&f, File("ONE.DAT").c_str(), kOpenModeNormal, 0, __FILE__, __LINE__), 0);
  EXPECT_EQ(Why(GetFileEqual(f, 0, sizeof rec, rec, 0), f), kStatusOk);
  RealCloseFile(&f, __FILE__, __LINE__);
}

}  // namespace
}  // namespace rmtest
