// What the chart units share and hosts must not call: the private read-only lookup handle,
// the record-number existence test with its message, and small record helpers. Builds on
// the record manager. Not thread-safe (the host serialises chart calls).
#ifndef BASICS_CHART_INTERNAL_H_
#define BASICS_CHART_INTERNAL_H_

#include <cstdint>

#include "CHART.h"
#include "record_manager.h"

// Source name passed to the record manager with the chart units' opens and closes.
inline constexpr const char* kChartUnit = "Basics/CHART";
inline constexpr uint32_t kAccountRecordLength = sizeof(AccountType);

// The chart's private lookup handle, opened read-only (254) on first use; null when the
// chart file cannot be opened (the caller answers not found, silently).
BtrvFile* ChartLookupFile();

// AcntExistQuiet by record number; when absent shows message 2203 with the text
// "record #N".
bool AcntExist(int32_t& record_number);

// Clears the record, sets its type and an empty ID, and reads the first account at or
// after them in type order (key 1) with the given lock bias. Answers true only when the
// account found has that type; the record then holds it.
bool ReadFirstAccountOfType(BtrvFile* file, int16_t type, uint16_t lock, AccountType* account);

#endif  // BASICS_CHART_INTERNAL_H_
