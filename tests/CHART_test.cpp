// Chart of accounts on a real company: lookups, transaction checks with the user's answers,
// special accounts, sums, display strings and a chart file that cannot be opened.
#include "CHART.h"

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CHART_internal.h"
#include "General.h"
#include "OpenDat.h"
#include "company_test.h"
#include "record_manager.h"
#include "utility.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using Ints = std::vector<int>;
using Strs = std::vector<std::string>;

FixedString<16> Id(const char* text) { return FixedString<16>() = text; }
std::string Str(unsigned id) {
  char text[256] = {};
  LoadStringA(nullptr, id, text, sizeof(text));
  return text;
}
// The ID an account finder hands out, or "-" when it answers false.
std::string Found(bool found, const FixedString<16>& id) { return found ? id.s : "-"; }

AccountType Account(const char* id, int16_t type, const char* description = "",
                    bool inactive = false, const char* last_deposit = "") {
  AccountType account = {};
  account.ID = id;
  account.Type = type;
  account.Description = description;
  account.Inactive = inactive;
  account.LastDepositID = last_deposit;
  AssignGUID(account.Guid);
  return account;
}

class ChartTest : public CompanyTest {
 protected:
  void CloseLibraryFiles() override {
    CloseInternalChartFile();
    DeallocGeneralRecReadPtr();
  }
  // Inserts a record as a maintenance screen would; answers it as inserted.
  template <typename Record>
  Record Insert(const char* file, Record record) {
    BtrvFile* f = nullptr;
    EXPECT_TRUE(RealOpenBFileOwner(&f, file, kOpenModeNormal, 1, csTheOwner, "t", 1));
    EXPECT_TRUE(InsertRecord(f, sizeof(record), &record)) << GetErrorCode(f);
    RealCloseFile(&f, "t", 1);
    return record;
  }
  int32_t Add(const char* id, int16_t type, const char* description = "", bool inactive = false) {
    return Insert(ChartName, Account(id, type, description, inactive)).RecordNumber;
  }
};

TEST_F(ChartTest, LookupsTranslateBetweenIdNumberAndGuid) {
  AccountType cash = Insert(ChartName, Account("1000", kAcctTypeCash, "Checking")), account;
  EXPECT_FALSE(GetAccountInfo(Id("4000"), &account));  // opens the handle; 4000 comes after
  int32_t cash_number = cash.RecordNumber, sales = Add("4000", 21, "Sales"), missing = sales + 1;
  EXPECT_EQ((Ints{GetAccountInfo(Id("4000"), &account), account.RecordNumber}), (Ints{1, sales}));
  EXPECT_EQ(Found(GetAccountInfo(cash_number, &account), account.ID), "1000");
  FixedString<16> id = Id("stale");
  GUID guid = cash.Guid;  // in order: a miss clears the ID, and the GUID (to null)
  EXPECT_EQ((Ints{GetAcctRecNumFromID(Id("400")), GetAcctIDFromRecordNumber(0, id), id.IsEmpty(),
                  GetAcctRecNumFromGUID(cash.Guid), GetAcctGUIDFromRecNum(missing, guid),
                  IsNullGUID(guid), GetAcctGUIDFromRecNum(cash_number, guid),
                  std::memcmp(&guid, &cash.Guid, sizeof(guid)), AcntExistQuiet(Id("4000")),
                  AcntExistQuiet(Id("4001")), AcntExistQuiet(sales), AcntExistQuiet(missing)}),
            (Ints{0, 0, 1, cash_number, 0, 1, 1, 0, 1, 0, 1, 0}));
  EXPECT_TRUE(messages_.shown().empty());
}

