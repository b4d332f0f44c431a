// The store's integrity check: a sound store (also while this process holds it open with a
// batch under way), a directory without a store, and a store with a damaged page.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "record_manager.h"
#include "record_manager_test_support.h"
#include "temp_dir.h"

namespace {

using rmtest::SpecBuilder;

constexpr uint16_t kLength = 200;

// Answers the check's status, with its problems in *problems.
uint16_t Check(const TempDir& dir, std::vector<std::string>* problems, bool quick = false) {
  return CheckStoreIntegrity(dir.path().c_str(), 5, quick, problems);
}

TEST(StoreIntegrityTest, SoundMissingAndDamagedStoresAreTold) {
  TempDir dir;
  std::vector<std::string> problems{"left from before"};
  EXPECT_EQ(Check(dir, &problems), kStatusFileNotFound);
  EXPECT_TRUE(problems.empty());

  // Enough records for many pages of table and index.
  const std::string name = dir.File("WIDE.DAT");
  ASSERT_NE(ZORCreateFile(SpecBuilder(kLength).Key({{1, 4, kExtInteger}}).get(), 0, name.c_str()),
            0);
  BtrvFile* file = nullptr;
  ASSERT_NE(RealOpenBFile(&file, name.c_str(), kOpenModeNormal, 0, __FILE__, __LINE__), 0);
  ASSERT_NE(bBeginBatchUpdate(file), 0);
  std::vector<char> record(kLength, 'x');
  for (int32_t i = 1; i <= 3000; ++i) {
    std::memcpy(record.data(), &i, sizeof i);
    ASSERT_NE(InsertRecord(file, kLength, record.data()), 0) << i;
  }
  ASSERT_NE(bEndBatchUpdate(file), 0);

  // Checked beside this process's own open handle, in the middle of its batch: only what
  // is committed is read, and the batch goes on undisturbed.
  ASSERT_NE(bBeginBatchUpdate(file), 0);
  const int32_t extra = 5000;
  std::memcpy(record.data(), &extra, sizeof extra);
  ASSERT_NE(InsertRecord(file, kLength, record.data()), 0);
  EXPECT_EQ(Check(dir, &problems), kStatusOk);
  EXPECT_TRUE(problems.empty());
  EXPECT_EQ(Check(dir, &problems, true), kStatusOk);
  EXPECT_NE(bEndBatchUpdate(file), 0);
  EXPECT_EQ(NumRecsInFile(file), 3001);
  RealCloseFile(&file, __FILE__, __LINE__);

  // A page in the middle of the store overwritten: told as problems, at most as many as
  // asked for, one a line.
  const std::string store = dir.File("records.db");
  std::FILE* raw = std::fopen(store.c_str(), "r+b");
  ASSERT_NE(raw, nullptr);
  ASSERT_EQ(std::fseek(raw, 0, SEEK_END), 0);
  const long size = std::ftell(raw);
  ASSERT_GT(size, 4096 * 40);
  const std::vector<char> garbage(4096, '\xff');
  ASSERT_EQ(std::fseek(raw, size / 4096 / 2 * 4096, SEEK_SET), 0);
  ASSERT_EQ(std::fwrite(garbage.data(), 1, garbage.size(), raw), garbage.size());
  std::fclose(raw);
  EXPECT_EQ(Check(dir, &problems), kStatusIoError);
  ASSERT_FALSE(problems.empty());
  EXPECT_LE(problems.size(), 5u);
  for (const std::string& problem : problems) {
    EXPECT_EQ(problem.find('\n'), std::string::npos) << problem;
    EXPECT_NE(problem, "ok");
  }
  // The quick check reads every page too: it finds the damaged one.
  EXPECT_EQ(Check(dir, &problems, true), kStatusIoError);
  EXPECT_FALSE(problems.empty());
}

}  // namespace
