// Messages and string resources by number, and the host's hooks: the message handler
// that shows them and the broadcast handler that receives notices. Handlers are kept
// under a mutex and called outside it, on the caller's thread.

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "message_table_internal.h"
#include "utility.h"

namespace {

struct Hooks {
  std::mutex mutex;
  MessageHandler message;
  BroadcastHandler broadcast;
};

// Never destroyed, so that messages shown at exit (a destructor reporting a failure) still
// reach a handler.
Hooks& TheHooks() {
  static Hooks* hooks = new Hooks;
  return *hooks;
}

// One insert supplied by a call: a text or a number.
struct Insert {
  bool is_number = false;
  std::string text;
  int32_t number = 0;
};

std::string InsertAsText(const Insert& insert) {
  return insert.is_number ? std::to_string(insert.number) : insert.text;
}

// Fills a table text with the call's inserts. Only %s, %d/%i/%u and their l forms and %%
// are understood; each takes the next insert and shows it as text whatever its kind, so a
// table text that asks for more or other inserts than the call supplies shows them empty
// or as digits instead of reading memory it was never given.
std::string FillText(const char* text, const std::vector<Insert>& inserts) {
  std::string out;
  size_t next = 0;
  const char* p = text;
  while (*p != '\0') {
    if (*p != '%') {
      out += *p++;
      continue;
    }
    const char* q = p + 1;
    if (*q == '%') {
      out += '%';
      p = q + 1;
      continue;
    }
    if (*q == 'l') ++q;
    if (*q == 's' || *q == 'd' || *q == 'i' || *q == 'u') {
      if (next < inserts.size()) out += InsertAsText(inserts[next]);
      ++next;
      p = q + 1;
      continue;
    }
    out += *p++;  // not a conversion we fill: shown as it stands
  }
  return out;
}

// The text of a message number with its inserts; "Message N" and the inserts for a number
// that the table does not have.
std::string BuildText(int number, const std::vector<Insert>& inserts) {
  const char* text = FindMessageText(number);
  if (text == nullptr) {
    std::string out = "Message " + std::to_string(number);
    for (size_t i = 0; i < inserts.size(); ++i) {
      out += i == 0 ? ": " : ", ";
      out += InsertAsText(inserts[i]);
    }
    return out;
  }
  std::string out = FillText(text, inserts);
  if (text == kGenericStatusMessage) {
    out += " (record manager status " + std::to_string(number - kStatusMessageBase) + ")";
  }
  return out;
}

int Show(unsigned style, int number, std::string text) {
  MessageHandler handler;
  {
    Hooks& hooks = TheHooks();
    std::lock_guard<std::mutex> lock(hooks.mutex);
    handler = hooks.message;
  }
  if (handler) {
    HostMessage message;
    message.number = number;
    message.style = style;
    message.text = std::move(text);
    return handler(message);
  }
  if (number != 0) {
    std::fprintf(stderr, "Message %d: %s\n", number, text.c_str());
  } else {
    std::fprintf(stderr, "Message: %s\n", text.c_str());
  }
  return DefaultMessageAnswer(style);
}

Insert TextInsert(const char* text) {
  Insert insert;
  insert.text = text != nullptr ? text : "";
  return insert;
}

}  // namespace

// The answer of a message nobody sees: the choice that changes nothing.
int DefaultMessageAnswer(unsigned style) {
  switch (style & MB_BUTTONS_MASK) {
    case MB_YESNO:
    case MB_YESNOCANCEL:
      return IDNO;
    case MB_OKCANCEL:
    case MB_RETRYCANCEL:
      return IDCANCEL;
    case MB_ABORTRETRYIGNORE:
      return IDIGNORE;
    default:
      return IDOK;
  }
}


void SetMessageHandler(MessageHandler handler) {
  Hooks& hooks = TheHooks();
  std::lock_guard<std::mutex> lock(hooks.mutex);
  hooks.message = std::move(handler);
}

void SetBroadcastHandler(BroadcastHandler handler) {
  Hooks& hooks = TheHooks();
  std::lock_guard<std::mutex> lock(hooks.mutex);
  hooks.broadcast = std::move(handler);
}

void BroadcastMessage(unsigned message, uintptr_t wparam, const void* lparam) {
  BroadcastHandler handler;
  {
    Hooks& hooks = TheHooks();
    std::lock_guard<std::mutex> lock(hooks.mutex);
    handler = hooks.broadcast;
  }
  if (handler) handler(message, wparam, lparam);
}

int Message(unsigned style, int number) { return Show(style, number, BuildText(number, {})); }

int MessageWithString(unsigned style, int number, const char* text) {
  return Show(style, number, BuildText(number, {TextInsert(text)}));
}

int MessageWithCard(unsigned style, int number, const char* first, const char* second) {
  return Show(style, number, BuildText(number, {TextInsert(first), TextInsert(second)}));
}

int MessageWithPara(unsigned style, int number, int32_t value) {
  Insert insert;
  insert.is_number = true;
  insert.number = value;
  return Show(style, number, BuildText(number, {insert}));
}

int MessageBoxText(unsigned style, const char* text) {
  return Show(style, 0, text != nullptr ? text : "");
}

const char* MessageText(int number) { return FindMessageText(number); }

int LoadStringA(HINSTANCE /*instance*/, unsigned id, char* buffer, int capacity) {
  if (buffer == nullptr || capacity <= 0) return 0;
  const char* text = FindStringText(id);
  if (text == nullptr) {
    buffer[0] = '\0';
    return 0;
  }
  size_t length = ::strnlen(text, static_cast<size_t>(capacity) - 1);
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
  return static_cast<int>(length);
}
