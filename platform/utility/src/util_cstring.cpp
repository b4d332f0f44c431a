// CString's two formatters: printf style (Format) and the insert style of message texts
// (FormatMessage: %1 .. %99, each optionally with a printf conversion between
// exclamation marks). Works on the object alone; safe from any thread for distinct objects.

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "zor_types.h"

namespace {

std::string FormatV(const char* format, va_list args) {
  if (format == nullptr) return std::string();
  char small[256];
  va_list copy;
  va_copy(copy, args);
  int length = std::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (length < 0) return std::string();
  if (static_cast<size_t>(length) < sizeof small)
    return std::string(small, static_cast<size_t>(length));
  std::string text(static_cast<size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, args);
  text.resize(static_cast<size_t>(length));
  return text;
}

// The type a conversion takes from the argument list.
enum class ArgKind { kString, kSigned, kUnsigned, kDouble, kLongDouble, kChar, kPointer };

enum class Width { kShortShort, kShort, kInt, kLong, kLongLong };

// A validated printf conversion of an insert: flags, width and precision kept as text,
// the length modifier and conversion character parsed.
struct Conversion {
  bool present = false;
  std::string head;  // flags, width, precision
  Width width = Width::kInt;
  char conversion = 's';
  ArgKind kind = ArgKind::kString;
};

// Parses "-08.2ld" and the like; false when it is not a conversion we can pass safely
// (a '*' width would take an argument of its own; %n would write through one).
bool ParseConversion(const std::string& text, Conversion& out) {
  size_t i = 0;
  std::string head;
  while (i < text.size() && std::strchr("-+ #0", text[i]) != nullptr) head += text[i++];
  while (i < text.size() && text[i] >= '0' && text[i] <= '9') head += text[i++];
  if (i < text.size() && text[i] == '.') {
    head += text[i++];
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') head += text[i++];
  }
  if (head.size() > 32) return false;
  Width width = Width::kInt;
  bool long_double = false;
  if (text.compare(i, 3, "I64") == 0) {
    width = Width::kLongLong;
    i += 3;
  } else if (text.compare(i, 2, "hh") == 0) {
    width = Width::kShortShort;
    i += 2;
  } else if (text.compare(i, 2, "ll") == 0) {
    width = Width::kLongLong;
    i += 2;
  } else if (i < text.size() && text[i] == 'h') {
    width = Width::kShort;
    ++i;
  } else if (i < text.size() && (text[i] == 'l' || text[i] == 'z' || text[i] == 't')) {
    width = Width::kLong;
    ++i;
  } else if (i < text.size() && text[i] == 'j') {
    width = Width::kLongLong;
    ++i;
  } else if (i < text.size() && text[i] == 'L') {
    long_double = true;
    ++i;
  }
  if (i + 1 != text.size()) return false;
  char c = text[i];
  ArgKind kind;
  if (c == 'd' || c == 'i') {
    kind = ArgKind::kSigned;
  } else if (c == 'u' || c == 'o' || c == 'x' || c == 'X') {
    kind = ArgKind::kUnsigned;
  } else if (std::strchr("eEfFgGaA", c) != nullptr) {
    kind = long_double ? ArgKind::kLongDouble : ArgKind::kDouble;
  } else if (c == 'c') {
    kind = ArgKind::kChar;
  } else if (c == 's') {
    kind = ArgKind::kString;
  } else if (c == 'p') {
    kind = ArgKind::kPointer;
  } else {
    return false;
  }
  out.present = true;
  out.head = head;
  out.width = width;
  out.conversion = c;
  out.kind = kind;
  return true;
}

struct ArgValue {
  const char* text = nullptr;
  long long integer = 0;
  unsigned long long natural = 0;
  double real = 0.0;
  const void* pointer = nullptr;
};

ArgValue FetchArg(const Conversion& conversion, va_list& args) {
  ArgValue value;
  if (!conversion.present) {
    value.text = va_arg(args, const char*);
    return value;
  }
  switch (conversion.kind) {
    case ArgKind::kString:
      value.text = va_arg(args, const char*);
      break;
    case ArgKind::kSigned:
      switch (conversion.width) {
        case Width::kShortShort:
          value.integer = static_cast<signed char>(va_arg(args, int));
          break;
        case Width::kShort:
          value.integer = static_cast<short>(va_arg(args, int));
          break;
        case Width::kInt:
          value.integer = va_arg(args, int);
          break;
        case Width::kLong:
          value.integer = va_arg(args, long);
          break;
        case Width::kLongLong:
          value.integer = va_arg(args, long long);
          break;
      }
      break;
    case ArgKind::kUnsigned:
      switch (conversion.width) {
        case Width::kShortShort:
          value.natural = static_cast<unsigned char>(va_arg(args, unsigned));
          break;
        case Width::kShort:
          value.natural = static_cast<unsigned short>(va_arg(args, unsigned));
          break;
        case Width::kInt:
          value.natural = va_arg(args, unsigned);
          break;
        case Width::kLong:
          value.natural = va_arg(args, unsigned long);
          break;
        case Width::kLongLong:
          value.natural = va_arg(args, unsigned long long);
          break;
      }
      break;
    case ArgKind::kDouble:
      value.real = va_arg(args, double);
      break;
    case ArgKind::kLongDouble:
      value.real = static_cast<double>(va_arg(args, long double));
      break;
    case ArgKind::kChar:
      value.integer = va_arg(args, int);
      break;
    case ArgKind::kPointer:
      value.pointer = va_arg(args, const void*);
      break;
  }
  return value;
}

std::string FormatOne(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string FormatOne(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = FormatV(format, args);
  va_end(args);
  return text;
}

std::string RenderArg(const Conversion& conversion, const ArgValue& value) {
  if (!conversion.present) return value.text != nullptr ? value.text : "";
  const std::string& head = conversion.head;
  std::string spec = "%" + head;
  switch (conversion.kind) {
    case ArgKind::kString:
      spec += 's';
      return FormatOne(spec.c_str(), value.text != nullptr ? value.text : "");
    case ArgKind::kSigned:
      spec += "ll";
      spec += conversion.conversion;
      return FormatOne(spec.c_str(), value.integer);
    case ArgKind::kUnsigned:
      spec += "ll";
      spec += conversion.conversion;
      return FormatOne(spec.c_str(), value.natural);
    case ArgKind::kDouble:
    case ArgKind::kLongDouble:
      spec += conversion.conversion;
      return FormatOne(spec.c_str(), value.real);
    case ArgKind::kChar:
      spec += 'c';
      return FormatOne(spec.c_str(), static_cast<int>(value.integer));
    case ArgKind::kPointer:
      spec += 'p';
      return FormatOne(spec.c_str(), value.pointer);
  }
  return std::string();
}

// One piece of an insert-style text: literal text, or an insert with its conversion.
struct Piece {
  std::string literal;
  int insert = 0;  // 0: a literal
  Conversion conversion;
};

constexpr int kMaxInsert = 99;

std::vector<Piece> ParseInserts(const char* format) {
  std::vector<Piece> pieces;
  std::string literal;
  auto flush = [&] {
    if (!literal.empty()) {
      pieces.push_back(Piece{literal, 0, {}});
      literal.clear();
    }
  };
  const char* p = format;
  while (*p != '\0') {
    if (*p != '%') {
      literal += *p++;
      continue;
    }
    char next = p[1];
    if (next >= '1' && next <= '9') {
      int number = next - '0';
      p += 2;
      // As in message files, an insert number has one or two digits.
      if (*p >= '0' && *p <= '9') number = number * 10 + (*p++ - '0');
      Piece piece;
      piece.insert = number;
      if (*p == '!') {
        const char* close = std::strchr(p + 1, '!');
        if (close != nullptr) {
          std::string text(p + 1, static_cast<size_t>(close - p - 1));
          // An insert whose conversion cannot be passed safely is shown as a string.
          if (!ParseConversion(text, piece.conversion)) piece.conversion = Conversion{};
          p = close + 1;
        }
      }
      flush();
      pieces.push_back(piece);
      continue;
    }
    switch (next) {
      case 'n':
        literal += '\n';
        break;
      case 't':
        literal += '\t';
        break;
      case 'r':
        literal += '\r';
        break;
      case '%':
      case '.':
      case '!':
      case ' ':
        literal += next;
        break;
      case '0':
        // %0 ends the text.
        flush();
        return pieces;
      case '\0':
        literal += '%';
        flush();
        return pieces;
      default:
        literal += '%';
        literal += next;
        break;
    }
    p += 2;
  }
  flush();
  return pieces;
}

}  // namespace

void CString::Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  s_ = FormatV(format, args);
  va_end(args);
}

