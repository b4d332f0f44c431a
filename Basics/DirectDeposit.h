// Direct deposit: the bank-account record kept in payroll records (CDirectDepositAccount)
// and the wrapper through which the host edits and checks it (CDirectDepositAccountInfo),
// whose bank-specific checks come from the host's derived classes. Builds on the utility
// library only. Value types; not shared between threads.
#ifndef BASICS_DIRECTDEPOSIT_H_
#define BASICS_DIRECTDEPOSIT_H_

#include <cstddef>
#include <cstdint>

#include "zor_types.h"

class CDirectDepositAccountInfo;

// CDirectDepositAccount, 64 bytes (part of the employee data format).
//   offset  size  field
//        0     2  account code
//        2    18  bank account number (17 characters and terminator)
//       20    10  bank routing number (9 characters and terminator)
//       30     2  transmit-ready override (non-zero: complete without further checks)
//       32    16  further account data, copied but never compared
//       48     4  account date
//       52     8  account value (double)
//       60     4  account value code
#pragma pack(push, 1)
class CDirectDepositAccount {
 public:
  uint16_t AccountCode;
  char AccountNumber[18];
  char RoutingNumber[10];
  int16_t TransmitReady;
  uint8_t FurtherData[16];
  DatesType AccountDate;
  double AccountValue;
  uint32_t AccountValueCode;

  // Exact comparison (the further data excepted); the numbers are compared as text up to
  // their terminators (17 and 9 characters at most).
  bool operator==(const CDirectDepositAccount& other) const;
  bool operator!=(const CDirectDepositAccount& other) const { return !(*this == other); }
  // The same comparison without the account date.
  bool Equiv(const CDirectDepositAccount& other) const;
  // Copies the wrapper's account field by field; answers *this.
  CDirectDepositAccount& operator=(const CDirectDepositAccountInfo& info);
  CDirectDepositAccount& operator=(const CDirectDepositAccount& other) = default;
};
#pragma pack(pop)
static_assert(sizeof(CDirectDepositAccount) == 64, "CDirectDepositAccount is 64 bytes");
static_assert(offsetof(CDirectDepositAccount, AccountNumber) == 2, "account number at 2");
static_assert(offsetof(CDirectDepositAccount, RoutingNumber) == 20, "routing number at 20");
static_assert(offsetof(CDirectDepositAccount, TransmitReady) == 30, "override at 30");
static_assert(offsetof(CDirectDepositAccount, FurtherData) == 32, "further data at 32");
static_assert(offsetof(CDirectDepositAccount, AccountDate) == 48, "date at 48");
static_assert(offsetof(CDirectDepositAccount, AccountValue) == 52, "value at 52");
static_assert(offsetof(CDirectDepositAccount, AccountValueCode) == 60, "value code at 60");

// The host derives from this class and supplies the bank-specific checks; the library's
// own checks reject everything, so an account is ready to transmit here only through its
// override.
class CDirectDepositAccountInfo {
 public:
  // Clears the state bytes; the account is left as the memory was until Init or an
  // assignment, so it must not be read or compared before one.
  CDirectDepositAccountInfo();
  // Keeps its own copy of account; the argument stays the caller's.
  explicit CDirectDepositAccountInfo(const CDirectDepositAccount& account);
  CDirectDepositAccountInfo& operator=(const CDirectDepositAccount& account);
  virtual ~CDirectDepositAccountInfo();

  // The library's own checks answer false (it knows no bank's rules); a derived class
  // overrides them. None of the checks changes account.
  virtual bool ValidateRountingNbr(CDirectDepositAccount& account);
  virtual bool ValidateRoutingNbrChars(CDirectDepositAccount& account) = 0;
  virtual bool ValidateBankAcntNbr(CDirectDepositAccount& account);
  virtual bool ValidateBankAcntNbrChars(CDirectDepositAccount& account) = 0;
  // The override; else both numbers present and both number checks
  // (ValidateRountingNbr, ValidateBankAcntNbr) passed.
  virtual bool EnoughDataToTransmit(CDirectDepositAccount& account);

  // Account code 0, both numbers emptied, every other field zero.
  void Init();
  // Compare the wrapped accounts as CDirectDepositAccount's == and Equiv do.
  bool operator==(const CDirectDepositAccountInfo& other) const;
  bool operator!=(const CDirectDepositAccountInfo& other) const { return !(*this == other); }
  bool Equiv(const CDirectDepositAccountInfo& other) const;

  // The wrapper's own account, valid while the wrapper lives.
  CDirectDepositAccount& Account() { return account_; }
  const CDirectDepositAccount& Account() const { return account_; }

 protected:
  // Copies every field of account into the wrapper's account.
  void InitializeFrom_CDirectDepositAccount(const CDirectDepositAccount& account);

 private:
  uint8_t state_[5];
  CDirectDepositAccount account_;
};

#endif  // BASICS_DIRECTDEPOSIT_H_
