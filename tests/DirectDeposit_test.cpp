// Direct-deposit records: exact and date-blind comparisons within the numbers' lengths,
// copies between record and wrapper, and transmit readiness through derived checks.
#include "DirectDeposit.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Bools = std::vector<bool>;

// Account code 2, the two numbers, no override, no further data, 15 March 2024, 250.75.
const CDirectDepositAccount kSample = {2,  "000123456789", "021000021", 0,
                                       {}, {15, 3, 2024},  250.75,      0};

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
  bool ValidateRountingNbr(CDirectDepositAccount& a) override {
    return log += 'R', a.RoutingNumber[8];
  }
  bool ValidateBankAcntNbr(CDirectDepositAccount&) override { return log += 'A', true; }
  std::string log;
};

TEST(DirectDepositTest, EqualityIsExactAndEquivIgnoresTheDate) {
  CDirectDepositAccount b = kSample;
  std::memset(b.FurtherData, 0x5A, sizeof(b.FurtherData));  // never compared
  EXPECT_TRUE(kSample == b);
  b.AccountDate.day = 16;
  EXPECT_TRUE(kSample != b && kSample.Equiv(b));
  EXPECT_TRUE(HostInfo(kSample) != HostInfo(b) && HostInfo(kSample).Equiv(HostInfo(b)));
  b.AccountValue += 0.001;  // values compare exactly
  EXPECT_FALSE(kSample.Equiv(b));

  // Only the first 17 characters of the account number and 9 of the routing number count.
  CDirectDepositAccount c = kSample;
  std::memcpy(c.AccountNumber, "12345678901234567X", 18);
  std::memcpy(c.RoutingNumber, "021000021A", 10);
  CDirectDepositAccount d = c, e = c, f = c;
  d.AccountNumber[17] = d.RoutingNumber[9] = 'Y';
  e.AccountNumber[16] = f.RoutingNumber[8] = '8';
  EXPECT_EQ((Bools{c == d, c.Equiv(e), c.Equiv(f)}), (Bools{true, false, false}));
}

TEST(DirectDepositTest, CopiesAndInitCoverEveryField) {
  CDirectDepositAccount a = kSample, out, zero = {};
  a.FurtherData[15] = 0x5A;  // further data included
  std::memset(&out, 0xFF, sizeof(out));
  HostInfo info;
  out = info = a;  // into the wrapper and out again
  EXPECT_EQ(std::memcmp(&out, &a, sizeof(a)), 0);
  info.Init();
  EXPECT_EQ(std::memcmp(&info.Account(), &zero, sizeof(zero)), 0);
}

TEST(DirectDepositTest, TransmitNeedsTheOverrideOrTheHostsChecks) {
  CDirectDepositAccount account = kSample, ready = kSample, cut = kSample, none = kSample;
  ready.TransmitReady = 1;  // the override, whatever the numbers
  ready.AccountNumber[0] = '\0';
  cut.RoutingNumber[8] = '\0';   // a short routing number fails the check: no account check
  none.RoutingNumber[0] = '\0';  // a missing number fails before any check
  HostInfo plain;                // the library's own checks reject every account
  BankInfo bank;
  CDirectDepositAccountInfo& base = bank;  // called virtually, as payroll calls it
  EXPECT_EQ((Bools{plain.EnoughDataToTransmit(account), plain.EnoughDataToTransmit(ready),
                   base.EnoughDataToTransmit(account), base.EnoughDataToTransmit(cut),
                   base.EnoughDataToTransmit(none)}),
            (Bools{false, true, true, false, false}));
  EXPECT_EQ(bank.log, "RAR");
}

}  // namespace
