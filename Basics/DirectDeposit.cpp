// Direct deposit: comparisons and copies of the bank-account record, and the wrapper's
// transmit-readiness rule around the bank checks that the host's derived classes supply.
#include "DirectDeposit.h"

#include <cstring>

#include "utility.h"

namespace {

// Characters of the numbers that take part in a comparison: what the bank file carries.
constexpr size_t kAccountNumberChars = 17;
constexpr size_t kRoutingNumberChars = 9;

// Every compared field but the account date.
bool SameExceptDate(const CDirectDepositAccount& a, const CDirectDepositAccount& b) {
  return a.AccountCode == b.AccountCode &&
         CompareStr(a.AccountNumber, b.AccountNumber, kAccountNumberChars) == 0 &&
         CompareStr(a.RoutingNumber, b.RoutingNumber, kRoutingNumberChars) == 0 &&
         a.TransmitReady == b.TransmitReady && a.AccountValue == b.AccountValue &&
         a.AccountValueCode == b.AccountValueCode;
}

void CopyAccount(CDirectDepositAccount& to, const CDirectDepositAccount& from) {
  if (&to == &from) return;
  to.AccountCode = from.AccountCode;
  std::memcpy(to.AccountNumber, from.AccountNumber, sizeof(to.AccountNumber));
  std::memcpy(to.RoutingNumber, from.RoutingNumber, sizeof(to.RoutingNumber));
  to.TransmitReady = from.TransmitReady;
  std::memcpy(to.FurtherData, from.FurtherData, sizeof(to.FurtherData));
  to.AccountDate = from.AccountDate;
  to.AccountValue = from.AccountValue;
  to.AccountValueCode = from.AccountValueCode;
}

}  // namespace

// --- CDirectDepositAccount ------------------------------------------------------------------

bool CDirectDepositAccount::operator==(const CDirectDepositAccount& other) const {
  if (this == &other) return true;
  return SameExceptDate(*this, other) && CompareDates(AccountDate, other.AccountDate) == 0;
}

// The date only records when the details were last entered: two records that differ in it
// alone send the money to the same place.
bool CDirectDepositAccount::Equiv(const CDirectDepositAccount& other) const {
  return *this == other || SameExceptDate(*this, other);
}

CDirectDepositAccount& CDirectDepositAccount::operator=(const CDirectDepositAccountInfo& info) {
  CopyAccount(*this, info.Account());
  return *this;
}

// --- CDirectDepositAccountInfo --------------------------------------------------------------

// The account is deliberately left as the memory was: every caller follows with Init or
// an assignment.
CDirectDepositAccountInfo::CDirectDepositAccountInfo() { std::memset(state_, 0, sizeof(state_)); }

CDirectDepositAccountInfo::CDirectDepositAccountInfo(const CDirectDepositAccount& account) {
  std::memset(state_, 0, sizeof(state_));
  InitializeFrom_CDirectDepositAccount(account);
}

CDirectDepositAccountInfo& CDirectDepositAccountInfo::operator=(
    const CDirectDepositAccount& account) {
  InitializeFrom_CDirectDepositAccount(account);
  return *this;
}

CDirectDepositAccountInfo::~CDirectDepositAccountInfo() = default;

void CDirectDepositAccountInfo::InitializeFrom_CDirectDepositAccount(
    const CDirectDepositAccount& account) {
  CopyAccount(account_, account);
}

void CDirectDepositAccountInfo::Init() {
  std::memset(&account_, 0, sizeof(account_));
  account_.AccountCode = 0;
  account_.AccountNumber[0] = '\0';
  account_.RoutingNumber[0] = '\0';
}

bool CDirectDepositAccountInfo::operator==(const CDirectDepositAccountInfo& other) const {
  return account_ == other.account_;
}

bool CDirectDepositAccountInfo::Equiv(const CDirectDepositAccountInfo& other) const {
  return account_.Equiv(other.account_);
}

// The library knows no bank's rules: an account passes only through a derived class that
// overrides both checks.
bool CDirectDepositAccountInfo::ValidateRountingNbr(CDirectDepositAccount& /*account*/) {
  return false;
}

bool CDirectDepositAccountInfo::ValidateBankAcntNbr(CDirectDepositAccount& /*account*/) {
  return false;
}

bool CDirectDepositAccountInfo::EnoughDataToTransmit(CDirectDepositAccount& account) {
  if (account.TransmitReady != 0) return true;
  if (account.AccountNumber[0] == '\0' || account.RoutingNumber[0] == '\0') return false;
  return ValidateRountingNbr(account) && ValidateBankAcntNbr(account);
}
