// Chart of accounts on a real company: lookups, transaction checks with the user's answers,
// special accounts, sums, display strings and a chart file that cannot be opened.
#include "CHART.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "CHART_internal.h"
#include "General.h"
#include "OpenDat.h"
#include "company_test.h"
#include "record_manager.h"
#include "utility.h"

namespace {

FixedString<16> Id(const char* text) {
  FixedString<16> id;
  id = text;
  return id;
}

std::string Str(unsigned id) {
  char text[256] = {};
  LoadStringA(nullptr, id, text, sizeof(text));
  return text;
}

// The ID an account finder hands out, or "-" when it answers false.
std::string Found(bool found, const FixedString<16>& id) { return found ? id.s : "-"; }

AccountType Account(const char* id, int16_t type, const char* description = "",
                    bool inactive = false) {
  AccountType account;
  std::memset(&account, 0, sizeof(account));
  account.ID = id;
  account.Type = type;
  account.Description = description;
  account.Inactive = inactive ? 1 : 0;
  AssignGUID(account.Guid);
  return account;
}

class ChartTest : public CompanyTest {
 protected:
  void CloseLibraryFiles() override {
    CloseInternalChartFile();
    DeallocGeneralRecReadPtr();
  }

  // Inserts an account as a maintenance screen would; answers its record number.
  int32_t Add(AccountType account) {
    BtrvFile* chart = nullptr;
    EXPECT_TRUE(OpenChartFile(&chart, kOpenModeNormal));
    EXPECT_TRUE(InsertRecord(chart, sizeof(account), &account)) << GetErrorCode(chart);
    RealCloseFile(&chart, __FILE__, __LINE__);
    return account.RecordNumber;
  }
  int32_t Add(const char* id, int16_t type, const char* description = "", bool inactive = false) {
    return Add(Account(id, type, description, inactive));
  }

  // Writes a module's settings record with its default cash account.
  void AddSettings(ModuleType kind, int32_t cash_account) {
    GeneralDataType settings;
    std::memset(&settings, 0, sizeof(settings));
    settings.Kind = static_cast<uint16_t>(kind);
    if (kind == MOD_AR) settings.AR.DefaultCashAccount = cash_account;
    if (kind == MOD_PR) settings.PR.DefaultCashAccount = cash_account;
    if (kind == MOD_GL) settings.GL.DefaultCashAccount = cash_account;
    BtrvFile* general = nullptr;
    ASSERT_TRUE(RealOpenBFileOwner(&general, GeneralFileName, kOpenModeNormal, 1, csTheOwner,
                                   __FILE__, __LINE__));
    EXPECT_TRUE(InsertRecord(general, sizeof(settings), &settings));
    RealCloseFile(&general, __FILE__, __LINE__);
  }

