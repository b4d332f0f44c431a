// The host's utility library: date operations, money helpers, string helpers, messages
// and string resources by number, host hooks (message handler, broadcasts), GUIDs,
// temporary names, file deletion and status, company-wide access markers, and the
// standard file-name and owner-name globals. Builds on zor_types.h and the record
// manager. Date, money and string helpers are thread-safe; the message and broadcast
// handlers are called on the caller's thread.
#ifndef BASICS_PLATFORM_UTILITY_H_
#define BASICS_PLATFORM_UTILITY_H_

#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>

#include "zor_types.h"

// ---------------------------------------------------------------------------------------
// Dates
// ---------------------------------------------------------------------------------------

// Steps of IncDate and DecDate.
constexpr int kStepDay = 1;
constexpr int kStepWeek = 2;
constexpr int kStepMonth = 3;
constexpr int kStepYear = 4;

// Today's date: the system date when the library loads; hosts and tests may assign it.
extern DatesType TodaysDate;

// Fills date from its parts, each cut to its field's width (no validation; see IsLegalDate).
void MakeDate(int month, int day, int year, DatesType& date);
// Steps a date forward or back by a day, week, month or year. Month and year steps keep
// the day, clamped to the last day of the target month (31 January + 1 month = 28 or 29
// February). The date is left as it was when it is the zero date, when a month or year
// step meets a month outside 1-12, when the result's year would not fit 16 bits, and for
// an unknown step.
void IncDate(DatesType& date, int step);
void DecDate(DatesType& date, int step);
// Sets the day to the last day of the date's month; a month outside 1-12 is left alone.
void EndOfMonth(DatesType& date);
// Serial day number: 1 for 1 January of year 1 (proleptic Gregorian), increasing by one
// per day. 0 for the zero date.
int32_t AbsDate(const DatesType& date);
// Day of the week of a serial day number: 0 Sunday (the first day of the week) to 6.
int DayOfWeek(int32_t abs_date);
// 1 when a is later than b, 0 when equal, -1 when earlier (by year, month, day).
int CompareDates(const DatesType& a, const DatesType& b);
// -1 when date is before range.from, 0 inside (both ends included), 1 after range.to.
int DateInRange(const FromTo& range, const DatesType& date);
// A real calendar date (month 1-12, day within the month, year 1-9999).
bool IsLegalDate(const DatesType& date);
// Medium date text, 12 characters: "Jan 05, 2026" ("???" for a month outside 1-12); an
// empty string for the zero date. Writes at most capacity - 1 characters and a
// terminator; answers the length written (0, nothing written, for null or capacity 0).
int MediumDateText(const DatesType& date, char* out, size_t capacity);
// The clock's local date now; the zero date when it cannot be converted.
DatesType SystemDate();

// The wall clock in seconds since the epoch. The library reads time only through it, so
// that hosts and tests may replace it (an empty function restores the system clock).
time_t ClockNow();
void SetClock(std::function<time_t()> clock);

// ---------------------------------------------------------------------------------------
// Money (amounts are doubles in currency units; cents are the second decimal)
// ---------------------------------------------------------------------------------------

// Rounds to 2 decimals, half away from zero, by the value's shortest decimal form, so
// that 2.675 (stored as 2.67499999...) rounds to 2.68. Infinities and NaN come back as
// they are.
double Round(double amount);
// True when the amount is under half a cent in magnitude.
bool IsZero(double amount);
// Appends the amount (rounded) right-aligned in width characters with 2 decimals to the
// terminated text; a negative amount is written without its sign and followed by neg_sign
// (when not '\0'). A value that does not fit in max_width characters is written as
// asterisks. Widths are cut to 255. With max_width > 0 it appends at most
// max(width, max_width) characters and a terminator; with max_width 0 or less nothing
// limits it and the whole number is appended (up to 313 characters): the caller's buffer
// must have room for it. A null text is left alone.
void AppendRtoString(char* text, double amount, int width, int max_width, char neg_sign);

// ---------------------------------------------------------------------------------------
// Strings
// ---------------------------------------------------------------------------------------

// Copies src (null: empty) into dst of the given capacity (counting the terminator), cut to
// capacity - 1 characters; always terminates. Answers dst; null dst or capacity 0 writes
// nothing.
char* sstrcpy(char* dst, const char* src, size_t capacity);
// Appends src to dst of the given capacity, cut to fit; always terminates (a dst not
// terminated within capacity is cut to capacity - 1). Answers dst.
char* sstrcat(char* dst, const char* src, size_t capacity);
// Length of a terminated string; 0 for null.
size_t Length(const char* text);
// Removes leading and trailing blanks (spaces and tabs) in place; answers text (null stays
// null).
char* Trim(char* text);
// Byte-wise, case-sensitive comparison of at most n characters, stopping at a
// terminator: negative, 0 or positive like strncmp. The same order as the ID keys. A null
// string compares as empty.
int CompareStr(const char* a, const char* b, size_t n);