// The arguments are read in the order of their insert numbers, 1 first, each as the type
// its conversion names (the first occurrence of a number decides); a number that the text
// never uses but a higher one does is read as a string pointer, as message files do.
void CString::FormatMessage(const char* format, ...) {
  if (format == nullptr) {
    s_.clear();
    return;
  }
  std::vector<Piece> pieces = ParseInserts(format);
  int highest = 0;
  std::vector<Conversion> conversions(kMaxInsert + 1);
  std::vector<bool> seen(kMaxInsert + 1, false);
  for (const Piece& piece : pieces) {
    if (piece.insert == 0) continue;
    if (piece.insert > highest) highest = piece.insert;
    if (!seen[static_cast<size_t>(piece.insert)]) {
      seen[static_cast<size_t>(piece.insert)] = true;
      conversions[static_cast<size_t>(piece.insert)] = piece.conversion;
    }
  }
  std::vector<ArgValue> values(static_cast<size_t>(highest) + 1);
  va_list args;
  va_start(args, format);
  for (int number = 1; number <= highest; ++number) {
    values[static_cast<size_t>(number)] = FetchArg(conversions[static_cast<size_t>(number)], args);
  }
  va_end(args);

  std::string text;
  for (const Piece& piece : pieces) {
    if (piece.insert == 0) {
      text += piece.literal;
    } else {
      // Every occurrence is shown with the conversion its value was read by.
      text += RenderArg(conversions[static_cast<size_t>(piece.insert)],
                        values[static_cast<size_t>(piece.insert)]);
    }
  }
  s_ = text;
}
