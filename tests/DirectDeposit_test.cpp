// Direct-deposit records: exact and date-blind comparisons within the numbers' lengths,
// copies between record and wrapper, and transmit readiness through derived checks.
#include "DirectDeposit.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "utility.h"

namespace {

CDirectDepositAccount SampleAccount() {
  CDirectDepositAccount account;
  std::memset(&account, 0, sizeof(account));
  account.AccountCode = 2;
  std::strcpy(account.AccountNumber, "000123456789");
  std::strcpy(account.RoutingNumber, "021000021");
  std::memset(account.FurtherData, 0x5A, sizeof(account.FurtherData));
  MakeDate(3, 15, 2024, account.AccountDate);
  account.AccountValue = 250.75;
  return account;
}

// A host class that supplies only the two pure operations: the library's checks stay.
class HostInfo : public CDirectDepositAccountInfo {
 public:
  using CDirectDepositAccountInfo::CDirectDepositAccountInfo;
  using CDirectDepositAccountInfo::operator=;
  bool ValidateRoutingNbrChars(CDirectDepositAccount&) override { return true; }
  bool ValidateBankAcntNbrChars(CDirectDepositAccount&) override { return true; }
};

// A host class with bank checks of its own, logging the order of the calls.
class BankInfo : public HostInfo {
 public:
  using HostInfo::HostInfo;
  bool ValidateRountingNbr(CDirectDepositAccount& a) override {
    log += "R";
    return std::strlen(a.RoutingNumber) == 9;
  }
  bool ValidateBankAcntNbr(CDirectDepositAccount&) override {
    log += "A";
    return true;
  }
  std::string log;
};

TEST(DirectDepositTest, EqualityIsExactAndEquivIgnoresTheDate) {
  const CDirectDepositAccount a = SampleAccount();
  CDirectDepositAccount b = a;
  std::memset(b.FurtherData, 0, sizeof(b.FurtherData));  // never compared
  EXPECT_TRUE(a == b);
  b.AccountDate.day = 16;
  EXPECT_TRUE(a != b);
  EXPECT_TRUE(a.Equiv(b));
  EXPECT_TRUE(HostInfo(a) != HostInfo(b) && HostInfo(a).Equiv(HostInfo(b)));
  b.AccountValue += 0.001;  // values compare exactly
  EXPECT_FALSE(a.Equiv(b));

  // Only the first 17 characters of the account number and 9 of the routing number count.
  CDirectDepositAccount c = a, d = a;
  std::memcpy(c.AccountNumber, "12345678901234567X", 18);
  std::memcpy(d.AccountNumber, "12345678901234567Y", 18);
  std::memcpy(c.RoutingNumber, "021000021A", 10);
  std::memcpy(d.RoutingNumber, "021000021B", 10);
  EXPECT_TRUE(c == d);
  d.AccountNumber[16] = '8';
  EXPECT_FALSE(c.Equiv(d));
  d = c;
  d.RoutingNumber[8] = '2';
  EXPECT_FALSE(c.Equiv(d));
}

TEST(DirectDepositTest, CopiesAndInitCoverEveryField) {
  const CDirectDepositAccount a = SampleAccount();
  HostInfo info;
  info.Init();
  const CDirectDepositAccount zero{};
  EXPECT_EQ(std::memcmp(&info.Account(), &zero, sizeof(zero)), 0);
  info = a;
  CDirectDepositAccount out;
  std::memset(&out, 0xFF, sizeof(out));
  out = info;
  EXPECT_EQ(std::memcmp(&out, &a, sizeof(a)), 0);  // further data included
}

TEST(DirectDepositTest, TransmitNeedsTheOverrideOrTheHostsChecks) {
  CDirectDepositAccount account = SampleAccount();
  HostInfo plain(account);
  EXPECT_FALSE(plain.EnoughDataToTransmit(account));  // the library's checks reject all
  account.TransmitReady = 1;
  account.AccountNumber[0] = '\0';
  EXPECT_TRUE(plain.EnoughDataToTransmit(account));

  BankInfo bank;
  CDirectDepositAccountInfo& base = bank;  // called virtually, as payroll calls it
  account = SampleAccount();
  EXPECT_TRUE(base.EnoughDataToTransmit(account));
  account.RoutingNumber[8] = '\0';  // routing check fails: the account check is skipped
  EXPECT_FALSE(base.EnoughDataToTransmit(account));
  account.RoutingNumber[0] = '\0';  // a missing number fails before any check
  EXPECT_FALSE(base.EnoughDataToTransmit(account));
  EXPECT_EQ(bank.log, "RAR");
}

}  // namespace
