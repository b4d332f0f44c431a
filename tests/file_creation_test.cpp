// The key catalogue: every file of a company is made with the key numbers its layout
// names, orders the way the lookups and the journal engine rely on, and a company is
// created whole or not at all.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"
#include "temp_dir.h"

namespace {

class FileCreationTest : public CompanyTest {};

struct FileKeys {
  const char* name;
  const char* owner;
  uint16_t record_length;
  std::vector<int16_t> keys;
};

std::vector<FileKeys> Catalogue() {
  const char* own = csTheOwner.c_str();
  const char* std_owner = csStdTheOwner.c_str();
  return {
      {GeneralFileName, own, kGeneralRecordLength, {0}},
      {ChartName, own, kChartRecordLength, {0, 1, 3, 5}},
      {CustomerName, own, kCustomerRecordLength, {0, 4, 6}},
      {VendorName, own, kVendorRecordLength, {0, 5, 7}},
      {LineItemName, own, kLineItemRecordLength, {0, 2, 5, 6, 10, 13}},
      {EmpFileName, own, kEmployeeRecordLength, {0, 4, 5}},
      {JrnlHdrFileName, own, kJrnlHdrRecordLength, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14}},
      {JrnlRowFileName, own, kJrnlRowRecordLength, {0, 1, 2, 3, 4, 5, 6, 7}},
      {"PROJECT.DAT", own, kProjectRecordLength, {0, 1, 5}},
      {"PHASE.DAT", own, kPhaseRecordLength, {0, 1}},
      {"COST.DAT", own, kCostRecordLength, {0, 1}},
      {"JOBEST.DAT", std_owner, kJobEstRecordLength, {0}},
      {InvTagName, own, kInvTagRecordLength, {0, 1}},
      {InvLFName, own, kInvCostRecordLength, {0}},
      {RecptTagName, own, kRecptTagRecordLength, {1, 2, 3}},
      {EventLogFileName, own, kEventLogRecordLength, {0, 1, 3}},
      {AuditTrailName, own, kAuditTrailRecordLength, {0, 1, 2}},
      {TaxAuthorityName, std_owner, kTaxAuthorityRecordLength, {0}},
      {RaiseHistoryFileName, own, kRaiseHistoryRecordLength, {0}},
  };
}

TEST_F(FileCreationTest, EveryFileHasTheKeysItsLayoutNamesAndNoOthers) {
  for (const FileKeys& f : Catalogue()) {
    SCOPED_TRACE(f.name);
    BtrvFile* file = nullptr;
    ASSERT_NE(RealOpenBFileOwner(&file, f.name, kOpenModeNormal, 0, f.owner, __FILE__, __LINE__),
              0);
    std::vector<char> buffer(f.record_length);
    for (int16_t key = 0; key <= 15; ++key) {
      bool named = std::find(f.keys.begin(), f.keys.end(), key) != f.keys.end();
      EXPECT_EQ(GetFileLowest(file, kLockBiasNone, f.record_length, buffer.data(), key), 0);
      EXPECT_EQ(GetErrorCode(file), named ? kStatusEndOfFile : kStatusInvalidKeyNumber)
          << "key " << key;
    }
    RealCloseFile(&file, __FILE__, __LINE__);
  }
}

TEST_F(FileCreationTest, OwnerNamesGuardTheFiles) {
  BtrvFile* file = nullptr;
  // The tax-authority and estimate files belong to the standard owner.
  EXPECT_EQ(RealOpenBFileOwner(&file, TaxAuthorityName, kOpenModeNormal, 17, csTheOwner, __FILE__,
                               __LINE__),
            0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusBadOwner);
  EXPECT_EQ(file, nullptr);
  EXPECT_EQ(RealOpenBFile(&file, ChartName, kOpenModeNormal, 2, __FILE__, __LINE__), 0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusBadOwner);
  // A read-only open may omit the owner.
  ASSERT_NE(RealOpenBFile(&file, ChartName, kOpenModeReadOnly, 2, __FILE__, __LINE__), 0);
  RealCloseFile(&file, __FILE__, __LINE__);
}

