// Opening a company's data files: the posting set opens exactly what a journal needs and
// never stays half open, the journal pair opens whole or not at all, the item file is
// found through the company path, and the per-thread inventory-tag handle.
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"

namespace {

class OpenDatTest : public CompanyTest {
 protected:
  void CloseLibraryFiles() override {
    CloseInternalInvTagFile();
    CloseInternalAuditTrailFile();
  }
};

// The files of a set that are open, by name.
std::set<std::string> OpenMembers(const FileSet& s) {
  std::set<std::string> open;
  if (s.Journal.HdrFile) open.insert("header");
  if (s.Journal.RowFile) open.insert("rows");
  if (s.Chart) open.insert("chart");
  if (s.General) open.insert("general");
  if (s.Customer) open.insert("customer");
  if (s.Vendor) open.insert("vendor");
  if (s.LineItem) open.insert("items");
  if (s.Employee) open.insert("employee");
  if (s.InvTag) open.insert("tags");
  if (s.InvLF) open.insert("costing");
  if (s.RecptTag) open.insert("receipt tags");
  return open;
}

TEST_F(OpenDatTest, PostFilesOpenWhatEachJournalNeeds) {
  const std::set<std::string> base = {"header", "rows", "chart", "items", "general"};
  auto with = [&base](std::set<std::string> more) {
    more.insert(base.begin(), base.end());
    return more;
  };
  const std::set<std::string> cards_and_tags = {"customer", "vendor", "tags", "costing",
                                                "receipt tags"};
  struct {
    JournalTypes type;
    std::set<std::string> expected;
  } const cases[] = {
      {GENJ, base},
      {COGSJ, base},
      {POJ, base},
      {CRJ, with(cards_and_tags)},
      {SJ, with(cards_and_tags)},
      {CDJ, with(cards_and_tags)},
      {PJ, with(cards_and_tags)},
      {PRJ, with({"employee"})},
      {INAJ, with({"tags", "costing", "receipt tags"})},
      {ASBYJ, with({"tags", "costing", "receipt tags"})},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type);
    FileSet set{};
    ASSERT_NE(OpenPostFiles(&set, c.type), 0);
    EXPECT_EQ(OpenMembers(set), c.expected);
    ClosePostFiles(&set);
    EXPECT_TRUE(OpenMembers(set).empty());
    EXPECT_EQ(OpenHandleCount(), 0u);
  }
  ClosePostFiles(nullptr);  // nothing to do, nothing to crash
}

TEST_F(OpenDatTest, PostFilesNeverStayHalfOpen) {
  // Without a general file the last step fails: everything opened before is closed.
  ASSERT_EQ(ZORDeleteFile(GeneralFileName), kStatusOk);
  FileSet set{};
  EXPECT_EQ(OpenPostFiles(&set, SJ), 0);
  EXPECT_TRUE(OpenMembers(set).empty());
  EXPECT_EQ(OpenHandleCount(), 0u);
  EXPECT_TRUE(messages_.shown().empty());

  // Closing a set where only some members are open closes exactly those.
  ASSERT_NE(OpenChartFile(&set.Chart, kOpenModeNormal), 0);
  ASSERT_NE(OpenVendFile(&set.Vendor, kOpenModeReadOnly), 0);
  EXPECT_EQ(OpenHandleCount(), 2u);
  ClosePostFiles(&set);
  EXPECT_EQ(set.Chart, nullptr);
  EXPECT_EQ(set.Vendor, nullptr);
  EXPECT_EQ(OpenHandleCount(), 0u);
}

TEST_F(OpenDatTest, JournalAndTagPairsOpenWholeOrNotAtAll) {
  JrnlDBFilesType files{};
  ASSERT_EQ(OpenJournalFile(&files, kOpenModeReadOnly), 1);
  EXPECT_NE(files.HdrFile, nullptr);
  EXPECT_NE(files.RowFile, nullptr);
  CloseJrnlFile(&files);
  EXPECT_EQ(files.HdrFile, nullptr);
  EXPECT_EQ(files.RowFile, nullptr);
  CloseJrnlFile(&files);  // closing twice is harmless

  ASSERT_EQ(ZORDeleteFile(JrnlRowFileName), kStatusOk);
  EXPECT_EQ(OpenJournalFile(&files, kOpenModeNormal), 0);
  EXPECT_EQ(files.HdrFile, nullptr);
  EXPECT_EQ(files.RowFile, nullptr);
  EXPECT_EQ(OpenHandleCount(), 0u);

  BtrvFile *tags = nullptr, *costs = nullptr;  // no costing file: the tag file is closed again
  ASSERT_EQ(ZORDeleteFile(InvLFName), kStatusOk);
  EXPECT_EQ(OpenInvTagFile(&tags, &costs, kOpenModeNormal), 0);
  EXPECT_EQ(tags, nullptr);
  EXPECT_EQ(costs, nullptr);
  EXPECT_EQ(OpenHandleCount(), 0u);
  EXPECT_TRUE(messages_.shown().empty());  // a missing file is the caller's to report
}

