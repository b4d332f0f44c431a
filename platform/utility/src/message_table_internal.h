// The built-in English message and string tables of the utility library, by number.
// Read-only constant data; safe from any thread.
#ifndef BASICS_PLATFORM_MESSAGE_TABLE_INTERNAL_H_
#define BASICS_PLATFORM_MESSAGE_TABLE_INTERNAL_H_

#include <cstddef>

struct NumberedText {
  int number;
  const char* text;
};

// The message text of a number (printf conversions %s and %ld mark its inserts), or null.
const char* FindMessageText(int number);
// Texts of record-manager statuses without an entry of their own (20000 + status): the
// %s insert is the file's name.
constexpr int kStatusMessageBase = 20000;
constexpr int kStatusMessageLast = 20999;
extern const char* const kGenericStatusMessage;
// A string resource, or null.
const char* FindStringText(unsigned id);

// The tables themselves, sorted by number, for tests that walk them.
const NumberedText* MessageTable(size_t* count);
const NumberedText* StringTable(size_t* count);

#endif  // BASICS_PLATFORM_MESSAGE_TABLE_INTERNAL_H_
