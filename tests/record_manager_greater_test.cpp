// Greater reads from the handle's own current record, which the record manager answers with
// steps of the handle's walk: the same records as a search, whatever the duplicates, and a
// read that finds nothing changes neither the buffer nor the place of the next step.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "record_manager.h"
#include "record_manager_test_support.h"
#include "temp_dir.h"

namespace {

using rmtest::SpecBuilder;

// key 0: the group (duplicates), key 1: the record's own number.
struct Rec {
  int32_t group;
  int32_t number;
  char text[24];
};

class GreaterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string name = dir_.File("GROUPS.DAT");
    ASSERT_NE(ZORCreateFile(SpecBuilder(sizeof(Rec))
                                .Key({{1, 4, kExtInteger}}, kKeyDuplicates)
                                .Key({{5, 4, kExtInteger}})
                                .get(),
                            0, name.c_str()),
              0);
    ASSERT_NE(RealOpenBFile(&file_, name.c_str(), kOpenModeNormal, 0, __FILE__, __LINE__), 0);
    // Groups 1 (one record), 2 (seven: more than the steps taken before searching), 3 (two).
    int32_t number = 0;
    for (int32_t group : {1, 2, 2, 2, 2, 2, 2, 2, 3, 3}) {
      Rec r{group, ++number, {}};
      std::snprintf(r.text, sizeof r.text, "g%d n%d", group, number);
      ASSERT_NE(InsertRecord(file_, sizeof r, &r), 0);
    }
  }
  void TearDown() override { RealCloseFile(&file_, __FILE__, __LINE__); }

  TempDir dir_;
  BtrvFile* file_ = nullptr;
};

TEST_F(GreaterTest, FromTheCurrentRecordItMatchesASearch) {
  Rec r{2, 0, {}};
  // From each record of group 2 in turn (the first, then further in): the next group's first.
  ASSERT_NE(GetFileEqual(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  EXPECT_EQ(r.number, 2);
  ASSERT_NE(GetFileGreater(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  EXPECT_EQ(r.group, 3);
  EXPECT_EQ(r.number, 9);
  EXPECT_STREQ(r.text, "g3 n9");
  r = Rec{2, 0, {}};
  ASSERT_NE(GetFileEqual(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  for (int i = 0; i < 5; ++i) ASSERT_NE(GetFileNext(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  EXPECT_EQ(r.number, 7);
  ASSERT_NE(GetFileGreater(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  EXPECT_EQ(r.number, 9);
  // The walk goes on from there.
  ASSERT_NE(GetFileNext(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  EXPECT_EQ(r.number, 10);

  // A buffer set to another key than the current record's is searched as given.
  ASSERT_NE(GetFileLowest(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  r.group = 2;
  ASSERT_NE(GetFileGreater(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  EXPECT_EQ(r.number, 9);

  // Past the last group: what a search answers, the buffer as it was, and Next still steps
  // from the current record.
  ASSERT_NE(GetFileLowest(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  r.group = 3;
  EXPECT_EQ(GetFileGreater(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  const uint16_t searched = GetErrorCode(file_);
  EXPECT_NE(searched, kStatusOk);
  r = Rec{3, 0, {}};
  ASSERT_NE(GetFileEqual(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  EXPECT_EQ(r.number, 9);
  const Rec before = r;
  EXPECT_EQ(GetFileGreater(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  EXPECT_EQ(GetErrorCode(file_), searched);
  EXPECT_EQ(std::memcmp(&r, &before, sizeof r), 0);
  ASSERT_NE(GetFileNext(file_, kLockBiasNone, sizeof r, &r, 0), 0);
  EXPECT_EQ(r.number, 10);

  // On the other key path, and after the current record was deleted (a search then).
  r = Rec{0, 4, {}};
  ASSERT_NE(GetFileEqual(file_, kLockBiasNone, sizeof r, &r, 1), 0);
  ASSERT_NE(GetFileGreater(file_, kLockBiasNone, sizeof r, &r, 1), 0);
  EXPECT_EQ(r.number, 5);
  ASSERT_NE(DeleteRecord(file_, sizeof r, &r), 0);
  ASSERT_NE(GetFileGreater(file_, kLockBiasNone, sizeof r, &r, 1), 0);
  EXPECT_EQ(r.number, 6);
}

}  // namespace
