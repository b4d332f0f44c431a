// Record caches on a real company: every named cache reads its own file and answers by
// number, ID, GUID and position; cached answers outlive changes to the file until Clear;
// number 0 never reaches the file; copies share one cache.
#include <cstring>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"
#include "master_records.h"

namespace {

using master_records::Add;
using master_records::IdOf;

// The record and key types of a named cache.
template <template <typename, typename> class Cache, typename T, typename K>
std::pair<T, K> Parts(const Cache<T, K>&);

template <typename K>
K Key(const char* text) {
  K key{};
  key = text;
  return key;
}

class CacheTest : public CompanyTest {
 protected:
  void CloseLibraryFiles() override {
    CloseInternalChartFile();
    CloseInternalCustFile();
    CloseInternalVendFile();
    CloseInternalEmpFile();
    CloseInternalItemFile();
    CloseInternalProjFile();
  }
};

template <typename Cache>
class EveryCacheTest : public CacheTest {};
using Caches =
    ::testing::Types<CRecordCacheAccount, CRecordCacheCustomer, CRecordCacheVendor,
                     CRecordCacheEmployee, CRecordCacheLineItem, CRecordCacheProject,
                     CRecordIDCacheAccount, CRecordIDCacheCustomer, CRecordIDCacheVendor,
                     CRecordIDCacheEmployee, CRecordIDCacheLineItem, CRecordIDCacheProject>;
TYPED_TEST_SUITE(EveryCacheTest, Caches);

TYPED_TEST(EveryCacheTest, AnswersFromItsOwnFile) {
  using Record = decltype(Parts(std::declval<TypeParam>()).first);
  using K = decltype(Parts(std::declval<TypeParam>()).second);
  Add<Record>("M-1");
  const Record second = Add<Record>("M-2");
  Add<Record>("M-3");
  TypeParam cache;

  EXPECT_EQ(cache.GetRecordNumber(Key<K>("M-2")), 2);
  EXPECT_EQ(cache.GetRecordNumber(Key<K>("NOSUCH")), 0);
  K id = Key<K>("stale");
  EXPECT_TRUE(cache.GetID(3, id));
  EXPECT_STREQ(id, "M-3");
  GUID guid{};
  EXPECT_TRUE(cache.GetGUID(2, guid));
  EXPECT_EQ(std::memcmp(&guid, &second.Guid, sizeof guid), 0);
  Record record;
  EXPECT_TRUE(cache.GetRecord(1, &record));
  EXPECT_STREQ(IdOf(record).text, "M-1");

  // Unknown numbers: the ID is cleared, a GUID loses only its first 4 bytes.
  EXPECT_FALSE(cache.GetID(9, id));
  EXPECT_STREQ(id, "");
  std::memset(&guid, 0xAB, sizeof guid);
  EXPECT_FALSE(cache.GetGUID(9, guid));
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&guid);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(bytes[i], i < 4 ? 0 : 0xAB) << "byte " << i;

  // Number 0 never reaches the file.
  const uint64_t calls = StoreCallCount();
  EXPECT_FALSE(cache.GetID(0, id));
  EXPECT_FALSE(cache.GetGUID(0, guid));
  std::memset(&record, 0x5A, sizeof record);
  EXPECT_FALSE(cache.GetRecord(0, &record));
  EXPECT_EQ(+record.RecordNumber, 0);
  EXPECT_EQ(cache.GetRecordNumber(K{}), 0);
  EXPECT_EQ(StoreCallCount(), calls);

