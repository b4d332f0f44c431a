// Key ordering, manual key numbers, duplicates, unique keys, auto-increment, key-only reads
// and the checks made on creation descriptions.
#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "record_manager_test_support.h"
#include "zor_types.h"

namespace rmtest {
namespace {

class KeyTest : public RecordManagerTest {
 protected:
  // The s32 tag at off of every record of f_ along key, lowest first (or highest first).
  Ints Walk(int16_t key, size_t len, size_t off, bool backwards = false) {
    Ints out;
    Rec r(len);
    auto first = backwards ? GetFileHighest : GetFileLowest;
    auto step = backwards ? GetFilePrevious : GetFileNext;
    while ((out.empty() ? first : step)(f_, 0, r.size(), r.data(), key))
      out.push_back(r.Get<int32_t>(off));
    EXPECT_EQ(GetErrorCode(f_), kStatusEndOfFile);
    return out;
  }
};

TEST_P(KeyTest, NumbersAndDatesOrderByValue) {
  // Keys numbered 0, 2 ... 16 by hand on s8, s16, s32, s64, u32 (extended type; binary
  // flag), double, float and date fields at 0, 1, 3, 7, 15, 19, 23, 31, 35; a tag at 39.
  SpecBuilder spec(43);
  int n = 0;
  for (Seg s :
       {Seg{1, 1, kExtInteger}, Seg{2, 2, kExtInteger}, Seg{4, 4, kExtInteger},
        Seg{8, 8, kExtInteger}, Seg{16, 4, kExtUnsignedBinary}, Seg{20, 4, kNoExt, kKeyBinary},
        Seg{24, 8, kExtFloat}, Seg{32, 4, kExtFloat}, Seg{36, 4, kExtDate}})
    spec.Key({s}, kKeyDuplicates, 2 * n++);
  f_ = CreateAndOpen(spec.get(), "NUMS.DAT");
  const std::tuple<int64_t, uint32_t, double, DatesType> rows[] = {
      {5, 0xFFFFFFFF, 2.25, {1, 1, 2024}},    {-3, 1, -1.5, {31, 12, 2023}},
      {0, 256, 0.0, {15, 6, 2023}},           {127, 65536, 1e-300, {2, 1, 2024}},
      {-128, 0, -1e300, {1, 2, 2024}},        {1, 0x80000000, 1e300, {28, 2, 1999}},
      {-1, 0x7FFFFFFF, -0.001, {1, 1, 2000}}, {100, 2, 7.0, {30, 1, 2023}}};
  for (int32_t t = 0; t < 8; ++t) {
    const auto [i, u, d, date] = rows[t];
    Rec r(43);
    r.Put<int8_t>(0, int8_t(i)).Put<int16_t>(1, int16_t(i * 200));
    r.Put<int32_t>(3, int32_t(i * 16000000)).Put<int64_t>(7, i * 70000000000LL);
    r.Put(15, u).Put(19, u).Put(23, d).Put(31, float(std::fabs(d) > 1e30 ? d / 1e270 : d));
    ASSERT_TRUE(InsertRecord(f_, r.size(), r.Put(35, date).Put(39, t).data()));
  }
  for (int16_t key : {0, 2, 4, 6}) EXPECT_EQ(Walk(key, 43, 39), (Ints{4, 1, 6, 2, 5, 0, 7, 3}));
  EXPECT_EQ(Walk(4, 43, 39, /*backwards=*/true), (Ints{3, 7, 0, 5, 2, 6, 1, 4}));
  for (int16_t key : {8, 10}) EXPECT_EQ(Walk(key, 43, 39), (Ints{4, 1, 7, 2, 3, 6, 5, 0}));
  // 1e-300 is 0 as a float: the tie keeps insertion order.
  for (int16_t key : {12, 14}) EXPECT_EQ(Walk(key, 43, 39), (Ints{4, 1, 6, 2, 3, 0, 7, 5}));
  // Day-first storage would sort 1 January 2024 before 31 December 2023.
  EXPECT_EQ(Walk(16, 43, 39), (Ints{5, 6, 7, 2, 1, 0, 3, 4}));
  Rec r(43);  // -0.0 finds the record stored with +0.0; keys not made answer 6
  EXPECT_EQ((Ints{GetFileEqual(f_, 0, r.size(), r.Put(23, -0.0).data(), 12), r.Get<int32_t>(39)}),
            (Ints{1, 2}));
  for (int16_t bad : {1, 3, 18, -1, 200})
    EXPECT_EQ(Why(GetFileLowest(f_, 0, r.size(), r.data(), bad), f_), kStatusInvalidKeyNumber);
  EXPECT_EQ(Why(InsertRecordByKey(f_, r.size(), r.data(), 3), f_), kStatusInvalidKeyNumber);
}

TEST_P(KeyTest, ZeroTerminatedStringsIgnoreBytesAfterTheTerminator) {
  f_ = CreateAndOpen(SpecBuilder(12).Key({{1, 8, kExtZString}}, kKeyDuplicates).get(), "ZSTR.DAT");
  // Garbage after the terminator (1), a field filled without a terminator (4).
  const char* fields[] = {"abd\0\0\0\0\0", "abc\0xyzw", "ab\0\0\0\0\0\0", "abc\0\0\0\0\0",
                          "abcdefgh"};
  for (int32_t t = 0; t < 5; ++t) {
    Rec r(12);
    std::memcpy(r.b.data(), fields[t], 8);
    ASSERT_TRUE(InsertRecord(f_, r.size(), r.Put<int32_t>(8, t).data()));
  }
  EXPECT_EQ(Walk(0, 12, 8), (Ints{2, 1, 3, 4, 0}));
  Rec probe(12);  // "abc" followed by other garbage finds the first "abc"
  std::memcpy(probe.b.data(), "abc\0qqqq", 8);
  EXPECT_EQ((Ints{GetFileEqual(f_, 0, probe.size(), probe.data(), 0), probe.Get<int32_t>(8)}),
            (Ints{1, 1}));
}

TEST_P(KeyTest, DescendingAndCaseInsensitiveSegments) {
  // Tag at 0 (s32, descending), the name at 4 (no case) and at 14 (zero-terminated,
  // descending).
  f_ = CreateAndOpen(SpecBuilder(24)
                         .Key({{1, 4, kExtInteger, kKeyDescending}}, kKeyDuplicates)
                         .Key({{5, 10, kExtString, kKeyNoCase}}, kKeyDuplicates)
                         .Key({{15, 10, kExtZString, kKeyDescending}}, kKeyDuplicates)
                         .get(),
                     "DESC.DAT");
  int32_t tag = -2;
  for (const char* name : {"cherry", "Banana", "apple", "BANANA2", "Date"}) {
    Rec r(24);
    ASSERT_TRUE(
        InsertRecord(f_, r.size(), r.Put(0, tag++).Text(4, name, 10).Text(14, name, 10).data()));
  }
  EXPECT_EQ(Walk(0, 24, 0), (Ints{2, 1, 0, -1, -2}));
  EXPECT_EQ(Walk(1, 24, 0), (Ints{0, -1, 1, -2, 2}));  // apple Banana BANANA2 cherry Date
  // Descending bytes put lower case above capitals: cherry apple Date Banana BANANA2.
  EXPECT_EQ(Walk(2, 24, 0), (Ints{-2, 0, 2, -1, 1}));
  // A search ignores case (BANANA finds Banana, tag -1); a key-only read answers the key
  // as stored.
  Rec probe(24);
  char key[10] = "CHERRY";
  EXPECT_EQ((Ints{GetFileEqual(f_, 0, probe.size(), probe.Text(4, "BANANA", 10).data(), 1),
                  probe.Get<int32_t>(0), GetFileEqual(f_, kLockBiasKeyOnly, sizeof key, key, 1)}),
            (Ints{1, -1, 1}));
  EXPECT_STREQ(key, "cherry");
}

TEST_P(KeyTest, SegmentedKeyOrdersByEachSegmentInTurn) {
  // The journal row file's key 2: account (s32), date, post order number (u32); tag at 12.
  f_ = CreateAndOpen(
      SpecBuilder(16)
          .Key({{1, 4, kExtInteger}, {5, 4, kExtDate}, {9, 4, kExtUnsignedBinary}}, kKeyDuplicates)
          .get(),
      "SEG.DAT");
  const std::tuple<int32_t, DatesType, uint32_t> rows[] = {
      {2, {1, 1, 2024}, 7}, {-1, {5, 5, 2025}, 1}, {2, {31, 12, 2023}, 9},
      {2, {1, 1, 2024}, 3}, {10, {1, 1, 1990}, 0}, {2, {1, 1, 2024}, 0xF0000000u}};
  for (int32_t t = 0; t < 6; ++t) {
    Rec r(16);
    const auto [account, date, post] = rows[t];
    ASSERT_TRUE(
        InsertRecord(f_, r.size(), r.Put(0, account).Put(4, date).Put(8, post).Put(12, t).data()));
  }
  EXPECT_EQ(Walk(0, 16, 12), (Ints{1, 2, 3, 0, 5, 4}));
  // GE with a partial value (account 2 from 1 January 2024 on) finds tag 3; the key-only
  // form takes the key's fields one after another, in a buffer of the key's length only.
  Rec probe(16), key(12);
  key.Put(0, -1).Put(4, DatesType{5, 5, 2025}).Put(8, 1u);  // tag 1's
  EXPECT_EQ(
      (Ints{GetFileGE(f_, 0, probe.size(), probe.Put(0, 2).Put(4, DatesType{1, 1, 2024}).data(), 0),
            probe.Get<int32_t>(12), GetFileEqual(f_, kLockBiasKeyOnly, 12, key.data(), 0),
            Why(GetFileEqual(f_, kLockBiasKeyOnly, 16, key.data(), 0), f_)}),
      (Ints{1, 3, 1, 22}));
}

TEST_P(KeyTest, DuplicatesKeepInsertionOrderAndUniqueKeysRefuseRepeats) {
  // Key 0, at 0, takes duplicates (3 and 7 in turn); key 1, the tag at 4, is unique.
  f_ = CreateAndOpen(SpecBuilder(8)
                         .Key({{1, 4, kExtInteger}}, kKeyDuplicates | kKeyModifiable)
                         .Key({{5, 4, kExtInteger}}, kKeyModifiable)
                         .get(),
                     "DUPS.DAT");
  Rec r(8);
  auto insert = [&](int32_t key, int32_t tag) {
    return Why(InsertRecord(f_, r.size(), r.Put(0, key).Put(4, tag).data()), f_);
  };
  for (int32_t i = 0; i < 6; ++i) ASSERT_EQ(insert(i % 2 ? 7 : 3, i), kStatusOk);
  EXPECT_EQ(Walk(0, 8, 4), (Ints{0, 2, 4, 1, 3, 5}));
  EXPECT_EQ(Walk(0, 8, 4, true), (Ints{5, 3, 1, 4, 2, 0}));
  // Equal and Greater find the first duplicate; Less and LE the last below / at the key.
  auto find = [&](auto read, int32_t key) {
    return read(f_, 0, r.size(), r.Put(0, key).data(), 0) ? r.Get<int32_t>(4) : -1;
  };
  EXPECT_EQ((Ints{find(GetFileEqual, 7), find(GetFileLess, 7), find(GetFileLE, 7),
                  find(GetFileGreater, 3)}),
            (Ints{1, 4, 5, 1}));
  // A repeated unique key is refused (5) and moves no currency; so is an update onto one,
  // which changes nothing.
  const int32_t current = PhysicalPosition(f_);
  EXPECT_EQ((Ints{insert(3, 4), NumRecsInFile(f_), PhysicalPosition(f_)}), (Ints{5, 6, current}));
  ASSERT_TRUE(GetFileLowest(f_, 0, r.size(), r.data(), 0));
  EXPECT_EQ(
      (Ints{Why(UpdateFile(f_, r.size(), r.Put(0, 9).Put(4, 5).data(), 0), f_),
            GetFileLowest(f_, 0, r.size(), r.data(), 0), r.Get<int32_t>(0), r.Get<int32_t>(4)}),
      (Ints{5, 1, 3, 0}));
}

TEST_P(KeyTest, AutoIncrementFillsZeroWithHighestPlusOne) {
  f_ = CreateAndOpen(SpecBuilder(12)
                         .Key({{1, 4, kExtAutoIncrement}})
                         .Key({{5, 2, kExtAutoIncrement}}, kKeyDuplicates)
                         .get(),
                     "AUTO.DAT");
  // Inserts n and m; answers them as written back.
  auto insert = [&](int32_t n, int16_t m) {
    Rec r(12);
    EXPECT_EQ(Why(InsertRecord(f_, r.size(), r.Put(0, n).Put(4, m).data()), f_), kStatusOk);
    return std::pair<int, int>(r.Get<int32_t>(0), r.Get<int16_t>(4));
  };
  EXPECT_EQ((std::vector{insert(0, 0), insert(0, 5), insert(10, 0), insert(0, -4), insert(0, 0)}),
            (std::vector<std::pair<int, int>>{{1, 1}, {2, 5}, {10, 6}, {11, -4}, {12, 7}}));
  // A value given twice on the unique key is refused, not renumbered.
  Rec r(12);
  EXPECT_EQ(Why(InsertRecord(f_, r.size(), r.Put<int32_t>(0, 10).data()), f_), kStatusDuplicateKey);
  // Numbers are values, not positions: with the highest deleted, the next is the highest
  // left + 1.
  ASSERT_TRUE(GetFileHighest(f_, 0, r.size(), r.data(), 0) && DeleteRecord(f_, 0, nullptr));
  EXPECT_EQ(insert(0, 1).first, 12);
}

TEST_P(KeyTest, DescriptionsThatCannotBeMadeAreRefused) {
  SpecBuilder open_ended(8), no_flag(8);
  open_ended.Key({{1, 4, kExtInteger}}).spec.segments[0].flags |= kKeySegmented;
  no_flag.Key({{1, 4, kNoExt}}).spec.segments[0].extendedType = kExtInteger;
  // No record; a segment past the end, at position 0; a 3-byte integer, 2-byte float,
  // unknown type 9; auto-increment not first in its key; two keys with one number; the
  // last segment saying another follows; a type without the extended-type flag.
  int i = 0;
  for (const SpecBuilder& bad :
       {SpecBuilder(0), SpecBuilder(8).Key({{6, 4, kExtInteger}}),
        SpecBuilder(8).Key({{0, 4, kExtInteger}}), SpecBuilder(8).Key({{1, 3, kExtInteger}}),
        SpecBuilder(8).Key({{1, 2, kExtFloat}}), SpecBuilder(8).Key({{1, 4, 9}}),
        SpecBuilder(8).Key({{1, 4, kExtInteger}, {5, 4, kExtAutoIncrement}}),
        SpecBuilder(8).Key({{1, 4, kExtInteger}}, 0, 2).Key({{5, 4, kExtInteger}}, 0, 2),
        open_ended, no_flag}) {
    EXPECT_EQ(Create(bad.get(), "BAD.DAT"), kStatusBadFileSpec) << i++;
  }
  EXPECT_EQ((Ints{ZORCreateFile(nullptr, 0, Path("BAD.DAT").c_str()), GetErrorCode(nullptr)}),
            (Ints{0, 25}));
}

INSTANTIATE_TEST_SUITE_P(Backends, KeyTest, ::testing::ValuesIn(AllBackends()), BackendName);

}  // namespace
}  // namespace rmtest
