// Chart of accounts: lookups between ID, record number and GUID, the checks made before a
// transaction uses an account, type names, display strings, sums and record equality.
#include "CHART.h"

#include <cstdio>
#include <cstring>

#include "CHART_internal.h"
#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "file_creation.h"
#include "record_manager.h"
#include "utility.h"

// Name strings of the account types 0 to 30. Types without a role of their own share
// string 2236, so a type number the host adds later still shows a sensible name.
const int16_t AT_LookTab[31] = {
    2220, 2221, 2222, 2236, 2223, 2224, 2225, 2236, 2226, 2236, 2227, 2236, 2228, 2236, 2229, 2236,
    2230, 2236, 2231, 2232, 2236, 2233, 2236, 2234, 2235, 2236, 2236, 2236, 2236, 2236, 2236,
};

namespace {

// String numbers of the texts this unit loads.
constexpr unsigned kStrMissingAccount = 2206;
constexpr unsigned kStrInactive = 2207;
constexpr unsigned kStrUnknownType = 2208;
constexpr unsigned kStrIncrease = 2252;
constexpr unsigned kStrDecrease = 2253;

// Message numbers.
constexpr int kMsgChartNotCreated = 2200;
constexpr int kMsgAccountNotFound = 2203;
constexpr int kMsgAccountInactive = 2204;
constexpr int kMsgAUHAccountNotFound = 2533;

constexpr unsigned kInactiveQuestion = MB_YESNO | MB_ICONQUESTION;

// Characters of the texts as the chart compares and shows them.
constexpr size_t kIdChars = 15;
constexpr size_t kDescriptionChars = 30;

// The private lookup handle: read-only, separate from AccountFile so that a lookup never
// moves the host's position or drops its locks.
BtrvFile* g_lookup_file = nullptr;

void LoadText(unsigned id, char* buffer, size_t capacity) {
  if (buffer == nullptr || capacity == 0) return;
  std::memset(buffer, 0, capacity);
  LoadStringA(nullptr, id, buffer, static_cast<int>(capacity));
}

template <size_t N>
void LoadText(unsigned id, FixedString<N>& text) {
  LoadText(id, text.s, N);
}

// A terminated copy of a caller's ID (an ID field may arrive without its terminator).
FixedString<16> IdCopy(const FixedString<16>& id) {
  FixedString<16> copy;
  Assign(copy, id.s, kIdChars);
  return copy;
}

bool ReadByID(BtrvFile* file, const FixedString<16>& id, AccountType* account) {
  std::memset(account, 0, sizeof(*account));
  Assign(account->ID, id.s, kIdChars);
  return GetFileEqual(file, kLockBiasNone, kAccountRecordLength, account, kChartKeyID) != 0;
}

bool ReadByNumber(BtrvFile* file, int32_t record_number, AccountType* account) {
  std::memset(account, 0, sizeof(*account));
  account->RecordNumber = record_number;
  return GetFileEqual(file, kLockBiasNone, kAccountRecordLength, account, kChartKeyRecordNumber) !=
         0;
}

// The inactive label replaces the description of an inactive account wherever a lookup
// hands the account out, so that every list and report shows at once that it is retired.
void LabelInactive(AccountType* account) {
  if (account->Inactive) LoadText(kStrInactive, account->Description);
}

// Shared end of the transaction tests: a found active account goes on, an inactive one
// only when the user answers Yes to the question naming id_text.
bool InactiveAccountAllowed(const AccountType& account, const char* id_text) {
  if (!account.Inactive) return true;
  return MessageWithString(kInactiveQuestion, kMsgAccountInactive, id_text) == IDYES;
}

// Credit-normal types: a positive amount on them is a decrease.
bool IsCreditNormal(int16_t type) {
  switch (type) {
    case 6:
    case 10:
    case 12:
    case 14:
    case 16:
    case 18:
    case 19:
    case 21:
      return true;
    default:
      return false;
  }
}

// First index of the year-to-date sum for a period index. The year-opening slots 14 and
// 28 and indexes past 41 answer period + 1, so their sum is empty: they have no
// year-to-date amount.
int FirstPeriodOfYear(int period) {
  if (period == 0) return 0;
  if (period >= 1 && period <= 13) return 1;
  if (period >= 15 && period <= 27) return 15;
  if (period >= 29 && period <= 41) return 29;
  return period + 1;
}

constexpr int kPeriodEntries = 42;

double SumYearToDate(AccountType* account, int period, bool budget) {
  if (account == nullptr) return 0.0;
  double sum = 0.0;
  for (int i = FirstPeriodOfYear(period); i <= period && i < kPeriodEntries; ++i) {
    sum += budget ? account->Budget[i] : account->Periods[i].Net;
  }
  return sum;
}

// The amount right-aligned in a column of width characters (asterisks when it does not
// fit). A column of no width shows nothing: handed on, a width of 0 would set no limit
// and the whole number would be written past a buffer sized for the column.
void AmountText(double amount, int width, char* text) {
  if (text == nullptr) return;
  text[0] = '\0';
  if (width <= 0) return;
  AppendRtoString(text, amount, width, width, '-');
}

template <size_t N>
bool SameText(const FixedString<N>& a, const FixedString<N>& b, size_t chars) {
  return CompareStr(a.s, b.s, chars) == 0;
}

}  // namespace