TEST_F(ChartTest, InactiveAccountsAreLabelledAndNeedAYes) {
  const int32_t active = Add("1000", kAcctTypeCash, "Checking");
  const int32_t retired = Add("1100", kAcctTypeReceivable, "Old receivables", true);
  AccountType account;
  FixedString<161> active_text, retired_text, missing_text;
  EXPECT_EQ((Ints{GetAccountInfo(Id("1100"), &account), SetAcntDesc(Id("1000"), active_text),
                  SetAcntDesc(retired, retired_text), SetAcntDesc(Id("1999"), missing_text),
                  AcntTrxAllowed(Id("1000")), AcntTrxAllowed(active)}),
            (Ints{1, 1, 1, 0, 1, 1}));
  EXPECT_EQ((Strs{account.Description.s, active_text.s, retired_text.s, missing_text.s}),
            (Strs{Str(2207), "Checking", Str(2207), Str(2206)}));
  EXPECT_TRUE(messages_.shown().empty());
  for (int answer : {IDYES, IDNO, IDCANCEL, IDYES}) messages_.Answer(answer);  // Yes goes on
  EXPECT_EQ((Ints{AcntTrxAllowed(Id("1100")), AcntTrxAllowed(Id("1100")), AcntTrxAllowed(retired),
                  AUHAcntTrxAllowed(Id("1100"))}),
            (Ints{1, 0, 0, 1}));
  EXPECT_EQ(messages_.Numbers(), (Ints{2204, 2204, 2204, 2204}));
  EXPECT_THAT(messages_.shown()[2].text, HasSubstr("1100"));  // the number form names it too

  messages_.Clear();
  int32_t number = 4242;
  EXPECT_EQ((Ints{AcntTrxAllowed(Id("7777")), AcntTrxAllowed(number), AUHAcntTrxAllowed(Id("7777")),
                  AcntExist(number), AcntExist(Id("7777")), WhatTypeAccountStr(Id("7777"))}),
            (Ints{0, 0, 0, 0, 0, -1}));
  EXPECT_EQ(messages_.Numbers(), (Ints{2203, 2203, 2533, 2203, 2203, 2203}));
  EXPECT_THAT(messages_.shown()[1].text, Not(HasSubstr("4242")));  // deliberately no text
  EXPECT_THAT(messages_.shown()[3].text, HasSubstr("record #4242"));
}

TEST_F(ChartTest, SpecialAccountsAreFoundByTypeAndModuleSettings) {
  FixedString<16> id;
  int32_t bank = 0, given = 77;                         // a given number is kept as it is
  EXPECT_EQ(GetAcctRecordNumberFromID(Id("nope")), 0);  // no retained earnings yet
  const int32_t receivable = Add("1100", kAcctTypeReceivable);
  const int32_t retained = Add("3900", kAcctTypeRetainedEarnings);
  Add("3950", kAcctTypeRetainedEarnings);  // an unknown ID falls back to the first, 3900
  EXPECT_EQ((Ints{GetAcctRecordNumberFromID(Id("nope")), GetAcctRecNumFromID(Id("nope")),
                  GetAcctRecordNumberFromID(Id("1100")), WhatTypeAccountStr(Id("1100")),
                  WhatTypeAccountStr(Id("3900"))}),
            (Ints{retained, 0, receivable, -1, 0}));

  Add("0001", -1);  // sorts before cash by type, not counted; counts stop at two
  EXPECT_EQ(GetCountCashAcnt(id), 0);
  const int32_t receipts = Add("1010", kAcctTypeCash);
  EXPECT_EQ(Found(GetCountCashAcnt(id) == 1, id), "1010");
  Add("1000", kAcctTypeCash, "Petty cash", true);
  const int32_t payroll = Add("1020", kAcctTypeCash);
  EXPECT_EQ(Found(GetCountCashAcnt(id) == 2, id), "1020");
  // The module's default cash account, else (vanished account, no payables record, no cash
  // setting in the module) the first cash account; the register's skips inactive ones.
  GeneralDataType settings[3] = {};
  settings[0].Kind = MOD_AR;
  settings[0].AR.DefaultCashAccount = receipts;
  settings[1].Kind = MOD_PR;
  settings[1].PR.DefaultCashAccount = payroll;
  settings[2].Kind = MOD_GL;
  settings[2].GL.DefaultCashAccount = payroll + 50;
  for (const GeneralDataType& s : settings) Insert(GeneralFileName, s);
  EXPECT_EQ(
      (Strs{Found(GetRetEarnAcntID(id), id), Found(GetDefaultCashAcnt(MOD_AR, id), id),
            Found(GetDefaultCashAcnt(MOD_PR_CASH, id), id),
            Found(GetDefaultCashAcnt(MOD_GL, id), id), Found(GetDefaultCashAcnt(MOD_AP, id), id),
            Found(GetDefaultCashAcnt(MOD_INV, id), id),
            Found(GetFirstCashAccountForRegister(id, 1), id)}),
      (Strs{"3900", "1010", "1020", "1000", "1000", "1000", "1010"}));
  EXPECT_EQ((Ints{GetCashAccountForBankRec(bank), bank, GetCashAccountForBankRec(given), given}),
            (Ints{1, receipts, 1, 77}));
}

