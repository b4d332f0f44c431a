// The in-memory dialog model behind the window functions, and the portable text and
// system-error functions. Windows (dialogs and their controls) are kept in a registry,
// so that a handle that was never made or was destroyed is refused instead of followed.

#include "dialog.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

// A dialog or one of its controls.
struct DialogWindow {
  DialogWindow* parent = nullptr;  // null for a dialog
  int id = 0;
  std::string text;
  unsigned check = BST_UNCHECKED;
  bool enabled = true;
  int limit = 0;  // 0: no limit set
  std::vector<int16_t> tab_stops;
  int focus = 0;  // a dialog's focused control, 0 for none
  std::map<int, std::unique_ptr<DialogWindow>> controls;
};

namespace {

struct Model {
  std::mutex mutex;
  std::set<const DialogWindow*> live;
  std::vector<std::unique_ptr<DialogWindow>> dialogs;
  HWND main_window = nullptr;
};

Model& TheModel() {
  static Model model;
  return model;
}

bool IsLive(const Model& model, const DialogWindow* window) {
  return window != nullptr && model.live.count(window) != 0;
}

void Forget(Model& model, const DialogWindow* window) {
  model.live.erase(window);
  for (const auto& [id, control] : window->controls) Forget(model, control.get());
}

// The control id of a dialog, made on first use; null for a handle that is not live.
DialogWindow* Control(Model& model, HWND dialog, int id) {
  if (!IsLive(model, dialog)) return nullptr;
  std::unique_ptr<DialogWindow>& slot = dialog->controls[id];
  if (!slot) {
    slot = std::make_unique<DialogWindow>();
    slot->parent = dialog;
    slot->id = id;
    model.live.insert(slot.get());
  }
  return slot.get();
}

void SetTabStops(DialogWindow* window, WPARAM count, LPARAM positions) {
  window->tab_stops.clear();
  // A list takes at most a few dozen columns; a larger count is a caller's mistake.
  if (positions == 0 || count > 1024) return;
  const int16_t* stops = reinterpret_cast<const int16_t*>(positions);
  window->tab_stops.assign(stops, stops + count);
}

LRESULT Dispatch(DialogWindow* window, unsigned message, WPARAM wparam, LPARAM lparam) {
  switch (message) {
    case EM_LIMITTEXT:
      window->limit = wparam > 0x7FFFFFFE ? 0x7FFFFFFE : static_cast<int>(wparam);
      return 0;
    case LB_SETTABSTOPS_MSG:
      SetTabStops(window, wparam, lparam);
      return 1;
    default:
      return 0;
  }
}

}  // namespace

HWND CreateDialogModel() {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  model.dialogs.push_back(std::make_unique<DialogWindow>());
  HWND dialog = model.dialogs.back().get();
  model.live.insert(dialog);
  return dialog;
}

void DestroyDialogModel(HWND dialog) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  if (!IsLive(model, dialog) || dialog->parent != nullptr) return;
  Forget(model, dialog);
  if (model.main_window == dialog) model.main_window = nullptr;
  for (auto it = model.dialogs.begin(); it != model.dialogs.end(); ++it) {
    if (it->get() == dialog) {
      model.dialogs.erase(it);
      break;
    }
  }
}

void SetMainWindow(HWND window) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  model.main_window = IsLive(model, window) ? window : nullptr;
}

HWND GetMainWindow() {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  return model.main_window;
}

int GetDlgItemLimit(HWND dialog, int id) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  DialogWindow* control = Control(model, dialog, id);
  return control != nullptr ? control->limit : 0;
}

bool IsDlgItemEnabled(HWND dialog, int id) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  DialogWindow* control = Control(model, dialog, id);
  return control != nullptr && control->enabled;
}

int GetFocusedItem(HWND dialog) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  return IsLive(model, dialog) ? dialog->focus : 0;
}

std::vector<int16_t> GetTabStops(HWND control) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  return IsLive(model, control) ? control->tab_stops : std::vector<int16_t>();
}

HWND GetDlgItem(HWND dialog, int id) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  return Control(model, dialog, id);
}

// The text is kept whole whatever the control's limit: the limit bounds what a user may
// type, not what the program puts there.
int SetDlgItemTextA(HWND dialog, int id, const char* text) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  DialogWindow* control = Control(model, dialog, id);
  if (control == nullptr) return 0;
  control->text = text != nullptr ? text : "";
  return 1;
}

