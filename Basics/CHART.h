// Chart of accounts: the AccountType record, lookups between account ID, record number
// and GUID, the checks made before a transaction uses an account, account-type names,
// balance and budget sums, and the choice of cash, receivable, payable and retained-
// earnings accounts. Owns AccountFile and a private read-only lookup handle (opened on
// first use). Builds on OpenDat and the general settings. Not thread-safe.
#ifndef BASICS_CHART_H_
#define BASICS_CHART_H_

#include <cstddef>
#include <cstdint>

#include "General.h"
#include "zor_types.h"

// AccountType, 2061 bytes (a file format).
//   offset  size     field
//        0    16     account ID (15 characters and terminator); key 0
//       16     2     account type, s16; key 1 is type then ID
//       18    31     description (30 characters and terminator)
//       49     1     inactive flag (non-zero = inactive)
//       50    16     GUID; key 5
//       66     4     record number, s32; key 3
//       70    42x24  period amounts: three doubles each, the third the period's net
//     1078    56x8   budget amounts, one per period index
//     1526    13     text, 12 characters (host's)
//     1539    21     text, 20 characters (host's)
//     1560     2     s16 (host's)
//     1562    21     text, 20 characters (host's)
//     1583     9     last deposit ID, 8 characters and terminator
//     1592    56x8   second array of doubles (host's)
//     2040    21     text, 20 characters (host's)
// Period indexes run over three fiscal years of 14 slots: 0, 14 and 28 open a year, 1-13,
// 15-27 and 29-41 are the years' periods.
#pragma pack(push, 1)
struct AccountPeriodAmounts {
  double First;
  double Second;
  double Net;
};
struct AccountType {
  FixedString<16> ID;
  int16_t Type;
  FixedString<31> Description;
  uint8_t Inactive;
  GUID Guid;
  int32_t RecordNumber;
  AccountPeriodAmounts Periods[42];
  double Budget[56];
  FixedString<13> Text12;
  FixedString<21> Text20A;
  int16_t Value1560;
  FixedString<21> Text20B;
  FixedString<9> LastDepositID;
  double Second[56];
  FixedString<21> Text20C;

  // True when every field matches: doubles by the zero test of their difference, texts
  // by string comparison over their length, the rest exactly.
  bool Equal(const AccountType& other) const;
};
#pragma pack(pop)
static_assert(sizeof(AccountType) == 2061, "AccountType is 2061 bytes");
static_assert(offsetof(AccountType, Type) == 16, "type at 16");
static_assert(offsetof(AccountType, Description) == 18, "description at 18");
static_assert(offsetof(AccountType, Inactive) == 49, "inactive at 49");
static_assert(offsetof(AccountType, Guid) == 50, "GUID at 50");
static_assert(offsetof(AccountType, RecordNumber) == 66, "record number at 66");
static_assert(offsetof(AccountType, Periods) == 70, "period amounts at 70");
static_assert(offsetof(AccountType, Budget) == 1078, "budget at 1078");
static_assert(offsetof(AccountType, Text12) == 1526, "text at 1526");
static_assert(offsetof(AccountType, Text20A) == 1539, "text at 1539");
static_assert(offsetof(AccountType, Value1560) == 1560, "s16 at 1560");
static_assert(offsetof(AccountType, Text20B) == 1562, "text at 1562");
static_assert(offsetof(AccountType, LastDepositID) == 1583, "last deposit at 1583");
static_assert(offsetof(AccountType, Second) == 1592, "second array at 1592");
static_assert(offsetof(AccountType, Text20C) == 2040, "text at 2040");

// Key numbers of the chart file.
enum : int16_t {
  kChartKeyID = 0,
  kChartKeyTypeID = 1,
  kChartKeyRecordNumber = 3,
  kChartKeyGUID = 5
};

// Account types with a role in the library.
enum : int16_t {
  kAcctTypeCash = 0,
  kAcctTypeReceivable = 1,
  kAcctTypePayable = 10,
  kAcctTypeRetainedEarnings = 18,
};

// String numbers of the account-type names, by type 0 to 30.
extern const int16_t AT_LookTab[31];

// --- Lookups (no messages) ---------------------------------------------------------------
// Each reads through the chart's private lookup handle, opened on first use; a chart that
// cannot be opened answers as not found. IDs are taken to 15 characters.