// --- Internal -------------------------------------------------------------------------------

BtrvFile* ChartLookupFile() {
  if (g_lookup_file == nullptr) OpenChartFile(&g_lookup_file, kOpenModeReadOnly);
  return g_lookup_file;
}

bool AcntExist(int32_t& record_number) {
  if (AcntExistQuiet(record_number)) return true;
  char text[32];
  std::snprintf(text, sizeof(text), "record #%ld", static_cast<long>(record_number));
  MessageWithString(MB_ICONEXCLAMATION, kMsgAccountNotFound, text);
  return false;
}

bool ReadFirstAccountOfType(BtrvFile* file, int16_t type, uint16_t lock, AccountType* account) {
  std::memset(account, 0, sizeof(*account));
  account->Type = type;
  return GetFileGE(file, lock, kAccountRecordLength, account, kChartKeyTypeID) != 0 &&
         account->Type == type;
}

void CloseInternalChartFile() {
  CloseIfOpen(&AccountFile, kChartUnit, __LINE__);
  CloseIfOpen(&g_lookup_file, kChartUnit, __LINE__);
}

// --- Lookups --------------------------------------------------------------------------------

bool GetAccountInfo(const FixedString<16>& id, AccountType* account) {
  if (account == nullptr) return false;
  std::memset(account, 0, sizeof(*account));
  BtrvFile* file = ChartLookupFile();
  if (file == nullptr || !ReadByID(file, id, account)) return false;
  LabelInactive(account);
  return true;
}

bool GetAccountInfo(int32_t record_number, AccountType* account) {
  if (account == nullptr) return false;
  std::memset(account, 0, sizeof(*account));
  BtrvFile* file = ChartLookupFile();
  if (file == nullptr || !ReadByNumber(file, record_number, account)) return false;
  LabelInactive(account);
  return true;
}

bool GetAcctRecordByKey(AccountType& account, int key) {
  BtrvFile* file = ChartLookupFile();
  if (file != nullptr && GetFileEqual(file, kLockBiasNone, kAccountRecordLength, &account,
                                      static_cast<int16_t>(key))) {
    return true;
  }
  std::memset(&account, 0, sizeof(account));
  return false;
}

int32_t GetAcctRecNumFromID(const FixedString<16>& id) {
  BtrvFile* file = ChartLookupFile();
  AccountType account;
  if (file == nullptr || !ReadByID(file, id, &account)) return 0;
  return account.RecordNumber;
}

int32_t GetAcctRecordNumberFromID(const FixedString<16>& id) {
  int32_t record_number = GetAcctRecNumFromID(id);
  if (record_number != 0) return record_number;
  // Amounts posted to an account that has since vanished must land somewhere that keeps
  // the books balanced: retained earnings takes them.
  FixedString<16> retained;
  if (!GetRetEarnAcntID(retained)) return 0;
  return GetAcctRecNumFromID(retained);
}

int GetAcctIDFromRecordNumber(int32_t record_number, FixedString<16>& id) {
  id.Clear();
  if (record_number == 0) return 0;
  BtrvFile* file = ChartLookupFile();
  AccountType account;
  if (file == nullptr || !ReadByNumber(file, record_number, &account)) return 0;
  Assign(id, account.ID.s, kIdChars);
  return 1;
}

int32_t GetAcctRecNumFromGUID(const GUID& guid) {
  BtrvFile* file = ChartLookupFile();
  if (file == nullptr) return 0;
  AccountType account;
  std::memset(&account, 0, sizeof(account));
  account.Guid = guid;
  if (!GetFileEqual(file, kLockBiasNone, kAccountRecordLength, &account, kChartKeyGUID)) return 0;
  return account.RecordNumber;
}