// Copies at most max_chars characters of src into a fixed string (cut to its capacity).
template <size_t N>
void Assign(FixedString<N>& dst, const char* src, size_t max_chars = N - 1) {
  dst.Set(src, max_chars);
}
// Appends src to a fixed string, cut to its capacity.
template <size_t N>
void Append(FixedString<N>& dst, const char* src) {
  sstrcat(dst.s, src, N);
}

// ---------------------------------------------------------------------------------------
// Messages and string resources
// ---------------------------------------------------------------------------------------

// Message-box styles and answers (message-box numbering).
constexpr unsigned MB_OK = 0x00;
constexpr unsigned MB_OKCANCEL = 0x01;
constexpr unsigned MB_ABORTRETRYIGNORE = 0x02;
constexpr unsigned MB_YESNOCANCEL = 0x03;
constexpr unsigned MB_YESNO = 0x04;
constexpr unsigned MB_RETRYCANCEL = 0x05;
constexpr unsigned MB_ICONSTOP = 0x10;
constexpr unsigned MB_ICONQUESTION = 0x20;
constexpr unsigned MB_ICONEXCLAMATION = 0x30;  // 48, the warning style
constexpr unsigned MB_ICONINFORMATION = 0x40;  // 64, the information style
constexpr unsigned MB_BUTTONS_MASK = 0x0F;

constexpr int IDOK = 1;
constexpr int IDCANCEL = 2;
constexpr int IDABORT = 3;
constexpr int IDRETRY = 4;
constexpr int IDIGNORE = 5;
constexpr int IDYES = 6;
constexpr int IDNO = 7;

// What a host's message handler receives.
struct HostMessage {
  int number = 0;      // message number; 0 for a text shown directly (MessageBoxText)
  unsigned style = 0;  // buttons | icon
  std::string text;    // the formatted text
};

typedef std::function<int(const HostMessage&)> MessageHandler;
typedef std::function<void(unsigned message, uintptr_t wparam, const void* lparam)>
    BroadcastHandler;

// Installs the host's message handler (an empty function restores the default: the text
// goes to standard error and the answer is OK for information and warnings, No for
// questions, Cancel where Retry and Cancel are offered, Ignore for Abort/Retry/Ignore).
// The handlers are kept by copy and called on the caller's thread, outside any lock, so
// they may show messages or replace themselves.
void SetMessageHandler(MessageHandler handler);
// The answer the default handler gives to a message of style: the choice that changes
// nothing (for a handler that keeps messages from the user but answers as the default).
int DefaultMessageAnswer(unsigned style);
void SetBroadcastHandler(BroadcastHandler handler);
// Delivers a notice to the host's windows synchronously (nothing without a handler);
// lparam is only lent for the call.
void BroadcastMessage(unsigned message, uintptr_t wparam, const void* lparam);

// Shows message number with its table text and answers the host's choice (a number the
// table lacks shows "Message N" and its inserts). Text arguments are only read during the
// call; null reads as empty.
int Message(unsigned style, int number);
// The same, the text's string insert filled with text.
int MessageWithString(unsigned style, int number, const char* text);
// The same with two string inserts (a card or item and a second name).
int MessageWithCard(unsigned style, int number, const char* first, const char* second);
// The same with one number insert (a status, a record kind, a record number).
int MessageWithPara(unsigned style, int number, int32_t value);
// Shows a text that is not in the table (number 0).
int MessageBoxText(unsigned style, const char* text);
// The table text of a message number, or null when the table has none. The text is static:
// valid for the life of the process; never freed by the caller.
const char* MessageText(int number);

typedef void* HINSTANCE;
// Copies string resource id into buffer (at most capacity - 1 characters); answers the
// number of characters copied, 0 with buffer emptied when the table has no such string
// (nothing written for a null buffer or a capacity of 0 or less).
int LoadStringA(HINSTANCE instance, unsigned id, char* buffer, int capacity);

// ---------------------------------------------------------------------------------------
// GUIDs
// ---------------------------------------------------------------------------------------

// Fills guid with a new random (version 4) GUID; never fails (without a random source the
// bytes are mixed from the time, the process and a counter).
void AssignGUID(GUID& guid);
bool IsNullGUID(const GUID& guid);
// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" form, 38 characters.
std::string GUIDToString(const GUID& guid);