// Clears *account, sets the key and reads it; an inactive account's description reads as
// string 2207. false when absent, with *account cleared but for the key (null: false).
bool GetAccountInfo(const FixedString<16>& id, AccountType* account);
bool GetAccountInfo(int32_t record_number, AccountType* account);
// Reads on the caller's key with its fields set in account; on failure account is cleared.
bool GetAcctRecordByKey(AccountType& account, int key);
// The account's record number; 0 when absent.
int32_t GetAcctRecNumFromID(const FixedString<16>& id);
// As GetAcctRecNumFromID, but an unknown ID answers the retained-earnings account's
// record number (0 when there is none either).
int32_t GetAcctRecordNumberFromID(const FixedString<16>& id);
// Clears id; 1 with the ID, 0 for number 0 or an unknown number.
int GetAcctIDFromRecordNumber(int32_t record_number, FixedString<16>& id);
// The record number of the account with that GUID; 0 when none.
int32_t GetAcctRecNumFromGUID(const GUID& guid);
// Clears guid (16 zero bytes); 1 with the account's GUID, 0 when absent.
int GetAcctGUIDFromRecNum(int32_t record_number, GUID& guid);
// Existence by a key-only read; no message. record_number is not changed.
bool AcntExistQuiet(const FixedString<16>& id);
bool AcntExistQuiet(int32_t& record_number);
// AcntExistQuiet, then message 2203 with the ID when absent (or the chart cannot be opened).
bool AcntExist(const FixedString<16>& id);
// 0 for retained earnings (type 18) and for null, -1 below (balance sheet), 1 above (income).
int WhatTypeAccount(AccountType* account);
// Reads the account: absent gives message 2203 and -1; a file that cannot be opened 0.
int WhatTypeAccountStr(const FixedString<16>& id);
// name := the type's name string (2208 for a type outside 0 to 30), at most 30 characters.
void GetAcntTypeName(int16_t type, FixedString<31>& name);
// Type 0 (cash); false for null.
bool IsCashAccount(void* account);
// Creates an empty chart file; message 2200 and false on failure (an existing file stays).
bool CreateChart();

// --- Transaction tests (messages; only Yes lets an inactive account be used) ----------
// true for an active account, or an inactive one when the user answers Yes to message 2204
// naming it; false after message 2203 when absent (2533 for AUHAcntTrxAllowed; the number
// form names no account), false silently when the chart cannot be opened.
bool AcntTrxAllowed(const FixedString<16>& id);
bool AcntTrxAllowed(int32_t record_number);
bool AUHAcntTrxAllowed(const FixedString<16>& id);

// --- Display strings ---------------------------------------------------------------------
// text := ID, tab, description, tab, type name (string 2207 when inactive), cut to the
// capacity text carries; empty for a null account.
void MakeAcntString(AccountType* account, FixedStringParamRef text);
// description := the account's description (at most 30 characters; string 2207 when
// inactive, 2206 when absent or no chart); answers whether the account was found.
bool SetAcntDesc(const FixedString<16>& id, FixedString<161>& description);
bool SetAcntDesc(int32_t record_number, FixedString<161>& description);
bool SetAcntDesc(const FixedString<16>& id, FixedString<31>& description);
bool SetAcntDesc(int32_t record_number, FixedString<31>& description);
// text := string 2252 (the amount, sign reversed for credit-normal types, is 0 or more) or
// 2253; string 2206 and false for an absent account.
bool bSetAcntTransDesc(const FixedString<16>& id, FixedString<31>& text, double amount);

// --- Sums --------------------------------------------------------------------------------
// Sums over the account's period amounts; 0 for a null account. Nothing is read.
// Net amounts of period indexes 0 to period (at most 41).
double GetAcntBalance(AccountType* account, int period);
// Net amounts from the first period of period's year to period; 0 for the year-opening
// slots 14 and 28 and for indexes past 41.
double GetAcntYTDAmt(AccountType* account, int period);
// The same sum (of the budget amounts for GetAcntYTDBudget), also written into text
// right-aligned in width characters ('-' after a negative amount, asterisks when it does
// not fit). text must hold width + 1 bytes; a width of 0 or less leaves text empty (one
// byte). A null text is left alone.
double GetAcntYTDAmt(AccountType* account, int period, int width, char* text);
double GetAcntYTDBudget(AccountType* account, int period, int width, char* text);

// --- Special accounts --------------------------------------------------------------------
// The first account of its type in ID order (retained earnings 18; payable 10 or
// receivable 1); false with id cleared when there is none.
bool GetRetEarnAcntID(FixedString<16>& id);
bool GetFirstAPARAcnt(FixedString<16>& id, uint8_t payable);
// -1 when the file cannot be opened; else 0, 1 or 2 (two or more) cash accounts, with
// the last cash account in ID order in id (cleared when there is none).
int GetCountCashAcnt(FixedString<16>& id);
// The module's default cash account from its settings record (10 reads payroll's), else
// the first cash account; false with id cleared when there is no cash account at all.
bool GetDefaultCashAcnt(ModuleType module, FixedString<16>& id);
// A record number of 0 becomes module 1's default cash account; message 1913 and false,
// record_number still 0, when there is none. A non-zero number is kept as it is.
bool GetCashAccountForBankRec(int32_t& record_number);
// The first cash account in ID order (active ones only with skip_inactive) through a
// handle of its own; false with id cleared when there is none.
bool GetFirstCashAccountForRegister(FixedString<16>& id, int skip_inactive);
// The account id names (empty id: the first cash account, or with any_account the first
// account of all) with its ID, description (30 characters) and last deposit ID. 1 found,
// 0 nothing found (id left as given, the two texts cleared), -1 file cannot be opened.
// Closes both chart handles at the end, AccountFile included.
int GetLastDepositIdForAcnt(FixedString<16>& id, FixedString<31>& description,
                            FixedString<9>& last_deposit_id, int any_account);

// Closes AccountFile, then the lookup handle, each only when open.
void CloseInternalChartFile();

#endif  // BASICS_CHART_H_