// Writes a journal header with only its transaction key and post order set.
bool InsertHeader(BtrvFile* file, int16_t journal, uint16_t period, int32_t number,
                  uint32_t post_order, uint8_t shadow = 0) {
  std::vector<uint8_t> header(kJrnlHdrRecordLength, 0);
  std::memcpy(&header[1], &number, 4);
  std::memcpy(&header[5], &period, 2);
  std::memcpy(&header[7], &journal, 2);
  header[9] = shadow;
  std::memcpy(&header[35], &post_order, 4);
  GUID guid;
  AssignGUID(guid);
  std::memcpy(&header[19], &guid, sizeof guid);
  return InsertRecord(file, kJrnlHdrRecordLength, header.data()) != 0;
}

TEST_F(FileCreationTest, TransactionKeyKeepsEachJournalAndPeriodTogether) {
  BtrvFile* file = nullptr;
  ASSERT_NE(OpenJrnlHdrFile(&file, kOpenModeNormal), 0);
  uint32_t post_order = 1;
  ASSERT_TRUE(InsertHeader(file, 3, 17, 40, post_order++));
  ASSERT_TRUE(InsertHeader(file, 3, 17, 7, post_order++));
  ASSERT_TRUE(InsertHeader(file, 3, 18, 900, post_order++));    // a later period
  ASSERT_TRUE(InsertHeader(file, 4, 17, 500, post_order++));    // another journal
  ASSERT_TRUE(InsertHeader(file, 3, 17, 40, post_order++, 2));  // a shadow of number 40
  // The same journal, period, number and shadow byte cannot be stored twice.
  EXPECT_FALSE(InsertHeader(file, 3, 17, 7, post_order++));
  EXPECT_EQ(GetErrorCode(file), kStatusDuplicateKey);

  // The last key below (sales, period 17, number 0x7FFFFFFF) is that period's highest
  // sale, not the highest number of the whole file: next-number searches rely on it.
  std::vector<uint8_t> key(kJrnlHdrRecordLength, 0);
  int16_t journal = 3;
  uint16_t period = 17;
  int32_t top = 0x7FFFFFFF;
  std::memcpy(&key[1], &top, 4);
  std::memcpy(&key[5], &period, 2);
  std::memcpy(&key[7], &journal, 2);
  ASSERT_NE(GetFileLess(file, kLockBiasNone, kJrnlHdrRecordLength, key.data(), 0), 0);
  int32_t found = 0;
  std::memcpy(&found, &key[1], 4);
  EXPECT_EQ(found, 40);
  EXPECT_EQ(key[9], 2);  // the shadow sorts after its transaction
  RealCloseFile(&file, __FILE__, __LINE__);
}

TEST_F(FileCreationTest, RowKeysOrderByAccountDateAndPostOrderAndRefuseRepeatedGuids) {
  BtrvFile* file = nullptr;
  ASSERT_NE(OpenJrnlRowFile(&file, kOpenModeNormal), 0);
  struct Row {
    int32_t account;
    DatesType date;
    uint32_t post_order;
  };
  const Row rows[] = {
      {7, {3, 1, 2026}, 12}, {7, {1, 2, 2025}, 30}, {-2, {5, 5, 2026}, 1}, {7, {3, 1, 2026}, 4}};
  std::vector<GUID> guids;
  for (const Row& r : rows) {
    std::vector<uint8_t> row(kJrnlRowRecordLength, 0);
    std::memcpy(&row[0], &r.account, 4);
    std::memcpy(&row[4], &r.post_order, 4);
    std::memcpy(&row[70], &r.date, 4);
    GUID guid;
    AssignGUID(guid);
    guids.push_back(guid);
    std::memcpy(&row[318], &guid, 16);
    ASSERT_NE(InsertRecord(file, kJrnlRowRecordLength, row.data()), 0);
  }
  std::vector<uint32_t> order;
  std::vector<uint8_t> row(kJrnlRowRecordLength, 0);
  for (uint8_t ok = GetFileLowest(file, kLockBiasNone, kJrnlRowRecordLength, row.data(), 2); ok;
       ok = GetFileNext(file, kLockBiasNone, kJrnlRowRecordLength, row.data(), 2)) {
    uint32_t post_order;
    std::memcpy(&post_order, &row[4], 4);
    order.push_back(post_order);
  }
  EXPECT_EQ(order, (std::vector<uint32_t>{1, 30, 4, 12}));

  // A row GUID is unique: the store answers duplicate key so the writer can renumber.
  std::vector<uint8_t> copy(kJrnlRowRecordLength, 0);
  std::memcpy(&copy[318], &guids[2], 16);
  EXPECT_EQ(InsertRecord(file, kJrnlRowRecordLength, copy.data()), 0);
  EXPECT_EQ(GetErrorCode(file), kStatusDuplicateKey);
  RealCloseFile(&file, __FILE__, __LINE__);
}

