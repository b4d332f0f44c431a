// How the host program writes amounts and dates.
#include "text.h"

#include <cstdio>

#include "utility.h"

namespace host {

std::string Money(double amount) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", Round(amount));
  return text;
}

std::string MediumDate(const DatesType& date) {
  char text[16];
  MediumDateText(date, text, sizeof text);
  return text;
}

std::string DateText(const DatesType& date) {
  const std::string text = MediumDate(date);
  return text.empty() ? "-" : text;
}

bool IsSet(const DatesType& date) { return date.day != 0 || date.month != 0 || date.year != 0; }

}  // namespace host
