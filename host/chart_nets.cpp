#include "chart_nets.h"

namespace host {

bool RowPostsToLedger(const JrnlRowType& row, bool header_posted) {
  if (row.Kind == kRowInventoryCost1 || row.Kind == kRowInventoryCost2) return true;
  return row.LedgerFlag != 0 && header_posted;
}

void PeriodNets::Add(const JrnlRowType& row, double sign) {
  const double amount = row.Amount;
  if (IsZero(amount)) return;
  const int period = WhichGLperiod(row.Date);
  if (period < 0 || period >= kChartPeriods) {
    ++outside_;
    return;
  }
  const int32_t account = row.Account;  // a copy: the packed field binds to no reference
  AccountPeriodAmounts& slot = accounts_[account][static_cast<size_t>(period)];
  if (amount > 0) {
    slot.First += sign * amount;
  } else {
    slot.Second -= sign * amount;
  }
  slot.Net += sign * amount;
}

uint16_t AddLedgerRows(JrnlRowHdrClass& navigator, const JrnlDBFilesType& files, uint32_t first,
                       uint32_t last, double sign, PeriodNets* nets) {
  constexpr int16_t kPostOrderKey = 0;
  constexpr int16_t kHeaderPostOrderKey = 5;
  navigator.ClearRow();
  navigator.Row.PostOrder = first;
  uint32_t header_of = 0;
  bool posted = false;
  for (int ok = navigator.GetRowGE(kPostOrderKey); ok; ok = navigator.GetRowNext(kPostOrderKey)) {
    const JrnlRowType& row = navigator.Row;
    if (row.PostOrder > last) return 0;
    if (row.PostOrder != header_of || header_of == 0) {
      header_of = row.PostOrder;
      navigator.ClearHeader();
      navigator.Hdr.PostOrder = row.PostOrder;
      posted = navigator.GetHdrEqual(kHeaderPostOrderKey, kLockBiasNone) != 0 &&
               navigator.Hdr.LedgerFlag != 0;
      // The header read must not end the row walk: only a missing header is expected.
      const uint16_t status = GetErrorCode(files.HdrFile);
      if (status != 0 && status != kStatusKeyNotFound) return status;
    }
    if (RowPostsToLedger(row, posted)) nets->Add(row, sign);
  }
  const uint16_t status = GetErrorCode(files.RowFile);
  return status == kStatusEndOfFile || status == kStatusKeyNotFound ? 0 : status;
}

bool ApplyToChart(BtrvFile* chart, const PeriodNets& delta, std::string* what, uint16_t* status) {
  for (const auto& [number, periods] : delta.accounts()) {
    AccountType account{};
    account.RecordNumber = number;
    if (GetFileEqual(chart, kLockBiasNone, sizeof account, &account, kChartKeyRecordNumber) == 0) {
      *status = GetErrorCode(chart);
      *what = *status == kStatusKeyNotFound
                  ? "a row posts to account record " + std::to_string(number) +
                        ", which is not in the chart of accounts"
                  : "the chart of accounts cannot be read";
      return false;
    }
    for (int p = 0; p < kChartPeriods; ++p) {
      const AccountPeriodAmounts& d = periods[static_cast<size_t>(p)];
      AccountPeriodAmounts& a = account.Periods[p];
      a.First = Round(a.First + d.First);
      a.Second = Round(a.Second + d.Second);
      a.Net = Round(a.Net + d.Net);
    }
    if (UpdateFile(chart, sizeof account, &account, kChartKeyRecordNumber) == 0) {
      *status = GetErrorCode(chart);
      *what = "the chart of accounts cannot be updated";
      return false;
    }
  }
  return true;
}

}  // namespace host