TEST(SortFileTest, OrdersByAccountIdThenDateThenPostOrder) {
  TempDir dir;
  const std::string name = dir.File("JRST0001.TMP");
  ASSERT_EQ(CreateNewSortFile(name.c_str()), 1);
  BtrvFile* file = nullptr;
  ASSERT_NE(RealOpenBFile(&file, name.c_str(), kOpenModeExclusive, 0, __FILE__, __LINE__), 0);
  struct Entry {
    const char* account;
    DatesType date;
    uint32_t post_order;
  };
  const Entry entries[] = {{"2000", {1, 3, 2026}, 9},
                           {"1000", {28, 2, 2026}, 5},
                           {"1000", {1, 3, 2025}, 700},
                           {"1000", {28, 2, 2026}, 2}};
  for (const Entry& e : entries) {
    std::vector<uint8_t> record(kSortRecordLength, 0);
    std::strcpy(reinterpret_cast<char*>(record.data()), e.account);
    record[10] = 'x';  // bytes after the terminator do not count
    std::memcpy(&record[16 + 70], &e.date, 4);
    std::memcpy(&record[16 + 4], &e.post_order, 4);
    ASSERT_NE(InsertRecordByKey(file, kSortRecordLength, record.data(), kNoKeyCurrency), 0);
  }
  std::vector<uint32_t> order;
  std::vector<uint8_t> record(kSortRecordLength, 0);
  for (uint8_t ok = GetFileGE(file, kLockBiasNone, kSortRecordLength, record.data(), 0); ok;
       ok = GetFileNext(file, kLockBiasNone, kSortRecordLength, record.data(), 0)) {
    uint32_t post_order;
    std::memcpy(&post_order, &record[20], 4);
    order.push_back(post_order);
  }
  EXPECT_EQ(order, (std::vector<uint32_t>{700, 2, 5, 9}));
  RealCloseFile(&file, __FILE__, __LINE__);
  EXPECT_EQ(FileDeleteWithLCK(name.c_str()), 1);
}

TEST(CreateNewCompanyTest, MakesEveryFileOrNone) {
  TempDir dir;
  ScopedChdir in(dir.path());
  ResetStandardFileNames();
  // A file of the company that already exists stops the creation; the files made before
  // it are removed again and the one that was there is left alone.
  const std::string rows = dir.File(JrnlRowFileName.c_str());
  ASSERT_EQ(CreateNewJournalRowFile(rows.c_str()), 1);
  EXPECT_EQ(CreateNewCompany(dir.path().c_str()), 0);
  EXPECT_FALSE(ZORDataFileExists(dir.File(ChartName.c_str()).c_str(), nullptr));
  EXPECT_FALSE(ZORDataFileExists(dir.File(JrnlHdrFileName.c_str()).c_str(), nullptr));
  EXPECT_TRUE(ZORDataFileExists(rows.c_str(), nullptr));

  ASSERT_EQ(ZORDeleteFile(rows.c_str()), kStatusOk);
  ASSERT_EQ(CreateNewCompany(dir.path().c_str()), 1);
  for (const FileKeys& f : Catalogue()) {
    EXPECT_TRUE(ZORDataFileExists(dir.File(f.name).c_str(), nullptr)) << f.name;
  }
  EXPECT_EQ(OpenHandleCount(), 0u);
}

}  // namespace
