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
// Creates an empty dialog; controls appear when first addressed by number. The dialog and
// its controls live until DestroyDialogModel; a destroyed or unknown handle is refused by
// every function here (null, 0 or false), never followed.
HWND CreateDialogModel();
// Destroys a dialog with its controls (a control or unknown handle is ignored).
void DestroyDialogModel(HWND dialog);
// The main window of the application, owner of the library's message boxes (may be null;
// a handle that is not live sets null).
void SetMainWindow(HWND window);
HWND GetMainWindow();
// Inspection helpers for tests and hosts.
int GetDlgItemLimit(HWND dialog, int id);  // 0 when no limit was set
bool IsDlgItemEnabled(HWND dialog, int id);
int GetFocusedItem(HWND dialog);  // 0 when no control has the focus
std::vector<int16_t> GetTabStops(HWND control);

// --- Window functions -------------------------------------------------------------------
// The control of a dialog (created on first use), valid as long as the dialog; null for a
// dialog that is not live.
HWND GetDlgItem(HWND dialog, int id);
// Keeps a copy of text (null: empty), whatever the control's limit; 0 for a dead dialog.
int SetDlgItemTextA(HWND dialog, int id, const char* text);
// Copies at most capacity - 1 characters; answers the number copied (buffer emptied, 0,
// for a dead dialog; nothing written for a null buffer or capacity of 0 or less).
unsigned GetDlgItemTextA(HWND dialog, int id, char* buffer, int capacity);
// 1 when set, 0 for a dead dialog; IsDlgButtonChecked answers BST_UNCHECKED for one.
int CheckDlgButton(HWND dialog, int id, unsigned check);
unsigned IsDlgButtonChecked(HWND dialog, int id);
// EM_LIMITTEXT (answers 0) and LB_SETTABSTOPS_MSG (copies the positions; answers 1) are
// understood; any other message, or a dead window, answers 0 and changes nothing.
LRESULT SendDlgItemMessageA(HWND dialog, int id, unsigned message, WPARAM wparam, LPARAM lparam);
LRESULT SendMessageA(HWND window, unsigned message, WPARAM wparam, LPARAM lparam);
// Answers whether the window was disabled before the call (0 for a dead window).
int EnableWindow(HWND window, int enable);
// Gives a control the focus; answers the control that had it (null for none, or when
// window is not a live control, which changes nothing).
HWND SetFocus(HWND window);

// --- Text and system errors ---------------------------------------------------------------
// printf into out, which must hold 1024 bytes: longer text is cut there. Answers the
// characters written; 0 with out emptied for a null format or a formatting error.
int wsprintfA(char* out, const char* format, ...) __attribute__((format(printf, 2, 3)));
// The calling thread's last system error (errno).
DWORD GetLastError();

constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x00000100;
constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x00001000;
constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x00000200;
// With FORMAT_MESSAGE_FROM_SYSTEM: the text of system error message_id. With
// FORMAT_MESSAGE_ALLOCATE_BUFFER, buffer is taken as a char** that receives a buffer to
// be freed with LocalFree; the caller owns it. Without it the text is copied into buffer
// of size bytes. Answers the text's length; 0, nothing written, without
// FORMAT_MESSAGE_FROM_SYSTEM, for a text that does not fit, or when allocation fails.
DWORD FormatMessageA(DWORD flags, const void* source, DWORD message_id, DWORD language_id,
                     char* buffer, DWORD size, va_list* arguments);
// Frees a buffer FormatMessageA allocated (null is fine); answers null.
void* LocalFree(void* memory);

#endif  // BASICS_PLATFORM_DIALOG_H_
