// The few window functions the library calls, acting on an in-memory dialog model: a
// dialog holds controls by number, each keeping its text, check state, enabled state,
// text limit, focus and list tab stops. A host with a real user interface adapts these
// calls to its toolkit; tests create dialogs with CreateDialogModel. Not thread-safe:
// dialogs belong to the user-interface thread. Also the portable forms of wsprintfA,
// GetLastError and FormatMessageA.
#ifndef BASICS_PLATFORM_DIALOG_H_
#define BASICS_PLATFORM_DIALOG_H_

#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

struct DialogWindow;
typedef DialogWindow* HWND;
typedef uintptr_t WPARAM;
typedef intptr_t LPARAM;
typedef intptr_t LRESULT;
typedef uint32_t DWORD;

constexpr unsigned BST_UNCHECKED = 0;
constexpr unsigned BST_CHECKED = 1;
constexpr unsigned EM_LIMITTEXT = 0x00C5;
// List control message that sets tab positions: wparam the count, lparam the address of
// that many 16-bit positions.
constexpr unsigned LB_SETTABSTOPS_MSG = 2077;

// --- The dialog model (for hosts and tests) ---------------------------------------------
// Creates an empty dialog; controls appear when first addressed by number.
HWND CreateDialogModel();
void DestroyDialogModel(HWND dialog);
// The main window of the application, owner of the library's message boxes (may be null).
void SetMainWindow(HWND window);
HWND GetMainWindow();
// Inspection helpers for tests and hosts.
int GetDlgItemLimit(HWND dialog, int id);   // 0 when no limit was set
bool IsDlgItemEnabled(HWND dialog, int id);
int GetFocusedItem(HWND dialog);            // 0 when no control has the focus
std::vector<int16_t> GetTabStops(HWND control);

// --- Window functions -------------------------------------------------------------------
// The control of a dialog (created on first use); null for a null dialog.
HWND GetDlgItem(HWND dialog, int id);
int SetDlgItemTextA(HWND dialog, int id, const char* text);
// Copies at most capacity - 1 characters; answers the number copied.
unsigned GetDlgItemTextA(HWND dialog, int id, char* buffer, int capacity);
int CheckDlgButton(HWND dialog, int id, unsigned check);
unsigned IsDlgButtonChecked(HWND dialog, int id);
LRESULT SendDlgItemMessageA(HWND dialog, int id, unsigned message, WPARAM wparam,
                            LPARAM lparam);
LRESULT SendMessageA(HWND window, unsigned message, WPARAM wparam, LPARAM lparam);
// Answers whether the window was disabled before the call.
int EnableWindow(HWND window, int enable);
// Gives a control the focus; answers the control that had it.
HWND SetFocus(HWND window);

// --- Text and system errors ---------------------------------------------------------------
int wsprintfA(char* out, const char* format, ...) __attribute__((format(printf, 2, 3)));
// The calling thread's last system error (errno).
DWORD GetLastError();

constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x00000100;
constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x00001000;
constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x00000200;
// With FORMAT_MESSAGE_FROM_SYSTEM: the text of system error message_id. With
// FORMAT_MESSAGE_ALLOCATE_BUFFER, buffer is taken as a char** that receives a buffer to
// be freed with LocalFree. Answers the text's length.
DWORD FormatMessageA(DWORD flags, const void* source, DWORD message_id, DWORD language_id,
                     char* buffer, DWORD size, va_list* arguments);
void* LocalFree(void* memory);

#endif  // BASICS_PLATFORM_DIALOG_H_