TEST_F(ChartTest, LastDepositIdReadsTheAccountAndDropsItsLock) {
  Insert(ChartName, Account("3000", 21, "Sales", false, "S17"));
  FixedString<16> id = Id("");
  FixedString<31> description = Account("x", 0, "stale").Description;  // a miss clears it
  FixedString<9> deposit;
  EXPECT_EQ((Ints{GetLastDepositIdForAcnt(id, description, deposit, 0), description.IsEmpty(),
                  GetLastDepositIdForAcnt(id, description, deposit, 1)}),
            (Ints{0, 1, 1}));
  EXPECT_EQ(std::string(id) + "/" + deposit.s, "3000/S17");
  Insert(ChartName, Account("1000", kAcctTypeCash, "Checking", false, "DEP00007"));
  ASSERT_TRUE(OpenChartFile(&AccountFile, kOpenModeNormal));
  id.Clear();
  EXPECT_EQ(GetLastDepositIdForAcnt(id, description, deposit, 0), 1);
  EXPECT_EQ(std::string(id) + "/" + description.s + "/" + deposit.s, "1000/Checking/DEP00007");
  EXPECT_EQ(AccountFile, nullptr);  // both chart handles are closed, and the account unlocked
  BtrvFile* other = nullptr;
  ASSERT_TRUE(OpenChartFile(&other, kOpenModeNormal));
  AccountType locked = Account("1000", 0);
  EXPECT_TRUE(GetFileEqual(other, kLockBiasSingleNoWait, sizeof(locked), &locked, kChartKeyID));
  RealCloseFile(&other, "t", 1);
}

TEST_F(ChartTest, SumsRunOverThePeriodsOfTheYear) {
  AccountType a = Account("1000", 0);
  for (int i = 0; i < 42; ++i) a.Periods[i].Net = i == 1 ? -14.5 : i + 1;
  a.Budget[15] = 100;
  a.Budget[16] = 50.25;
  char amount[40], budget[40];  // year to date: 0 outside the open years (14 and 28 too)
  EXPECT_EQ(
      (std::vector<double>{GetAcntBalance(&a, 2), GetAcntBalance(&a, 500), GetAcntYTDAmt(&a, 0),
                           GetAcntYTDAmt(&a, 3), GetAcntYTDAmt(&a, 30), GetAcntYTDAmt(&a, 14),
                           GetAcntYTDAmt(&a, 28), GetAcntYTDAmt(&a, 42), GetAcntYTDAmt(&a, 99),
                           GetAcntYTDAmt(&a, -1), GetAcntYTDAmt(&a, 1, 12, amount),
                           GetAcntYTDBudget(&a, 16, 12, budget)}),
      (std::vector<double>{-10.5, 886.5, 1, -7.5, 30 + 31, 0, 0, 0, 0, 0, -14.5, 150.25}));
  EXPECT_EQ(std::string(amount) + "|" + budget, "      14.50-|      150.25");

  // The text holds width characters and its terminator, never more; no width, no text.
  a.Periods[3].Net = -1234567.5;
  for (const int width : {-1, 0, 1, 6, 11, 12}) {
    SCOPED_TRACE(width);
    const size_t used = width > 0 ? static_cast<size_t>(width) + 1 : 1;
    for (char* text : {amount, budget}) std::memset(text, '#', sizeof(amount));
    GetAcntYTDAmt(&a, 3, width, amount);
    GetAcntYTDBudget(&a, 16, width, budget);
    for (const char* text : {amount, budget}) {
      EXPECT_EQ(std::strlen(text), used - 1);
      EXPECT_EQ(std::string(text + used, sizeof(amount) - used),
                std::string(sizeof(amount) - used, '#'));
    }
  }
  GetAcntYTDAmt(&a, 3, 11, amount);
  EXPECT_STREQ(amount, "1234579.00-");
}