  bool LastMessageNames(const std::string& text) {
    return messages_.Last().text.find(text) != std::string::npos;
  }
};

TEST_F(ChartTest, LookupsTranslateBetweenIdNumberAndGuid) {
  AccountType cash = Account("1000", kAcctTypeCash, "Checking");
  const int32_t cash_number = Add(cash);
  AccountType account;
  EXPECT_FALSE(GetAccountInfo(Id("4000"), &account));
  // Added after the lookup handle opened: the next lookup must see it.
  const int32_t sales_number = Add("4000", 21, "Sales");
  ASSERT_TRUE(GetAccountInfo(Id("4000"), &account));
  EXPECT_EQ(int32_t{account.RecordNumber}, sales_number);  // packed: by value
  EXPECT_STREQ(account.Description, "Sales");
  ASSERT_TRUE(GetAccountInfo(cash_number, &account));
  EXPECT_STREQ(account.ID, "1000");
  EXPECT_EQ(GetAcctRecNumFromID(Id("400")), 0);

  FixedString<16> id = Id("stale");
  EXPECT_EQ(GetAcctIDFromRecordNumber(0, id), 0);
  EXPECT_TRUE(id.IsEmpty());
  EXPECT_EQ(Found(GetAcctIDFromRecordNumber(sales_number, id), id), "4000");
  EXPECT_EQ(GetAcctRecNumFromGUID(cash.Guid), cash_number);
  GUID guid;
  std::memset(&guid, 0xAB, sizeof(guid));
  EXPECT_EQ(GetAcctGUIDFromRecNum(sales_number + 100, guid), 0);
  EXPECT_TRUE(IsNullGUID(guid));
  EXPECT_EQ(GetAcctGUIDFromRecNum(cash_number, guid), 1);
  EXPECT_EQ(std::memcmp(&guid, &cash.Guid, sizeof(guid)), 0);

  EXPECT_TRUE(AcntExistQuiet(Id("4000")));
  EXPECT_FALSE(AcntExistQuiet(Id("4001")));
  int32_t number = sales_number;
  EXPECT_TRUE(AcntExistQuiet(number));
  number = sales_number + 100;
  EXPECT_FALSE(AcntExistQuiet(number));
  account.Guid.Data1 ^= 1;  // by the caller's key; a miss clears the record
  EXPECT_FALSE(GetAcctRecordByKey(account, kChartKeyGUID));
  EXPECT_TRUE(account.ID.IsEmpty());
  EXPECT_TRUE(messages_.shown().empty());
}

TEST_F(ChartTest, InactiveAccountsAreLabelledAndNeedAYes) {
  const int32_t active = Add("1000", kAcctTypeCash, "Checking");
  const int32_t retired = Add("1100", kAcctTypeReceivable, "Old receivables", true);
  AccountType account;
  ASSERT_TRUE(GetAccountInfo(Id("1100"), &account));
  EXPECT_EQ(std::string(account.Description), Str(2207));
  FixedString<161> description;
  EXPECT_TRUE(SetAcntDesc(retired, description));
  EXPECT_EQ(std::string(description), Str(2207));
  EXPECT_FALSE(SetAcntDesc(Id("1999"), description));
  EXPECT_EQ(std::string(description), Str(2206));

  EXPECT_TRUE(AcntTrxAllowed(Id("1000")) && AcntTrxAllowed(active));
  EXPECT_TRUE(messages_.shown().empty());
  messages_.Answer(IDYES);
  EXPECT_TRUE(AcntTrxAllowed(Id("1100")));
  EXPECT_EQ(messages_.Last().style, MB_YESNO | MB_ICONQUESTION);
  messages_.Answer(IDNO);
  EXPECT_FALSE(AcntTrxAllowed(Id("1100")));
  messages_.Answer(IDCANCEL);  // only Yes lets it go on
  EXPECT_FALSE(AcntTrxAllowed(retired));
  EXPECT_TRUE(LastMessageNames("1100"));  // the number form names the account's ID
  messages_.Answer(IDYES);
  EXPECT_TRUE(AUHAcntTrxAllowed(Id("1100")));
  EXPECT_EQ(messages_.Numbers(), (std::vector<int>{2204, 2204, 2204, 2204}));

  messages_.Clear();
  EXPECT_FALSE(AcntTrxAllowed(Id("7777")));
  EXPECT_TRUE(LastMessageNames("7777"));
  EXPECT_FALSE(AcntTrxAllowed(int32_t{4242}));
  EXPECT_FALSE(LastMessageNames("4242"));  // deliberately no text in the number form
  EXPECT_FALSE(AUHAcntTrxAllowed(Id("7777")));
  int32_t missing = 4242;
  EXPECT_FALSE(AcntExist(missing));
  EXPECT_TRUE(LastMessageNames("record #4242"));
  EXPECT_FALSE(AcntExist(Id("7777")));
  EXPECT_EQ(WhatTypeAccountStr(Id("7777")), -1);
  EXPECT_EQ(messages_.Numbers(), (std::vector<int>{2203, 2203, 2533, 2203, 2203, 2203}));
}

TEST_F(ChartTest, SpecialAccountsAreFoundByType) {
  FixedString<16> id;
  EXPECT_EQ(GetAcctRecordNumberFromID(Id("nope")), 0);  // no retained earnings yet
  int32_t bank = 0;
  EXPECT_FALSE(GetCashAccountForBankRec(bank));
  EXPECT_EQ(messages_.Numbers().back(), 1913);
  EXPECT_EQ(Found(GetFirstAPARAcnt(id, 1), id), "-");

  const int32_t receivable = Add("1100", kAcctTypeReceivable);
  Add("2100", kAcctTypePayable);
  Add("2000", kAcctTypePayable);
  const int32_t retained = Add("3900", kAcctTypeRetainedEarnings);
  Add("3950", kAcctTypeRetainedEarnings);
  EXPECT_EQ(GetAcctRecordNumberFromID(Id("nope")), retained);
  EXPECT_EQ(GetAcctRecNumFromID(Id("nope")), 0);
  EXPECT_EQ(GetAcctRecordNumberFromID(Id("1100")), receivable);
  EXPECT_EQ(Found(GetRetEarnAcntID(id), id), "3900");
  EXPECT_EQ(Found(GetFirstAPARAcnt(id, 1), id), "2000");
  EXPECT_EQ(Found(GetFirstAPARAcnt(id, 0), id), "1100");
  EXPECT_EQ(WhatTypeAccountStr(Id("1100")), -1);
  EXPECT_EQ(WhatTypeAccountStr(Id("3900")), 0);

  // Cash accounts: counted from the last in ID order, stopping at two.
  Add("0001", -1);  // sorts before cash in type order and must not count
  EXPECT_EQ(GetCountCashAcnt(id), 0);
  Add("1010", kAcctTypeCash);
  EXPECT_EQ(GetCountCashAcnt(id), 1);
  EXPECT_STREQ(id, "1010");
  Add("1000", kAcctTypeCash, "Petty cash", true);
  Add("1020", kAcctTypeCash);
  EXPECT_EQ(GetCountCashAcnt(id), 2);
  EXPECT_STREQ(id, "1020");
  EXPECT_EQ(Found(GetFirstCashAccountForRegister(id, 0), id), "1000");
  EXPECT_EQ(Found(GetFirstCashAccountForRegister(id, 1), id), "1010");
}

TEST_F(ChartTest, DefaultCashAccountComesFromTheModuleSettings) {
  Add("1000", kAcctTypeCash);
  const int32_t receipts = Add("1010", kAcctTypeCash);
  const int32_t payroll = Add("1020", kAcctTypeCash);
  AddSettings(MOD_AR, receipts);
  AddSettings(MOD_PR, payroll);
  AddSettings(MOD_GL, payroll + 50);  // an account that no longer exists
  FixedString<16> id;
  EXPECT_EQ(Found(GetDefaultCashAcnt(MOD_AR, id), id), "1010");
  EXPECT_EQ(Found(GetDefaultCashAcnt(MOD_PR_CASH, id), id), "1020");
  // Without a usable setting (vanished account, no payables record, no cash setting in
  // the module): the first cash account.
  for (ModuleType module : {MOD_GL, MOD_AP, MOD_INV}) {
    EXPECT_EQ(Found(GetDefaultCashAcnt(module, id), id), "1000") << module;
  }
  int32_t bank = 0;
  EXPECT_TRUE(GetCashAccountForBankRec(bank));
  EXPECT_EQ(bank, receipts);
  bank = 77;  // a given number is kept as it is
  EXPECT_TRUE(GetCashAccountForBankRec(bank));
  EXPECT_EQ(bank, 77);
}

TEST_F(ChartTest, LastDepositIdReadsTheAccountAndDropsItsLock) {
  AccountType sales = Account("3000", 21, "Sales");
  sales.LastDepositID = "S17";
  Add(sales);
  FixedString<16> id = Id("");
  FixedString<31> description = Account("x", 0, "stale").Description;
  FixedString<9> deposit;
  EXPECT_EQ(GetLastDepositIdForAcnt(id, description, deposit, 0), 0);
  EXPECT_TRUE(description.IsEmpty());
  EXPECT_EQ(GetLastDepositIdForAcnt(id, description, deposit, 1), 1);
  EXPECT_STREQ(id, "3000");
  EXPECT_STREQ(deposit, "S17");

  AccountType cash = Account("1000", kAcctTypeCash, "Checking");
  cash.LastDepositID = "DEP00007";
  Add(cash);
  ASSERT_TRUE(OpenChartFile(&AccountFile, kOpenModeNormal));
  id.Clear();
  EXPECT_EQ(GetLastDepositIdForAcnt(id, description, deposit, 0), 1);
  EXPECT_EQ(std::string(id) + "/" + description.s + "/" + deposit.s, "1000/Checking/DEP00007");
  EXPECT_EQ(AccountFile, nullptr);  // both chart handles are closed
  BtrvFile* other = nullptr;
  ASSERT_TRUE(OpenChartFile(&other, kOpenModeNormal));
  AccountType locked = Account("1000", 0);
  EXPECT_TRUE(GetFileEqual(other, kLockBiasSingleNoWait, sizeof(locked), &locked, kChartKeyID));
  RealCloseFile(&other, __FILE__, __LINE__);
  id = Id("9999");
  EXPECT_EQ(GetLastDepositIdForAcnt(id, description, deposit, 1), 0);
  EXPECT_TRUE(deposit.IsEmpty());
}

TEST_F(ChartTest, SumsRunOverThePeriodsOfTheYear) {
  AccountType a = Account("1000", 0);
  for (int i = 0; i < 42; ++i) a.Periods[i].Net = i + 1;
  EXPECT_DOUBLE_EQ(GetAcntBalance(&a, 2), 6);
  EXPECT_DOUBLE_EQ(GetAcntBalance(&a, 500), 903);  // all 42 entries, no further
  EXPECT_DOUBLE_EQ(GetAcntYTDAmt(&a, 0), 1);
  EXPECT_DOUBLE_EQ(GetAcntYTDAmt(&a, 3), 2 + 3 + 4);
  EXPECT_DOUBLE_EQ(GetAcntYTDAmt(&a, 30), 30 + 31);
  for (int period : {14, 28, 42, 99, -1}) EXPECT_EQ(GetAcntYTDAmt(&a, period), 0) << period;
  char text[40];
  a.Periods[1].Net = -14.5;
  EXPECT_DOUBLE_EQ(GetAcntYTDAmt(&a, 1, 12, text), -14.5);
  EXPECT_NE(std::string(text).find("14.50-"), std::string::npos) << text;
  a.Budget[15] = 100;
  a.Budget[16] = 50.25;
  EXPECT_DOUBLE_EQ(GetAcntYTDBudget(&a, 16, 12, text), 150.25);
  EXPECT_EQ(std::string(text).find("150.25"), std::strlen(text) - 6) << text;
}

TEST_F(ChartTest, TransDescNamesTheDirectionByAccountType) {
  Add("4000", 21, "Sales");
  Add("1200", 2, "Inventory");
  Add("2000", kAcctTypePayable);
  FixedString<31> text;
  const struct {
    const char* id;
    double amount;
    unsigned expected;
  } cases[] = {{"4000", 100, 2253},  {"4000", -100, 2252}, {"1200", 100, 2252},
               {"1200", -0.5, 2253}, {"2000", 0, 2252},    {"1200", 0, 2252}};
  for (const auto& c : cases) {
    EXPECT_TRUE(bSetAcntTransDesc(Id(c.id), text, c.amount));
    EXPECT_EQ(std::string(text), Str(c.expected)) << c.id << " " << c.amount;
  }
  EXPECT_FALSE(bSetAcntTransDesc(Id("5"), text, 1));
  EXPECT_EQ(std::string(text), Str(2206));
}

TEST_F(ChartTest, ListRowAndTypeNames) {
  AccountType a = Account("1000", kAcctTypeCash, "Checking");
  FixedString<100> row;
  MakeAcntString(&a, row);
  EXPECT_EQ(std::string(row), "1000\tChecking\t" + Str(2220));
  a.Inactive = 1;
  MakeAcntString(&a, row);
  EXPECT_EQ(std::string(row), "1000\tChecking\t" + Str(2207));
  FixedString<8> small;
  MakeAcntString(&a, small);
  EXPECT_STREQ(small, "1000\tCh");
  std::memset(a.ID.s, 'A', sizeof(a.ID));  // no terminator: at most 15 characters
  MakeAcntString(&a, row);
  EXPECT_EQ(std::string(row).substr(0, 16), std::string(15, 'A') + "\t");

  FixedString<31> name;
  const std::pair<int16_t, unsigned> names[] = {{10, 2227}, {3, 2236}, {31, 2208}, {-1, 2208}};
  for (const auto& [type, string_id] : names) {
    GetAcntTypeName(type, name);
    EXPECT_EQ(std::string(name), Str(string_id)) << type;
  }
}

TEST_F(ChartTest, EqualComparesEveryFieldWithinItsLength) {
  AccountType a = Account("1000", 0, "Cash");
  a.Periods[5].First = 10;
  AccountType b = a;
  b.Periods[5].First += 0.004;  // under half a cent
  b.Description.s[20] = 'x';    // after the terminator
  EXPECT_TRUE(a.Equal(b));
  b.Periods[5].First += 0.01;
  EXPECT_FALSE(a.Equal(b));
  b = a;
  b.Budget[55] = 1;
  EXPECT_FALSE(a.Equal(b));
  b = a;
  b.Text20C = "z";  // the last field
  EXPECT_FALSE(a.Equal(b));
}

TEST_F(ChartTest, UnopenableChartAnswersNotFoundSilently) {
  ASSERT_EQ(ZORDeleteFile(ChartName), 0);
  AccountType account;
  FixedString<16> id = Id("1000");
  FixedString<31> description;
  FixedString<9> deposit;
  FixedString<161> long_description;
  EXPECT_FALSE(GetAccountInfo(id, &account));
  EXPECT_FALSE(AcntTrxAllowed(id) || AcntTrxAllowed(int32_t{5}) || AUHAcntTrxAllowed(id));
  EXPECT_EQ(WhatTypeAccountStr(id), 0);
  EXPECT_FALSE(SetAcntDesc(id, long_description));
  EXPECT_EQ(std::string(long_description), Str(2206));
  EXPECT_EQ(GetLastDepositIdForAcnt(id, description, deposit, 1), -1);
  EXPECT_FALSE(GetFirstCashAccountForRegister(id, 0));
  EXPECT_EQ(GetCountCashAcnt(id), -1);
  EXPECT_TRUE(messages_.shown().empty());

  EXPECT_TRUE(CreateChart());
  Add("1000", kAcctTypeCash);
  EXPECT_TRUE(AcntExistQuiet(Id("1000")));  // the lookup handle opens once there is a file
  EXPECT_FALSE(CreateChart());
  EXPECT_EQ(messages_.Numbers(), std::vector<int>{2200});
}

}  // namespace