int GetAcctGUIDFromRecNum(int32_t record_number, GUID& guid) {
  std::memset(&guid, 0, sizeof(guid));
  BtrvFile* file = ChartLookupFile();
  AccountType account;
  if (file == nullptr || !ReadByNumber(file, record_number, &account)) return 0;
  guid = account.Guid;
  return 1;
}

bool AcntExistQuiet(const FixedString<16>& id) {
  BtrvFile* file = ChartLookupFile();
  if (file == nullptr) return false;
  FixedString<16> key;
  Assign(key, id.s, kIdChars);
  return GetFileEqual(file, kLockBiasKeyOnly, sizeof(key), &key, kChartKeyID) != 0;
}

bool AcntExistQuiet(int32_t& record_number) {
  BtrvFile* file = ChartLookupFile();
  if (file == nullptr) return false;
  return GetFileEqual(file, kLockBiasKeyOnly, sizeof(record_number), &record_number,
                      kChartKeyRecordNumber) != 0;
}

bool AcntExist(const FixedString<16>& id) {
  if (AcntExistQuiet(id)) return true;
  MessageWithString(MB_ICONEXCLAMATION, kMsgAccountNotFound, IdCopy(id).s);
  return false;
}

int WhatTypeAccount(AccountType* account) {
  if (account == nullptr) return 0;
  if (account->Type == kAcctTypeRetainedEarnings) return 0;
  return account->Type < kAcctTypeRetainedEarnings ? -1 : 1;
}

int WhatTypeAccountStr(const FixedString<16>& id) {
  BtrvFile* file = ChartLookupFile();
  if (file == nullptr) return 0;
  AccountType account;
  if (!ReadByID(file, id, &account)) {
    MessageWithString(MB_ICONEXCLAMATION, kMsgAccountNotFound, IdCopy(id).s);
    return -1;
  }
  return WhatTypeAccount(&account);
}

void GetAcntTypeName(int16_t type, FixedString<31>& name) {
  unsigned id = kStrUnknownType;
  if (type >= 0 && type <= 30) id = static_cast<unsigned>(AT_LookTab[type]);
  LoadText(id, name);
}

bool IsCashAccount(void* account) {
  return account != nullptr && static_cast<AccountType*>(account)->Type == kAcctTypeCash;
}

bool CreateChart() {
  if (CreateNewChartFile(nullptr)) return true;
  Message(MB_ICONEXCLAMATION, kMsgChartNotCreated);
  return false;
}

// --- Transaction tests ----------------------------------------------------------------------

bool AcntTrxAllowed(const FixedString<16>& id) {
  BtrvFile* file = ChartLookupFile();
  if (file == nullptr) return false;
  const FixedString<16> text = IdCopy(id);
  AccountType account;
  if (!ReadByID(file, id, &account)) {
    MessageWithString(MB_ICONEXCLAMATION, kMsgAccountNotFound, text.s);
    return false;
  }
  return InactiveAccountAllowed(account, text.s);
}

bool AcntTrxAllowed(int32_t record_number) {
  BtrvFile* file = ChartLookupFile();
  if (file == nullptr) return false;
  AccountType account;
  if (!ReadByNumber(file, record_number, &account)) {
    // This form names nothing in its not-found message: screens that post by number
    // show the account they meant beside it.
    MessageWithString(MB_ICONEXCLAMATION, kMsgAccountNotFound, "");
    return false;
  }
  return InactiveAccountAllowed(account, IdCopy(account.ID).s);
}

bool AUHAcntTrxAllowed(const FixedString<16>& id) {
  BtrvFile* file = ChartLookupFile();
  if (file == nullptr) return false;
  AccountType account;
  if (!ReadByID(file, id, &account)) {
    Message(MB_ICONEXCLAMATION, kMsgAUHAccountNotFound);
    return false;
  }
  return InactiveAccountAllowed(account, IdCopy(id).s);
}

// --- Display strings ------------------------------------------------------------------------

void MakeAcntString(AccountType* account, FixedStringParamRef text) {
  if (text.text == nullptr || text.capacity == 0) return;
  std::memset(text.text, 0, text.capacity);
  if (account == nullptr) return;
  FixedString<16> id;
  Assign(id, account->ID.s, kIdChars);
  FixedString<31> description;
  Assign(description, account->Description.s, kDescriptionChars);
  FixedString<31> kind;
  if (account->Inactive) {
    LoadText(kStrInactive, kind);
  } else {
    GetAcntTypeName(account->Type, kind);
  }
  sstrcat(text.text, id.s, text.capacity);
  sstrcat(text.text, "\t", text.capacity);
  sstrcat(text.text, description.s, text.capacity);
  sstrcat(text.text, "\t", text.capacity);
  sstrcat(text.text, kind.s, text.capacity);
}