// ---------------------------------------------------------------------------------------
// Files
// ---------------------------------------------------------------------------------------

// A unique data-file name in a private temporary directory of this process (removed at
// exit), beginning with prefix; out (kMaxPathName bytes) receives the full path. Nothing
// is created. Answers 1, or 0 with out emptied (null out: 0).
int ZOR_GetTempFileName(const char* prefix, char* out);
// Deletes a data file (its table in the directory's store) or an ordinary file. Answers
// 1 when something was deleted, 0 when nothing of that name exists or it is in use.
int FileDeleteWithLCK(const char* name);

// Status of a file. For a data file, st_mtime_ns is the time of the last committed change
// to that file (nanoseconds since the epoch), seen by every process; for other files the
// file system's modification time. (st_mtime_sec is that time in whole seconds; the
// system headers reserve the name st_mtime.)
struct _stat {
  int64_t st_size;
  int64_t st_mtime_sec;
  int64_t st_mtime_ns;
};
// 0 on success, -1 when the name is neither a data file nor an ordinary file (out is then
// left as it was).
int _stat(const char* name, struct _stat* out);

// The marker that a company is open, held by every process that has the company open.
class CZORSharedFile {
 public:
  explicit CZORSharedFile(int area);
  ~CZORSharedFile();
  CZORSharedFile(const CZORSharedFile&) = delete;
  CZORSharedFile& operator=(const CZORSharedFile&) = delete;

  // Marks the company in directory as open by this process; answers true on success.
  // Whatever this object held before is let go first, so false leaves it closed.
  bool Open(const char* directory);
  // Lets the marker go (nothing when not open); the destructor does the same.
  void Close();
  bool IsOpen() const;
  // The directory given to Open, or empty; valid until the next Open or Close.
  const char* Directory() const;
  // Number of processes (including this one) that have the company open; 0 when closed.
  int OpenCount() const;

 private:
  struct Impl;
  int area_;
  std::unique_ptr<Impl> impl_;
};

// Company-wide exclusive access for one operation of an area, visible to other processes:
// while one process holds an area, Start for the same area in any other process (or any
// other object) fails. The company is the one of the open CZORSharedFile, else the
// current directory.
class CZORSingleUserAccess {
 public:
  explicit CZORSingleUserAccess(int area);
  ~CZORSingleUserAccess();  // ends the access when held
  CZORSingleUserAccess(const CZORSingleUserAccess&) = delete;
  CZORSingleUserAccess& operator=(const CZORSingleUserAccess&) = delete;

  // Takes the access; true at once when this object holds it. When another holds it,
  // shows message_number (Retry and Cancel) unless it is 0, and tries again on Retry.
  // false, nothing held, on any other answer, for an area out of range or when the lock
  // cannot be taken. lock_mode and name are kept for the host.
  bool Start(int message_number, int lock_mode, const char* name);
  // Gives the access up (nothing when not held); the destructor does the same.
  void End();
  bool Held() const;

 private:
  struct Impl;
  int area_;
  std::unique_ptr<Impl> impl_;
};

// ---------------------------------------------------------------------------------------
// Standard file names and owner names of a company's data files
// ---------------------------------------------------------------------------------------

extern CFileNameString ChartName;             // "CHART.DAT"
extern CFileNameString CustomerName;          // "CUSTOMER.DAT"
extern CFileNameString VendorName;            // "VENDOR.DAT"
extern CFileNameString EmpFileName;           // "EMPLOYEE.DAT"
extern CFileNameString LineItemName;          // "LINEITEM.DAT"
extern CFileNameString InvTagName;            // "INVTAG.DAT"
extern CFileNameString InvLFName;             // "INVCOST.DAT"
extern CFileNameString RecptTagName;          // "RCPTTAG.DAT"
extern CFileNameString GeneralFileName;       // "GENERAL.DAT"
extern CFileNameString JrnlHdrFileName;       // "JRNLHDR.DAT"
extern CFileNameString JrnlRowFileName;       // "JRNLROW.DAT"
extern CFileNameString TaxAuthorityName;      // "TAXAUTH.DAT"
extern CFileNameString RaiseHistoryFileName;  // "RAISEHST.DAT"
extern CFileNameString AuditTrailName;        // "AUDITTRL.DAT"
extern CFileNameString EventLogFileName;      // "EVENTLOG.DAT"

// Owner (access) names of the data files.
extern CFixedString<9> csTheOwner;
extern CFixedString<9> csStdTheOwner;

// Restores every file-name global above to its standard name.
void ResetStandardFileNames();

#endif  // BASICS_PLATFORM_UTILITY_H_