TEST_F(ChartTest, TransDescNamesTheDirectionByAccountType) {
  Add("4000", 21, "Sales");
  Add("1200", 2, "Inventory");
  Add("2000", kAcctTypePayable);
  FixedString<31> text;
  const std::tuple<const char*, double, unsigned> kCases[] = {
      {"4000", 100, 2253}, {"4000", -100, 2252}, {"1200", 100, 2252}, {"1200", -0.5, 2253},
      {"2000", 0, 2252},   {"1200", 0, 2252},    {"5", 1, 2206}};  // 5: no such account
  for (const auto& [id, amount, expected] : kCases) {
    EXPECT_EQ(bSetAcntTransDesc(Id(id), text, amount), expected != 2206);
    EXPECT_EQ(std::string(text), Str(expected)) << id << " " << amount;
  }
}

TEST_F(ChartTest, ListRowShowsIdDescriptionAndTypeOrInactive) {
  AccountType a = Account("1000", kAcctTypeCash, "Checking");
  FixedString<100> active, inactive, no_terminator;
  FixedString<8> small;
  MakeAcntString(&a, active);
  a.Inactive = 1;
  MakeAcntString(&a, inactive);
  MakeAcntString(&a, small);
  std::memset(a.ID.s, 'A', sizeof(a.ID));  // no terminator: at most 15 characters
  MakeAcntString(&a, no_terminator);
  EXPECT_EQ((Strs{active.s, inactive.s, small.s, std::string(no_terminator).substr(0, 16)}),
            (Strs{"1000\tChecking\t" + Str(2220), "1000\tChecking\t" + Str(2207), "1000\tCh",
                  std::string(15, 'A') + "\t"}));
}

TEST_F(ChartTest, EqualComparesEveryFieldWithinItsLength) {
  AccountType a = Account("1000", 0, "Cash"), same = a, cent = a, budget = a, last = a;
  same.Periods[5].First = 0.004;  // under half a cent
  same.Description.s[20] = 'x';   // after the terminator
  cent.Periods[5].First = 0.014;
  budget.Budget[55] = 1;
  last.Text20C = "z";  // the last field
  EXPECT_EQ((Ints{a.Equal(same), a.Equal(cent), a.Equal(budget), a.Equal(last)}),
            (Ints{1, 0, 0, 0}));
}

TEST_F(ChartTest, UnopenableChartAnswersNotFoundSilently) {
  ASSERT_EQ(ZORDeleteFile(ChartName), 0);
  AccountType account;
  FixedString<16> id = Id("1000");
  FixedString<31> description;
  FixedString<9> deposit;
  EXPECT_EQ((Ints{GetAccountInfo(id, &account), AcntTrxAllowed(id), AcntTrxAllowed(int32_t{5}),
                  AUHAcntTrxAllowed(id), WhatTypeAccountStr(id),
                  GetLastDepositIdForAcnt(id, description, deposit, 1),
                  GetFirstCashAccountForRegister(id, 0), GetCountCashAcnt(id)}),
            (Ints{0, 0, 0, 0, 0, -1, 0, -1}));
  EXPECT_TRUE(messages_.shown().empty());  // and once there is a file, the handle opens
  EXPECT_EQ((Ints{CreateChart(), Add("1000", 0) > 0, AcntExistQuiet(Id("1000"))}), (Ints{1, 1, 1}));
}

}  // namespace