namespace {
// The description of a found account (the inactive label for an inactive one), or the
// missing-account text; answers found.
bool DescribeAccount(bool found, const AccountType& account, FixedString<161>& description) {
  if (!found) {
    LoadText(kStrMissingAccount, description);
  } else if (account.Inactive) {
    LoadText(kStrInactive, description);
  } else {
    Assign(description, account.Description.s, kDescriptionChars);
  }
  return found;
}
}  // namespace

bool SetAcntDesc(const FixedString<16>& id, FixedString<161>& description) {
  BtrvFile* file = ChartLookupFile();
  AccountType account;
  return DescribeAccount(file != nullptr && ReadByID(file, id, &account), account, description);
}

bool SetAcntDesc(int32_t record_number, FixedString<161>& description) {
  BtrvFile* file = ChartLookupFile();
  AccountType account;
  return DescribeAccount(file != nullptr && ReadByNumber(file, record_number, &account), account,
                         description);
}

bool SetAcntDesc(const FixedString<16>& id, FixedString<31>& description) {
  FixedString<161> full;
  bool found = SetAcntDesc(id, full);
  Assign(description, full.s, kDescriptionChars);
  return found;
}

bool SetAcntDesc(int32_t record_number, FixedString<31>& description) {
  FixedString<161> full;
  bool found = SetAcntDesc(record_number, full);
  Assign(description, full.s, kDescriptionChars);
  return found;
}

bool bSetAcntTransDesc(const FixedString<16>& id, FixedString<31>& text, double amount) {
  BtrvFile* file = ChartLookupFile();
  AccountType account;
  if (file == nullptr || !ReadByID(file, id, &account)) {
    LoadText(kStrMissingAccount, text);
    return false;
  }
  // Credit-normal accounts grow with credits, so the sign of a debit-positive amount is
  // turned round before it is named an increase or a decrease.
  if (IsCreditNormal(account.Type)) amount = -amount;
  LoadText(amount >= 0 ? kStrIncrease : kStrDecrease, text);
  return true;
}

// --- Sums -----------------------------------------------------------------------------------

double GetAcntBalance(AccountType* account, int period) {
  if (account == nullptr) return 0.0;
  double sum = 0.0;
  for (int i = 0; i <= period && i < kPeriodEntries; ++i) sum += account->Periods[i].Net;
  return sum;
}

double GetAcntYTDAmt(AccountType* account, int period) {
  return SumYearToDate(account, period, false);
}

double GetAcntYTDAmt(AccountType* account, int period, int width, char* text) {
  double amount = SumYearToDate(account, period, false);
  AmountText(amount, width, text);
  return amount;
}

double GetAcntYTDBudget(AccountType* account, int period, int width, char* text) {
  double amount = SumYearToDate(account, period, true);
  AmountText(amount, width, text);
  return amount;
}

// --- Equality -------------------------------------------------------------------------------

bool AccountType::Equal(const AccountType& other) const {
  for (int i = 0; i < kPeriodEntries; ++i) {
    if (!IsZero(Periods[i].First - other.Periods[i].First) ||
        !IsZero(Periods[i].Second - other.Periods[i].Second) ||
        !IsZero(Periods[i].Net - other.Periods[i].Net)) {
      return false;
    }
  }
  // Element by element through the packed record: the arrays are not 8-byte aligned.
  for (size_t i = 0; i < sizeof(Budget) / sizeof(Budget[0]); ++i) {
    if (!IsZero(Budget[i] - other.Budget[i]) || !IsZero(Second[i] - other.Second[i])) {
      return false;
    }
  }
  return SameText(ID, other.ID, kIdChars) &&
         SameText(Description, other.Description, kDescriptionChars) &&
         SameText(Text12, other.Text12, 12) && SameText(Text20A, other.Text20A, 20) &&
         SameText(Text20B, other.Text20B, 20) && SameText(LastDepositID, other.LastDepositID, 8) &&
         SameText(Text20C, other.Text20C, 20) && Type == other.Type && Inactive == other.Inactive &&
         Value1560 == other.Value1560 && std::memcmp(&Guid, &other.Guid, sizeof(Guid)) == 0 &&
         RecordNumber == other.RecordNumber;
}