unsigned GetDlgItemTextA(HWND dialog, int id, char* buffer, int capacity) {
  if (buffer == nullptr || capacity <= 0) return 0;
  buffer[0] = '\0';
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  DialogWindow* control = Control(model, dialog, id);
  if (control == nullptr) return 0;
  size_t length = control->text.size();
  if (length > static_cast<size_t>(capacity) - 1) length = static_cast<size_t>(capacity) - 1;
  std::memcpy(buffer, control->text.data(), length);
  buffer[length] = '\0';
  return static_cast<unsigned>(length);
}

int CheckDlgButton(HWND dialog, int id, unsigned check) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  DialogWindow* control = Control(model, dialog, id);
  if (control == nullptr) return 0;
  control->check = check;
  return 1;
}

unsigned IsDlgButtonChecked(HWND dialog, int id) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  DialogWindow* control = Control(model, dialog, id);
  return control != nullptr ? control->check : BST_UNCHECKED;
}

LRESULT SendDlgItemMessageA(HWND dialog, int id, unsigned message, WPARAM wparam, LPARAM lparam) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  DialogWindow* control = Control(model, dialog, id);
  return control != nullptr ? Dispatch(control, message, wparam, lparam) : 0;
}

LRESULT SendMessageA(HWND window, unsigned message, WPARAM wparam, LPARAM lparam) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  return IsLive(model, window) ? Dispatch(window, message, wparam, lparam) : 0;
}

int EnableWindow(HWND window, int enable) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  if (!IsLive(model, window)) return 0;
  int was_disabled = window->enabled ? 0 : 1;
  window->enabled = enable != 0;
  return was_disabled;
}

HWND SetFocus(HWND window) {
  Model& model = TheModel();
  std::lock_guard<std::mutex> lock(model.mutex);
  if (!IsLive(model, window) || window->parent == nullptr) return nullptr;
  DialogWindow* dialog = window->parent;
  HWND previous = nullptr;
  if (dialog->focus != 0) {
    auto it = dialog->controls.find(dialog->focus);
    if (it != dialog->controls.end()) previous = it->second.get();
  }
  dialog->focus = window->id;
  return previous;
}

// Bounded at 1024 bytes, as the system's own version is: callers size their buffers for
// that, and a longer text is cut rather than written past them.
int wsprintfA(char* out, const char* format, ...) {
  constexpr size_t kLimit = 1024;
  if (out == nullptr) return 0;
  if (format == nullptr) {
    out[0] = '\0';
    return 0;
  }
  va_list args;
  va_start(args, format);
  int length = std::vsnprintf(out, kLimit, format, args);
  va_end(args);
  if (length < 0) {
    out[0] = '\0';
    return 0;
  }
  return length < static_cast<int>(kLimit) ? length : static_cast<int>(kLimit) - 1;
}

DWORD GetLastError() { return static_cast<DWORD>(errno); }

namespace {

// strerror_r comes in two forms; these pick the text from either.
[[maybe_unused]] const char* ErrorText(int result, const char* buffer) {
  return result == 0 ? buffer : "Unknown error";
}
[[maybe_unused]] const char* ErrorText(const char* result, const char* /*buffer*/) {
  return result;
}

}  // namespace

DWORD FormatMessageA(DWORD flags, const void* /*source*/, DWORD message_id, DWORD /*language_id*/,
                     char* buffer, DWORD size, va_list* /*arguments*/) {
  if ((flags & FORMAT_MESSAGE_FROM_SYSTEM) == 0 || buffer == nullptr) return 0;
  char scratch[256];
  const char* text =
      ErrorText(strerror_r(static_cast<int>(message_id), scratch, sizeof scratch), scratch);
  size_t length = std::strlen(text);
  if ((flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0) {
    char* copy = static_cast<char*>(std::malloc(length + 1));
    if (copy == nullptr) return 0;
    std::memcpy(copy, text, length + 1);
    *reinterpret_cast<char**>(buffer) = copy;
    return static_cast<DWORD>(length);
  }
  // Into the caller's buffer: fails, as the system's does, when the text does not fit.
  if (size == 0 || length + 1 > size) return 0;
  std::memcpy(buffer, text, length + 1);
  return static_cast<DWORD>(length);
}

void* LocalFree(void* memory) {
  std::free(memory);
  return nullptr;
}
