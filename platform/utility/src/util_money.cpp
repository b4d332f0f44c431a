// Money helpers: amounts are doubles in currency units. Round works on the value's
// shortest decimal form, so that what the user typed (2.675) rounds as typed, whatever
// the binary value below it. Pure functions; safe from any thread.

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>

#include "utility.h"

double Round(double amount) {
  if (!std::isfinite(amount)) return amount;
  // The shortest digits that read back as this double: "2.675e+00" for 2.675, although
  // the double itself is 2.67499999999999982236431605997495353221893310546875.
  char text[64];
  std::to_chars_result written =
      std::to_chars(text, text + sizeof text - 1, amount, std::chars_format::scientific);
  if (written.ec != std::errc()) return amount;
  *written.ptr = '\0';

  const char* p = text;
  bool negative = false;
  if (*p == '-') {
    negative = true;
    ++p;
  }
  char digits[32];
  int count = 0;
  for (; *p != '\0' && *p != 'e'; ++p) {
    if (*p >= '0' && *p <= '9' && count < static_cast<int>(sizeof digits)) digits[count++] = *p;
  }
  if (*p != 'e' || count == 0) return amount;
  int exponent = std::atoi(p + 1);

  // The value is 0.d1d2d3... * 10^(exponent + 1); keeping two decimals keeps the first
  // exponent + 3 digits.
  int keep = exponent + 3;
  if (keep >= count) return amount;  // already at most two decimals
  if (keep < 0) return 0.0;          // under a thousandth: rounds to zero

  // Half away from zero: the first dropped digit decides, whatever follows it.
  std::string kept(digits, static_cast<size_t>(keep));
  if (digits[keep] >= '5') {
    int i = keep - 1;
    while (i >= 0 && kept[static_cast<size_t>(i)] == '9') {
      kept[static_cast<size_t>(i)] = '0';
      --i;
    }
    if (i >= 0) {
      ++kept[static_cast<size_t>(i)];
    } else {
      kept.insert(kept.begin(), '1');
    }
  }
  if (kept.empty()) return 0.0;
  // kept is the amount in hundredths; reading "kept e-2" gives the double nearest to
  // the decimal result.
  std::string decimal = kept + "e-2";
  double result = 0.0;
  std::from_chars_result read =
      std::from_chars(decimal.data(), decimal.data() + decimal.size(), result);
  if (read.ec != std::errc()) return amount;
  // A negative amount that rounds to zero is plain zero, so that it prints as "0.00".
  if (result == 0.0) return 0.0;
  return negative ? -result : result;
}

bool IsZero(double amount) { return std::fabs(amount) < 0.005; }

void AppendRtoString(char* text, double amount, int width, int max_width, char neg_sign) {
  if (text == nullptr) return;
  double rounded = Round(amount);
  bool negative = rounded < 0.0;
  char number[400];
  int length = std::snprintf(number, sizeof number - 2, "%.2f", std::fabs(rounded));
  if (length < 0 || length >= static_cast<int>(sizeof number) - 2) {
    length = 0;
    number[0] = '\0';
  }
  if (negative && neg_sign != '\0') {
    number[length++] = neg_sign;
    number[length] = '\0';
  }
  // Fields wider than a report line make no sense; the bound keeps a bad width from
  // writing far past the caller's buffer.
  const int kMaxField = 255;
  if (width > kMaxField) width = kMaxField;
  if (max_width > kMaxField) max_width = kMaxField;

  char* end = text + std::strlen(text);
  if (max_width > 0 && length > max_width) {
    // Too wide for its column: the column shows asterisks, as a report would.
    int pad = width > max_width ? width - max_width : 0;
    std::memset(end, ' ', static_cast<size_t>(pad));
    std::memset(end + pad, '*', static_cast<size_t>(max_width));
    end[pad + max_width] = '\0';
    return;
  }
  int pad = width > length ? width - length : 0;
  std::memset(end, ' ', static_cast<size_t>(pad));
  std::memcpy(end + pad, number, static_cast<size_t>(length) + 1);
}
