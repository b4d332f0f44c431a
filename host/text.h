// How the host program writes amounts and dates in its listings and reports.
#ifndef BASICS_HOST_TEXT_H_
#define BASICS_HOST_TEXT_H_

#include <string>

#include "zor_types.h"

namespace host {

// An amount in cents as "1234.50": rounded to two places, no thousands separators.
std::string Money(double amount);
// A date in the medium form ("Nov 25, 2026"); empty for a date that is not set.
std::string MediumDate(const DatesType& date);
// MediumDate, with "-" for a date that is not set (a table cell that must not be empty).
std::string DateText(const DatesType& date);
// Whether any part of the date is set.
bool IsSet(const DatesType& date);

}  // namespace host

#endif  // BASICS_HOST_TEXT_H_
