// Chart of accounts: the special accounts (retained earnings, the first receivable and
// payable accounts, cash accounts by count, by module default, for bank reconciliation,
// for the register and for deposits).
#include <cstring>

#include "CHART.h"
#include "CHART_internal.h"
#include "General.h"
#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "record_manager.h"
#include "utility.h"

namespace {

constexpr int kMsgNoCashAccount = 1913;
constexpr size_t kIdChars = 15;

// Hands out the ID of the first account of type in key-1 order, cleared when there is none.
bool FirstAccountIdOfType(int16_t type, FixedString<16>& id) {
  id.Clear();
  BtrvFile* file = ChartLookupFile();
  AccountType account;
  if (file == nullptr || !ReadFirstAccountOfType(file, type, kLockBiasNone, &account)) {
    return false;
  }
  Assign(id, account.ID.s, kIdChars);
  return true;
}

// The record number of a module's default cash account in its settings record, 0 when the
// module keeps none or the record cannot be had. Receivables and payables keep it at
// offset 6, payroll at 1900 and the general ledger at 896; the other modules have no cash
// account of their own, so their records are not read at all.
int32_t DefaultCashRecordNumber(ModuleType module) {
  if (module != MOD_AR && module != MOD_AP && module != MOD_PR && module != MOD_GL) return 0;
  GeneralDataType* settings = nullptr;
  if (!GetGeneralDataPtr(nullptr, &settings, module, kGenReadForReading, false) ||
      settings == nullptr) {
    return 0;
  }
  switch (module) {
    case MOD_AR:
      return settings->AR.DefaultCashAccount;
    case MOD_AP:
      return settings->AP.DefaultCashAccount;
    case MOD_PR:
      return settings->PR.DefaultCashAccount;
    default:
      return settings->GL.DefaultCashAccount;
  }
}

}  // namespace

bool GetRetEarnAcntID(FixedString<16>& id) {
  return FirstAccountIdOfType(kAcctTypeRetainedEarnings, id);
}

bool GetFirstAPARAcnt(FixedString<16>& id, uint8_t payable) {
  return FirstAccountIdOfType(payable ? kAcctTypePayable : kAcctTypeReceivable, id);
}

int GetCountCashAcnt(FixedString<16>& id) {
  id.Clear();
  BtrvFile* file = ChartLookupFile();
  if (file == nullptr) return -1;
  // Cash is type 0, so walking back from the first receivable key meets the cash accounts
  // from the highest ID down; two are enough to know that the user has to choose.
  AccountType account;
  std::memset(&account, 0, sizeof(account));
  account.Type = kAcctTypeReceivable;
  int count = 0;
  bool found = GetFileLess(file, kLockBiasNone, kAccountRecordLength, &account, kChartKeyTypeID);
  while (found && account.Type == kAcctTypeCash) {
    if (++count == 1) Assign(id, account.ID.s, kIdChars);
    if (count == 2) break;
    found = GetFilePrevious(file, kLockBiasNone, kAccountRecordLength, &account, kChartKeyTypeID);
  }
  return count;
}

bool GetDefaultCashAcnt(ModuleType module, FixedString<16>& id) {
  if (module == MOD_PR_CASH) module = MOD_PR;
  // GetAcctIDFromRecordNumber clears the ID unless the account exists, so an empty ID
  // covers both the missing setting and the vanished account.
  GetAcctIDFromRecordNumber(DefaultCashRecordNumber(module), id);
  if (!id.IsEmpty()) return true;
  return FirstAccountIdOfType(kAcctTypeCash, id);
}

bool GetCashAccountForBankRec(int32_t& record_number) {
  if (record_number == 0) {
    FixedString<16> id;
    if (GetDefaultCashAcnt(MOD_AR, id)) record_number = GetAcctRecNumFromID(id);
  }
  if (record_number != 0) return true;
  Message(MB_ICONEXCLAMATION, kMsgNoCashAccount);
  return false;
}

bool GetFirstCashAccountForRegister(FixedString<16>& id, int skip_inactive) {
  id.Clear();
  // A handle of its own, so that the walk leaves the lookup handle's position alone.
  BtrvFile* file = nullptr;
  if (!OpenChartFile(&file, kOpenModeReadOnly)) return false;
  AccountType account;
  std::memset(&account, 0, sizeof(account));
  account.Type = kAcctTypeCash;
  bool found = GetFileGE(file, kLockBiasNone, kAccountRecordLength, &account, kChartKeyTypeID);
  while (skip_inactive && found && account.Type == kAcctTypeCash && account.Inactive) {
    found = GetFileNext(file, kLockBiasNone, kAccountRecordLength, &account, kChartKeyTypeID);
  }
  found = found && account.Type == kAcctTypeCash;
  if (found) Assign(id, account.ID.s, kIdChars);
  CloseIfOpen(&file, kChartUnit, __LINE__);
  return found;
}

int GetLastDepositIdForAcnt(FixedString<16>& id, FixedString<31>& description,
                            FixedString<9>& last_deposit_id, int any_account) {
  description.Clear();
  last_deposit_id.Clear();
  int result = -1;
  if (BtrvFile* file = ChartLookupFile()) {
    // Locked reads: the deposit screen takes the account's next deposit number from what
    // it reads here, and the lock keeps another user from taking it at the same moment.
    AccountType account;
    bool found;
    if (id.IsEmpty()) {
      found = ReadFirstAccountOfType(file, kAcctTypeCash, kLockBiasSingleNoWait, &account);
      if (!found && any_account) {
        std::memset(&account, 0, sizeof(account));
        found = GetFileLowest(file, kLockBiasSingleNoWait, kAccountRecordLength, &account,
                              kChartKeyID) != 0;
      }
    } else {
      std::memset(&account, 0, sizeof(account));
      Assign(account.ID, id.s, kIdChars);
      found = GetFileEqual(file, kLockBiasSingleNoWait, kAccountRecordLength, &account,
                           kChartKeyID) != 0;
    }
    result = 0;
    if (found) {
      Assign(id, account.ID.s, kIdChars);
      Assign(description, account.Description.s, 30);
      Assign(last_deposit_id, account.LastDepositID.s, 8);
      result = 1;
    }
  }
  // Closing both chart handles is what drops the lock again; the host reopens AccountFile
  // when it needs it.
  CloseInternalChartFile();
  return result;
}