  // Positioned reads walk the file by the caller's key on the cache's own handle.
  const size_t handles = OpenHandleCount();
  std::memset(&record, 0, sizeof record);
  ASSERT_TRUE(cache.GetFirst(&record, 0));
  EXPECT_STREQ(IdOf(record).text, "M-1");
  EXPECT_EQ(OpenHandleCount(), handles + 1);
  ASSERT_TRUE(cache.GetNext(&record, 0));
  EXPECT_STREQ(IdOf(record).text, "M-2");
  std::memset(&record, 0, sizeof record);
  sstrcpy(IdOf(record).text, "M-25", IdOf(record).capacity);
  ASSERT_TRUE(cache.GetGE(&record, 0));
  EXPECT_STREQ(IdOf(record).text, "M-3");
  EXPECT_FALSE(cache.GetNext(&record, 0));
  cache.Clear();
  EXPECT_EQ(OpenHandleCount(), handles);
}

class RecordCacheTest : public CacheTest {
 protected:
  void SetUp() override {
    CacheTest::SetUp();
    Add<CustomerRecord>("ALDRED", [](CustomerRecord& r) { r.Name = "Aldred Hardware"; });
    Add<CustomerRecord>("BAYVIEW", [](CustomerRecord& r) { r.Name = "Bayview Garden"; });
  }
  static void RenameBoth() {
    master_records::RenameCustomer(1, "ALDRED2", "Renamed");
    master_records::RenameCustomer(2, "BAYVIEW2", "Renamed");
  }
  const FixedString<21> aldred_ = Key<FixedString<21>>("ALDRED");
};

TEST_F(RecordCacheTest, EveryRecordReadStaysUntilClear) {
  CRecordCacheCustomer cache;
  CustomerRecord record;
  ASSERT_TRUE(cache.GetRecord(1, &record));
  ASSERT_EQ(cache.GetRecordNumber(Key<FixedString<21>>("BAYVIEW")), 2);
  RenameBoth();
  const uint64_t calls = StoreCallCount();
  FixedString<21> id{};
  EXPECT_TRUE(cache.GetID(1, id) && cache.GetRecord(2, &record));
  EXPECT_STREQ(id, "ALDRED");
  EXPECT_STREQ(record.Name, "Bayview Garden");
  EXPECT_EQ(cache.GetRecordNumber(aldred_), 1);
  EXPECT_EQ(StoreCallCount(), calls);  // all from memory

  // A copy shares the cache: clearing it clears both, and it may go first.
  CRecordCacheCustomer(cache).Clear();
  EXPECT_TRUE(cache.GetRecord(1, &record));
  EXPECT_STREQ(record.ID, "ALDRED2");
  EXPECT_EQ(cache.GetRecordNumber(aldred_), 0);
}

TEST_F(RecordCacheTest, IdCacheKeepsIdsAndOnlyTheLastRecord) {
  CRecordIDCacheCustomer cache;
  FixedString<21> id{};
  ASSERT_TRUE(cache.GetID(1, id));
  ASSERT_EQ(cache.GetRecordNumber(Key<FixedString<21>>("BAYVIEW")), 2);  // the last read
  RenameBoth();
  EXPECT_TRUE(cache.GetID(1, id));
  EXPECT_STREQ(id, "ALDRED");
  EXPECT_EQ(cache.GetRecordNumber(aldred_), 1);
  CustomerRecord record;
  for (const auto& [number, name] :
       {std::pair{2, "Bayview Garden"}, std::pair{1, "Renamed"}, std::pair{2, "Bayview Garden"}}) {
    EXPECT_TRUE(cache.GetRecord(number, &record));
    EXPECT_STREQ(record.Name, name) << number;  // record 1 is read afresh, and not kept
  }
  // A positioned read replaces the last record but not the IDs.
  std::memset(&record, 0, sizeof record);
  ASSERT_TRUE(cache.GetFirst(&record, kCustKeyID));
  EXPECT_TRUE(cache.GetID(2, id));
  EXPECT_STREQ(id, "BAYVIEW");
  EXPECT_TRUE(cache.GetRecord(2, &record));
  EXPECT_STREQ(record.Name, "Renamed");

  cache.Clear();
  EXPECT_TRUE(cache.GetID(2, id));
  EXPECT_STREQ(id, "BAYVIEW2");
  EXPECT_EQ(cache.GetRecordNumber(aldred_), 0);
}

}  // namespace
