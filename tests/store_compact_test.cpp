// Records are stored without their trailing zero bytes: every read gives back the record
// exactly as written, whatever its tail, and a book of mostly empty records stays small.
#include <sys/stat.h>

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

constexpr uint16_t kLength = 2000;

int64_t FileSize(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? static_cast<int64_t>(st.st_size) : 0;
}

std::vector<uint8_t> Record(int32_t key, uint8_t fill, size_t fill_from, size_t fill_to) {
  std::vector<uint8_t> record(kLength, 0);
  for (size_t i = fill_from; i < fill_to; ++i) record[i] = fill;
  std::memcpy(record.data(), &key, sizeof key);
  return record;
}

TEST(StoreCompactTest, EveryTailReadsBackAsWrittenAndEmptyTailsTakeNoRoom) {
  TempDir dir;
  const std::string name = dir.File("WIDE.DAT");
  ASSERT_NE(ZORCreateFile(SpecBuilder(kLength).Key({{1, 4, kExtInteger}}).get(), 0, name.c_str()),
            0);
  BtrvFile* file = nullptr;
  ASSERT_NE(RealOpenBFile(&file, name.c_str(), kOpenModeNormal, 0, __FILE__, __LINE__), 0);

  // A record of nothing but zeros (its key is 0 too), one with a zero tail, one whose last
  // byte is set with zeros before it, and one without a zero anywhere.
  const std::vector<std::vector<uint8_t>> written = {Record(0, 0, 0, 0), Record(1, 'a', 10, 20),
                                                     Record(2, 'b', kLength - 1, kLength),
                                                     Record(-1, 0xFF, 0, kLength)};
  for (const auto& record : written) {
    std::vector<uint8_t> copy = record;
    ASSERT_NE(InsertRecord(file, kLength, copy.data()), 0);
  }
  std::vector<uint8_t> read(kLength, 0x5A);
  size_t count = 0;
  for (uint8_t ok = GetFileLowest(file, kLockBiasNone, kLength, read.data(), 0); ok;
       ok = GetFileNext(file, kLockBiasNone, kLength, read.data(), 0)) {
    int32_t key = 0;
    std::memcpy(&key, read.data(), sizeof key);
    const auto& expected = key == 0   ? written[0]
                           : key == 1 ? written[1]
                           : key == 2 ? written[2]
                                      : written[3];
    EXPECT_EQ(read, expected) << "key " << key;
    std::fill(read.begin(), read.end(), 0x5A);  // a stale buffer must not show through
    ++count;
  }
  EXPECT_EQ(count, written.size());

  // An update that shortens the tail and one that lengthens it.
  int32_t key = 2;
  std::memcpy(read.data(), &key, sizeof key);
  ASSERT_NE(GetFileEqual(file, kLockBiasNone, kLength, read.data(), 0), 0);
  read[kLength - 1] = 0;
  ASSERT_NE(UpdateFile(file, kLength, read.data(), 0), 0);
  std::vector<uint8_t> again(kLength, 0x5A);
  std::memcpy(again.data(), &key, sizeof key);
  ASSERT_NE(GetFileEqual(file, kLockBiasNone, kLength, again.data(), 0), 0);
  EXPECT_EQ(again, Record(2, 0, 0, 0));
  again[kLength - 1] = 'z';
  ASSERT_NE(UpdateFile(file, kLength, again.data(), 0), 0);
  std::vector<uint8_t> last(kLength, 0x5A);
  std::memcpy(last.data(), &key, sizeof key);
  ASSERT_NE(GetFileEqual(file, kLockBiasNone, kLength, last.data(), 0), 0);
  EXPECT_EQ(last, Record(2, 'z', kLength - 1, kLength));

  // 4,000 records of 2,000 bytes each, all but their first 40 bytes zero: a few hundred
  // kilobytes on disk instead of eight megabytes.
  ASSERT_NE(bBeginBatchUpdate(file), 0);
  for (int32_t i = 10; i < 4010; ++i) {
    std::vector<uint8_t> record = Record(i, 'c', 4, 40);
    ASSERT_NE(InsertRecord(file, kLength, record.data()), 0) << i;
  }
  ASSERT_NE(bEndBatchUpdate(file), 0);
  RealCloseFile(&file, __FILE__, __LINE__);
  const int64_t stored = FileSize(dir.File("records.db")) + FileSize(dir.File("records.db-wal"));
  EXPECT_LT(stored, 2'000'000);
}

}  // namespace