TEST_F(OpenDatTest, ItemFileIsOpenedThroughTheCompanyPath) {
  struct {
    std::string path;
    std::string expected;
  } const cases[] = {
      {"", LineItemName.c_str()},
      {dir(), dir() + "\\" + LineItemName.c_str()},
      {dir() + "\\", dir() + "\\" + LineItemName.c_str()},  // no second backslash
  };
  for (const auto& c : cases) {
    g_szCompanyPath = c.path.c_str();
    BtrvFile* file = nullptr;
    ASSERT_NE(OpenLineItemFile(&file, kOpenModeReadOnly), 0) << c.path;
    ASSERT_EQ(ListOpenHandles().size(), 1u);
    EXPECT_EQ(ListOpenHandles()[0].fileName, c.expected);
    EXPECT_EQ(ListOpenHandles()[0].fileNumber, kFileNoLineItem);
    RealCloseFile(&file, __FILE__, __LINE__);
  }
}

TEST_F(OpenDatTest, RaiseHistoryOpenAsksAgainWhileTheUserSaysRetry) {
  ASSERT_EQ(ZORDeleteFile(RaiseHistoryFileName), kStatusOk);
  messages_.Answer(IDRETRY);
  messages_.Answer(IDCANCEL);
  BtrvFile* file = nullptr;
  EXPECT_EQ(OpenRaiseHistoryFile(&file, kOpenModeNormal), 0);
  EXPECT_EQ(file, nullptr);
  ASSERT_EQ(messages_.Numbers(),
            (std::vector<int>{20000 + kStatusFileNotFound, 20000 + kStatusFileNotFound}));

  // Once the file is back, an open succeeds without a word.
  messages_.Clear();
  ASSERT_EQ(CreateNewRaiseHistoryFile(), 1);
  ASSERT_NE(OpenRaiseHistoryFile(&file, kOpenModeNormal), 0);
  EXPECT_TRUE(messages_.shown().empty());
  RealCloseFile(&file, __FILE__, __LINE__);
}

TEST_F(OpenDatTest, EstimateFileOpensReadOnlyWithoutItsOwner) {
  BtrvFile* file = nullptr;
  ASSERT_EQ(OpenJobEstFile(&file, kOpenModeReadOnly), 1);
  EXPECT_EQ(ListOpenHandles()[0].fileNumber, 0);
  RealCloseFile(&file, __FILE__, __LINE__);
  ASSERT_EQ(OpenJobEstFile(&file, kOpenModeNormal), 1);
  EXPECT_EQ(ListOpenHandles()[0].fileNumber, kFileNoJobEst);
  RealCloseFile(&file, __FILE__, __LINE__);
  for (auto open : {OpenProjFile, OpenPhaseFile, OpenCostFile}) {
    ASSERT_EQ(open(&file, kOpenModeNormal), 1);
    RealCloseFile(&file, __FILE__, __LINE__);
  }
}

TEST_F(OpenDatTest, ThreadsHaveAnInventoryTagHandleEach) {
  ASSERT_NE(OpenInternalInvTagFile(), 0);
  BtrvFile* mine = GetInternalInvTagFile();
  ASSERT_NE(mine, nullptr);
  ASSERT_NE(PriceItemFile, nullptr);
  BtrvFile* theirs = nullptr;
  std::thread other([&theirs] {
    // Another thread starts without a handle and opens its own; the shared costing and
    // item handles are already open and stay as they are.
    EXPECT_EQ(GetInternalInvTagFile(), nullptr);
    BtrvFile* price_items = PriceItemFile;
    OpenInternalInvTagFile();
    theirs = GetInternalInvTagFile();
    EXPECT_EQ(PriceItemFile, price_items);
    RealCloseFile(&GetInternalInvTagFile(), __FILE__, __LINE__);
  });
  other.join();
  EXPECT_NE(theirs, nullptr);
  EXPECT_NE(theirs, mine);
  EXPECT_EQ(GetInternalInvTagFile(), mine);
  CloseInternalInvTagFile();
  EXPECT_EQ(GetInternalInvTagFile(), nullptr);
  EXPECT_EQ(InvLFFile, nullptr);
  EXPECT_EQ(PriceItemFile, nullptr);
}

}  // namespace
