// Basic value types of the utility library: fixed-capacity strings, GUIDs, dates and
// date ranges, and the printf-style string class. Everything here is plain data or a
// value class; nothing touches the store. Safe to use from any thread.
#ifndef BASICS_PLATFORM_ZOR_TYPES_H_
#define BASICS_PLATFORM_ZOR_TYPES_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

// The library's signatures come from a platform whose `long` is 32 bits; these keep the
// on-disk widths and sentinels (0x7FFFFFFF, 0xFFFFFFFE) identical on every platform.
typedef int32_t LONG32;
typedef uint32_t ULONG32;

#pragma pack(push, 1)

// Fixed-capacity text of N bytes including the terminator (N - 1 characters). Trivial, so
// that records holding it stay plain data: a value-initialised FixedString ({}) is empty.
template <size_t N>
struct FixedString {
  static_assert(N >= 1, "a FixedString holds at least its terminator");
  static constexpr size_t kCapacity = N;
  char s[N];

  // The text itself, valid as long as the FixedString.
  char* c_str() { return s; }
  const char* c_str() const { return s; }
  operator char*() { return s; }
  operator const char*() const { return s; }
  bool IsEmpty() const { return s[0] == '\0'; }
  // All N bytes zero.
  void Clear() { std::memset(s, 0, N); }
  // Characters before the terminator; N when the buffer holds none.
  size_t Length() const { return ::strnlen(s, N); }
  // Copies at most N - 1 characters of text (or of max_chars, when smaller); the rest of
  // the buffer is zero-filled so that stored records carry no stale bytes. Null text empties
  // it.
  void Set(const char* text, size_t max_chars = N - 1) {
    std::memset(s, 0, N);
    if (text == nullptr) return;
    size_t limit = max_chars < N - 1 ? max_chars : N - 1;
    size_t len = ::strnlen(text, limit);
    std::memcpy(s, text, len);
  }
  FixedString& operator=(const char* text) {
    Set(text);
    return *this;
  }
};

// A GUID in the Windows layout: 16 bytes, Data1 and Data2/Data3 little-endian.
typedef struct _GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
} GUID;

// A date in 32 bits: day, month, year. Compared and stepped only through the date
// operations of the utility library. The all-zero date is "no date".
struct DatesType {
  uint8_t day;
  uint8_t month;
  uint16_t year;
};

// A range of two dates, both ends included.
struct FromTo {
  DatesType from;
  DatesType to;
};

#pragma pack(pop)

static_assert(sizeof(GUID) == 16, "GUID is 16 bytes");
static_assert(sizeof(DatesType) == 4, "DatesType is 32 bits");
static_assert(offsetof(DatesType, day) == 0 && offsetof(DatesType, month) == 1 &&
                  offsetof(DatesType, year) == 2,
              "DatesType is day, month, year");
static_assert(sizeof(FromTo) == 8, "FromTo is two dates");
static_assert(sizeof(FixedString<21>) == 21, "FixedString has no overhead");

// A reference to any FixedString, for functions that fill text of whatever capacity the
// caller has. It lends the caller's buffer for the call; it owns nothing.
struct FixedStringParamRef {
  char* text;
  size_t capacity;
  template <size_t N>
  FixedStringParamRef(FixedString<N>& f) : text(f.s), capacity(N) {}  // NOLINT
  FixedStringParamRef(char* buffer, size_t cap) : text(buffer), capacity(cap) {}
};

// The class form of a fixed string, used for globals (owner names, file names, version).
template <size_t N>
class CFixedString : public FixedString<N> {
 public:
  CFixedString() { this->Clear(); }
  CFixedString(const char* text) { this->Set(text); }  // NOLINT
  CFixedString& operator=(const char* text) {
    this->Set(text);
    return *this;
  }
};

// File and path names of the utility library: 260 bytes including the terminator.
constexpr size_t kMaxPathName = 260;
typedef CFixedString<kMaxPathName> CFileNameString;
typedef CFixedString<kMaxPathName> CPathNameString;
typedef FixedString<kMaxPathName> PathNameString;

// A growable string with printf-style and insert-style formatting.
class CString {
 public:
  CString() = default;
  CString(const char* text) : s_(text ? text : "") {}  // NOLINT
  CString(const std::string& text) : s_(text) {}       // NOLINT

  // printf-style formatting; replaces the contents (empty for a null or bad format).
  void Format(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Insert-style formatting: %1 .. %9 take the arguments in order as strings, %2!d! takes
  // argument 2 as an int (any printf conversion between the exclamation marks), %n is a
  // line break, %% a percent sign. Arguments are passed as const char* unless their insert
  // names a conversion. Replaces the contents (empty for a null format).
  void FormatMessage(const char* format, ...);

  int GetLength() const { return static_cast<int>(s_.size()); }
  bool IsEmpty() const { return s_.empty(); }
  void Empty() { s_.clear(); }
  // The text, valid until the string is next changed or destroyed.
  const char* GetString() const { return s_.c_str(); }
  operator const char*() const { return s_.c_str(); }
  const std::string& str() const { return s_; }

  CString& operator=(const char* text) {
    s_ = text ? text : "";
    return *this;
  }
  CString& operator+=(const char* text) {
    if (text) s_ += text;
    return *this;
  }
  CString& operator+=(const CString& other) {
    s_ += other.s_;
    return *this;
  }
  CString& operator+=(char c) {
    s_ += c;
    return *this;
  }
  friend CString operator+(const CString& a, const char* b) {
    CString r(a);
    r += b;
    return r;
  }
  bool operator==(const char* text) const { return s_ == (text ? text : ""); }

 private:
  std::string s_;
};

#endif  // BASICS_PLATFORM_ZOR_TYPES_H_
