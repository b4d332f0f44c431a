// Key ordering, duplicates, unique keys, auto-increment, key-only reads and the checks
// made on creation descriptions.
#include <cmath>
#include <string>
#include <vector>

#include "record_manager_test_support.h"
#include "zor_types.h"

namespace rmtest {
namespace {

class KeyTest : public RecordManagerTest {
 protected:
  // Every record of f along key, lowest first (or highest first).
  template <typename T>
  std::vector<T> Walk(BtrvFile* f, int key, size_t record_length, size_t off,
                      bool backwards = false) {
    std::vector<T> out;
    Rec r(record_length);
    uint8_t ok = backwards ? GetFileHighest(f, 0, r.size(), r.data(), key)
                           : GetFileLowest(f, 0, r.size(), r.data(), key);
    while (ok) {
      out.push_back(r.Get<T>(off));
      ok = backwards ? GetFilePrevious(f, 0, r.size(), r.data(), key)
                     : GetFileNext(f, 0, r.size(), r.data(), key);
    }
    EXPECT_EQ(GetErrorCode(f), kStatusEndOfFile);
    return out;
  }
  std::vector<std::string> WalkText(BtrvFile* f, int key, size_t record_length, size_t off,
                                    size_t cap) {
    std::vector<std::string> out;
    Rec r(record_length);
    for (uint8_t ok = GetFileLowest(f, 0, r.size(), r.data(), key); ok;
         ok = GetFileNext(f, 0, r.size(), r.data(), key)) {
      out.push_back(r.TextAt(off, cap));
    }
    return out;
  }
};

TEST_P(KeyTest, IntegersOrderByValueAtEveryWidth) {
  // i8 at 0, i16 at 1, i32 at 3, i64 at 7; each its own key, duplicates allowed.
  SpecBuilder spec(16);
  spec.Key({{1, 1, kExtInteger}}, kKeyDuplicates)
      .Key({{2, 2, kExtInteger}}, kKeyDuplicates)
      .Key({{4, 4, kExtInteger}}, kKeyDuplicates)
      .Key({{8, 8, kExtInteger}}, kKeyDuplicates);
  BtrvFile* f = CreateAndOpen(spec.get(), "INTS.DAT");
  const std::vector<int64_t> values = {5, -3, 0, 127, -128, 1, -1, 100};
  for (int64_t v : values) {
    Rec r(16);
    r.Put<int8_t>(0, static_cast<int8_t>(v)).Put<int16_t>(1, static_cast<int16_t>(v * 200));
    r.Put<int32_t>(3, static_cast<int32_t>(v * 16000000)).Put<int64_t>(7, v * 70000000000LL);
    ASSERT_TRUE(InsertRecord(f, r.size(), r.data()));
  }
  std::vector<int64_t> sorted = values;
  std::sort(sorted.begin(), sorted.end());
  std::vector<int8_t> i8;
  std::vector<int16_t> i16;
  std::vector<int32_t> i32;
  std::vector<int64_t> i64;
  for (int64_t v : sorted) {
    i8.push_back(static_cast<int8_t>(v));
    i16.push_back(static_cast<int16_t>(v * 200));
    i32.push_back(static_cast<int32_t>(v * 16000000));
    i64.push_back(v * 70000000000LL);
  }
  EXPECT_EQ(Walk<int8_t>(f, 0, 16, 0), i8);
  EXPECT_EQ(Walk<int16_t>(f, 1, 16, 1), i16);
  EXPECT_EQ(Walk<int32_t>(f, 2, 16, 3), i32);
  EXPECT_EQ(Walk<int64_t>(f, 3, 16, 7), i64);
  std::reverse(i32.begin(), i32.end());
  EXPECT_EQ(Walk<int32_t>(f, 2, 16, 3, /*backwards=*/true), i32);
  Close(f);
}

TEST_P(KeyTest, UnsignedAndLegacyBinaryOrderAsUnsigned) {
  SpecBuilder spec(8);
  spec.Key({{1, 4, kExtUnsignedBinary}}, kKeyDuplicates).Key({{5, 4, kNoExt, kKeyBinary}});
  BtrvFile* f = CreateAndOpen(spec.get(), "UNS.DAT");
  for (uint32_t v : {0xFFFFFFFFu, 1u, 256u, 65536u, 0u, 0x80000000u}) {
    Rec r(8);
    r.Put<uint32_t>(0, v).Put<uint32_t>(4, v);
    ASSERT_TRUE(InsertRecord(f, r.size(), r.data()));
  }
  const std::vector<uint32_t> want = {0u, 1u, 256u, 65536u, 0x80000000u, 0xFFFFFFFFu};
  EXPECT_EQ(Walk<uint32_t>(f, 0, 8, 0), want);
  EXPECT_EQ(Walk<uint32_t>(f, 1, 8, 4), want);
  Close(f);
}

TEST_P(KeyTest, FloatsOrderByValueAndZeroIsOneKey) {
  SpecBuilder spec(12);
  spec.Key({{1, 8, kExtFloat}}, kKeyDuplicates).Key({{9, 4, kExtFloat}}, kKeyDuplicates);
  BtrvFile* f = CreateAndOpen(spec.get(), "FLOAT.DAT");
  const std::vector<double> values = {2.25, -1.5, 0.0, 1e-300, -1e300, 1e300, -0.001, 7.0};
  for (double v : values) {
    Rec r(12);
    r.Put<double>(0, v).Put<float>(8,
                                   static_cast<float>(v == 1e300 || v == -1e300 ? v / 1e270 : v));
    ASSERT_TRUE(InsertRecord(f, r.size(), r.data()));
  }
  std::vector<double> sorted = values;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(Walk<double>(f, 0, 12, 0), sorted);
  std::vector<float> floats = Walk<float>(f, 1, 12, 8);
  EXPECT_TRUE(std::is_sorted(floats.begin(), floats.end()));
  // -0.0 finds the record stored with +0.0.
  Rec probe(12);
  probe.Put<double>(0, -0.0);
  EXPECT_TRUE(GetFileEqual(f, 0, probe.size(), probe.data(), 0));
  EXPECT_EQ(probe.Get<double>(0), 0.0);
  Close(f);
}

TEST_P(KeyTest, DatesOrderByYearMonthDay) {
  SpecBuilder spec(8);
  spec.Key({{1, 4, kExtDate}}, kKeyDuplicates);
  BtrvFile* f = CreateAndOpen(spec.get(), "DATES.DAT");
  auto date = [](int d, int m, int y) {
    DatesType t{static_cast<uint8_t>(d), static_cast<uint8_t>(m), static_cast<uint16_t>(y)};
    return t;
  };
  // Day-first storage would sort 1 January 2024 before 31 December 2023.
  for (DatesType d : {date(1, 1, 2024), date(31, 12, 2023), date(15, 6, 2023), date(2, 1, 2024),
                      date(1, 2, 2024), date(28, 2, 1999)}) {
    Rec r(8);
    r.Put<DatesType>(0, d);
    ASSERT_TRUE(InsertRecord(f, r.size(), r.data()));
  }
  std::vector<std::string> got;
  for (DatesType d : Walk<DatesType>(f, 0, 8, 0)) {
    got.push_back(std::to_string(d.year) + "-" + std::to_string(d.month) + "-" +
                  std::to_string(d.day));
  }
  EXPECT_EQ(got, (std::vector<std::string>{"1999-2-28", "2023-6-15", "2023-12-31", "2024-1-1",
                                           "2024-1-2", "2024-2-1"}));
  Close(f);
}

TEST_P(KeyTest, ZeroTerminatedStringsIgnoreBytesAfterTheTerminator) {
  SpecBuilder spec(12);
  spec.Key({{1, 8, kExtZString}}, kKeyDuplicates);
  BtrvFile* f = CreateAndOpen(spec.get(), "ZSTR.DAT");
  auto insert = [&](const char* bytes, size_t n, int tag) {
    Rec r(12);
    std::memcpy(r.b.data(), bytes, n);
    r.Put<int32_t>(8, tag);
    ASSERT_TRUE(InsertRecord(f, r.size(), r.data()));
  };
  insert("abd\0\0\0\0\0", 8, 1);
  insert("abc\0xyzw", 8, 2);  // trailing garbage after the terminator
  insert("ab\0\0\0\0\0\0", 8, 3);
  insert("abc\0\0\0\0\0", 8, 4);
  insert("abcdefgh", 8, 5);  // fills the field: no terminator at all
  EXPECT_EQ(Walk<int32_t>(f, 0, 12, 8), (std::vector<int32_t>{3, 2, 4, 5, 1}));
  // "abc" followed by other garbage finds the first "abc" record.
  Rec probe(12);
  std::memcpy(probe.b.data(), "abc\0qqqq", 8);
  ASSERT_TRUE(GetFileEqual(f, 0, probe.size(), probe.data(), 0));
  EXPECT_EQ(probe.Get<int32_t>(8), 2);
  Close(f);
}

TEST_P(KeyTest, DescendingAndCaseInsensitiveSegments) {
  SpecBuilder spec(24);
  spec.Key({{1, 4, kExtInteger, kKeyDescending}}, kKeyDuplicates)
      .Key({{5, 10, kExtString, kKeyNoCase}}, kKeyDuplicates)
      .Key({{15, 10, kExtZString, kKeyDescending}}, kKeyDuplicates);
  BtrvFile* f = CreateAndOpen(spec.get(), "DESC.DAT");
  const char* names[] = {"cherry", "Banana", "apple", "BANANA2", "Date"};
  int32_t n = -2;
  for (const char* name : names) {
    Rec r(24);
    r.Put<int32_t>(0, n++).Text(4, name, 10).Text(14, name, 10);
    ASSERT_TRUE(InsertRecord(f, r.size(), r.data()));
  }
  EXPECT_EQ(Walk<int32_t>(f, 0, 24, 0), (std::vector<int32_t>{2, 1, 0, -1, -2}));
  EXPECT_EQ(WalkText(f, 1, 24, 4, 10),
            (std::vector<std::string>{"apple", "Banana", "BANANA2", "cherry", "Date"}));
  // Descending byte order: lower-case letters sort above capitals, so they come first.
  EXPECT_EQ(WalkText(f, 2, 24, 14, 10),
            (std::vector<std::string>{"cherry", "apple", "Date", "Banana", "BANANA2"}));
  // Case-insensitive search; a key-only read answers the field as stored.
  Rec probe(24);
  probe.Text(4, "BANANA", 10);
  ASSERT_TRUE(GetFileEqual(f, 0, probe.size(), probe.data(), 1));
  EXPECT_EQ(probe.TextAt(4, 10), "Banana");
  char key[10] = "CHERRY";
  ASSERT_TRUE(GetFileEqual(f, kLockBiasKeyOnly, sizeof key, key, 1));
  EXPECT_STREQ(key, "cherry");
  Close(f);
}

TEST_P(KeyTest, SegmentedKeyOrdersByEachSegmentInTurn) {
  // The journal row file's key 2: account (s32), date, post order number (u32).
  SpecBuilder spec(16);
  spec.Key({{1, 4, kExtInteger}, {5, 4, kExtDate}, {9, 4, kExtUnsignedBinary}}, kKeyDuplicates);
  BtrvFile* f = CreateAndOpen(spec.get(), "SEG.DAT");
  struct Row {
    int32_t account;
    DatesType date;
    uint32_t post;
  };
  std::vector<Row> rows = {{2, {1, 1, 2024}, 7},   {-1, {5, 5, 2025}, 1},
                           {2, {31, 12, 2023}, 9}, {2, {1, 1, 2024}, 3},
                           {10, {1, 1, 1990}, 0},  {2, {1, 1, 2024}, 0xF0000000u}};
  for (size_t i = 0; i < rows.size(); ++i) {
    Rec r(16);
    r.Put<int32_t>(0, rows[i].account).Put<DatesType>(4, rows[i].date);
    r.Put<uint32_t>(8, rows[i].post).Put<int32_t>(12, static_cast<int32_t>(i));
    ASSERT_TRUE(InsertRecord(f, r.size(), r.data()));
  }
  EXPECT_EQ(Walk<int32_t>(f, 0, 16, 12), (std::vector<int32_t>{1, 2, 3, 0, 5, 4}));
  // GE with a partial value: account 2 from 1 January 2024 on.
  Rec probe(16);
  probe.Put<int32_t>(0, 2).Put<DatesType>(4, DatesType{1, 1, 2024}).Put<uint32_t>(8, 0);
  ASSERT_TRUE(GetFileGE(f, 0, probe.size(), probe.data(), 0));
  EXPECT_EQ(probe.Get<int32_t>(12), 3);
  // The key-only form takes and answers the key's fields one after another.
  uint8_t key[12];
  std::memcpy(key, &rows[1].account, 4);
  std::memcpy(key + 4, &rows[1].date, 4);
  std::memcpy(key + 8, &rows[1].post, 4);
  ASSERT_TRUE(GetFileEqual(f, kLockBiasKeyOnly, sizeof key, key, 0));
  EXPECT_EQ(GetFileEqual(f, kLockBiasKeyOnly, 16, key, 0), 0);
  EXPECT_EQ(GetErrorCode(f), kStatusBadLength);
  int32_t account;
  ASSERT_TRUE(GetFileNext(f, kLockBiasKeyOnly, sizeof key, key, 0));
  std::memcpy(&account, key, 4);
  EXPECT_EQ(account, 2);
  Close(f);
}

TEST_P(KeyTest, DuplicatesKeepInsertionOrderBothWays) {
  SpecBuilder spec(8);
  spec.Key({{1, 4, kExtInteger}}, kKeyDuplicates);
  BtrvFile* f = CreateAndOpen(spec.get(), "DUPS.DAT");
  for (int32_t i = 0; i < 6; ++i) {
    Rec r(8);
    r.Put<int32_t>(0, i % 2 ? 7 : 3).Put<int32_t>(4, i);
    ASSERT_TRUE(InsertRecord(f, r.size(), r.data()));
  }
  EXPECT_EQ(Walk<int32_t>(f, 0, 8, 4), (std::vector<int32_t>{0, 2, 4, 1, 3, 5}));
  EXPECT_EQ(Walk<int32_t>(f, 0, 8, 4, true), (std::vector<int32_t>{5, 3, 1, 4, 2, 0}));
  // Equal finds the first duplicate; Less/LE the last one below / at the key.
  Rec r(8);
  r.Put<int32_t>(0, 7);
  ASSERT_TRUE(GetFileEqual(f, 0, r.size(), r.data(), 0));
  EXPECT_EQ(r.Get<int32_t>(4), 1);
  r.Put<int32_t>(0, 7);
  ASSERT_TRUE(GetFileLess(f, 0, r.size(), r.data(), 0));
  EXPECT_EQ(r.Get<int32_t>(4), 4);
  r.Put<int32_t>(0, 7);
  ASSERT_TRUE(GetFileLE(f, 0, r.size(), r.data(), 0));
  EXPECT_EQ(r.Get<int32_t>(4), 5);
  r.Put<int32_t>(0, 3);
  ASSERT_TRUE(GetFileGreater(f, 0, r.size(), r.data(), 0));
  EXPECT_EQ(r.Get<int32_t>(4), 1);
  Close(f);
}

TEST_P(KeyTest, UniqueKeyRefusesDuplicateAndLeavesFileAsItWas) {
  SpecBuilder spec(8);
  spec.Key({{1, 4, kExtInteger}}, kKeyModifiable)
      .Key({{5, 4, kExtInteger}}, kKeyDuplicates | kKeyModifiable);
  BtrvFile* f = CreateAndOpen(spec.get(), "UNIQ.DAT");
  Rec r(8);
  r.Put<int32_t>(0, 1).Put<int32_t>(4, 10);
  ASSERT_TRUE(InsertRecord(f, r.size(), r.data()));
  r.Put<int32_t>(0, 2).Put<int32_t>(4, 20);
  ASSERT_TRUE(InsertRecord(f, r.size(), r.data()));
  const int32_t second = PhysicalPosition(f);
  r.Put<int32_t>(0, 1).Put<int32_t>(4, 30);
  EXPECT_FALSE(InsertRecord(f, r.size(), r.data()));
  EXPECT_EQ(GetErrorCode(f), kStatusDuplicateKey);
  EXPECT_EQ(NumRecsInFile(f), 2);
  // The failed insert did not move currency: the record inserted last is still current.
  EXPECT_EQ(PhysicalPosition(f), second);
  // An update onto another record's unique key fails the same way and changes nothing.
  ASSERT_TRUE(GetFileLowest(f, 0, r.size(), r.data(), 0));
  r.Put<int32_t>(0, 2).Put<int32_t>(4, 11);
  EXPECT_FALSE(UpdateFile(f, r.size(), r.data(), 0));
  EXPECT_EQ(GetErrorCode(f), kStatusDuplicateKey);
  ASSERT_TRUE(GetFileLowest(f, 0, r.size(), r.data(), 0));
  EXPECT_EQ(r.Get<int32_t>(0), 1);
  EXPECT_EQ(r.Get<int32_t>(4), 10);
  // A segmented unique key is unique over all its segments together.
  SpecBuilder spec2(8);
  spec2.Key({{1, 4, kExtInteger}, {5, 4, kExtInteger}});
  BtrvFile* g = CreateAndOpen(spec2.get(), "UNIQ2.DAT");
  Rec a(8);
  a.Put<int32_t>(0, 1).Put<int32_t>(4, 1);
  ASSERT_TRUE(InsertRecord(g, a.size(), a.data()));
  a.Put<int32_t>(4, 2);
  ASSERT_TRUE(InsertRecord(g, a.size(), a.data()));
  EXPECT_FALSE(InsertRecord(g, a.size(), a.data()));
  EXPECT_EQ(GetErrorCode(g), kStatusDuplicateKey);
  Close(g);
  Close(f);
}

TEST_P(KeyTest, AutoIncrementFillsZeroWithHighestPlusOne) {
  SpecBuilder spec(12);
  spec.Key({{1, 4, kExtAutoIncrement}}).Key({{5, 2, kExtAutoIncrement}}, kKeyDuplicates);
  BtrvFile* f = CreateAndOpen(spec.get(), "AUTO.DAT");
  auto insert = [&](int32_t n, int16_t m) {
    Rec r(12);
    r.Put<int32_t>(0, n).Put<int16_t>(4, m);
    EXPECT_TRUE(InsertRecord(f, r.size(), r.data())) << GetErrorCode(f);
    return std::make_pair(r.Get<int32_t>(0), r.Get<int16_t>(4));
  };
  EXPECT_EQ(insert(0, 0), std::make_pair(1, int16_t{1}));
  EXPECT_EQ(insert(0, 5), std::make_pair(2, int16_t{5}));
  EXPECT_EQ(insert(10, 0), std::make_pair(10, int16_t{6}));
  EXPECT_EQ(insert(0, -4), std::make_pair(11, int16_t{-4}));
  EXPECT_EQ(insert(0, 0), std::make_pair(12, int16_t{7}));
  // A value given twice on the unique key is refused, not renumbered.
  Rec dup(12);
  dup.Put<int32_t>(0, 10);
  EXPECT_FALSE(InsertRecord(f, dup.size(), dup.data()));
  EXPECT_EQ(GetErrorCode(f), kStatusDuplicateKey);
  // Numbers are values, not positions: once the highest is deleted, the next insert gets
  // the highest left + 1.
  Rec r(12);
  ASSERT_TRUE(GetFileHighest(f, 0, r.size(), r.data(), 0));
  ASSERT_TRUE(DeleteRecord(f, r.size(), r.data()));
  EXPECT_EQ(insert(0, 1).first, 12);
  Close(f);
}

TEST_P(KeyTest, ManualKeyNumbersAndInvalidKeys) {
  // Keys 0, 4 and 6 only, as the customer file has them.
  SpecBuilder spec(12);
  spec.Key({{1, 4, kExtInteger}}, 0, 0)
      .Key({{5, 4, kExtInteger}}, kKeyDuplicates, 4)
      .Key({{9, 4, kExtInteger}}, kKeyDuplicates, 6);
  BtrvFile* f = CreateAndOpen(spec.get(), "CUST.DAT");
  for (int32_t i = 1; i <= 3; ++i) {
    Rec r(12);
    r.Put<int32_t>(0, i).Put<int32_t>(4, 10 - i).Put<int32_t>(8, i * 100);
    ASSERT_TRUE(InsertRecord(f, r.size(), r.data()));
  }
  EXPECT_EQ(Walk<int32_t>(f, 4, 12, 0), (std::vector<int32_t>{3, 2, 1}));
  EXPECT_EQ(Walk<int32_t>(f, 6, 12, 0), (std::vector<int32_t>{1, 2, 3}));
  Rec r(12);
  for (int16_t bad : {1, 5, 7, -1, 200}) {
    EXPECT_FALSE(GetFileLowest(f, 0, r.size(), r.data(), bad)) << bad;
    EXPECT_EQ(GetErrorCode(f), kStatusInvalidKeyNumber) << bad;
  }
  EXPECT_FALSE(InsertRecordByKey(f, r.size(), r.data(), 3));
  EXPECT_EQ(GetErrorCode(f), kStatusInvalidKeyNumber);
  Close(f);
}

TEST_P(KeyTest, DescriptionsThatCannotBeMadeAreRefused) {
  auto refused = [&](const FileSpec& spec) {
    int made = ZORCreateFile(&spec, 0, Path("BAD.DAT").c_str());
    uint16_t status = GetErrorCode(nullptr);
    if (made) ZORDeleteFile(Path("BAD.DAT").c_str());
    return !made && status == kStatusBadFileSpec;
  };
  EXPECT_TRUE(refused(SpecBuilder(0).spec()));
  EXPECT_TRUE(refused(SpecBuilder(8).Key({{6, 4, kExtInteger}}).spec()));  // past the end
  EXPECT_TRUE(refused(SpecBuilder(8).Key({{0, 4, kExtInteger}}).spec()));  // position 0
  EXPECT_TRUE(refused(SpecBuilder(8).Key({{1, 3, kExtInteger}}).spec()));  // no 3-byte ints
  EXPECT_TRUE(refused(SpecBuilder(8).Key({{1, 2, kExtFloat}}).spec()));
  EXPECT_TRUE(refused(SpecBuilder(8).Key({{1, 8, kExtDate}}).spec()));
  EXPECT_TRUE(refused(SpecBuilder(8).Key({{1, 4, 9}}).spec()));  // unknown type
  EXPECT_TRUE(refused(SpecBuilder(8).Key({{1, 0, kExtString}}).spec()));
  // An auto-increment field anywhere but first in its key.
  EXPECT_TRUE(refused(SpecBuilder(8).Key({{1, 4, kExtInteger}, {5, 4, kExtAutoIncrement}}).spec()));
  // The last segment says another follows.
  SpecBuilder open_ended(8);
  open_ended.Key({{1, 4, kExtInteger}});
  open_ended.spec().segments[0].flags |= kKeySegmented;
  EXPECT_TRUE(refused(open_ended.spec()));
  // Two keys with one number.
  EXPECT_TRUE(refused(
      SpecBuilder(8).Key({{1, 4, kExtInteger}}, 0, 2).Key({{5, 4, kExtInteger}}, 0, 2).spec()));
  // A type without the extended-type flag.
  SpecBuilder no_flag(8);
  no_flag.Key({{1, 4, kNoExt}});
  no_flag.spec().segments[0].extendedType = kExtInteger;
  EXPECT_TRUE(refused(no_flag.spec()));
  EXPECT_FALSE(ZORCreateFile(nullptr, 0, Path("BAD.DAT").c_str()));
  EXPECT_EQ(GetErrorCode(nullptr), kStatusBadFileSpec);
  // The temporary sort file's description is fine (binary date segment, flags 259).
  SpecBuilder sort(389);
  sort.Key(
      {{1, 16, kExtZString}, {87, 4, kNoExt, kKeyBinary}, {21, 4, kExtUnsignedBinary, kKeyBinary}},
      kKeyDuplicates);
  EXPECT_EQ(ZORCreateFile(sort.get(), 259, Path("JRST0001.TMP").c_str()), 1);
}

INSTANTIATE_TEST_SUITE_P(Backends, KeyTest, ::testing::ValuesIn(AllBackends()), BackendName);

}  // namespace
}  // namespace rmtest
