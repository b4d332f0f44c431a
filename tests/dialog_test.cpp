// The in-memory dialog model behind the window functions; the portable text and error functions.
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dialog.h"

namespace {

TEST(DialogModel, ControlsKeepTextChecksLimitsAndStateUntilDestroyed) {
  HWND dialog = CreateDialogModel();
  EXPECT_EQ(SendDlgItemMessageA(dialog, 101, EM_LIMITTEXT, 5, 0), 0);
  EXPECT_EQ(GetDlgItemLimit(dialog, 101), 5);
  // The limit bounds typing only: the program's text is kept whole.
  EXPECT_EQ(SetDlgItemTextA(dialog, 101, "Sales Tax Payable"), 1);
  char text[64];
  EXPECT_EQ(GetDlgItemTextA(dialog, 101, text, sizeof text), 17u);
  EXPECT_EQ(GetDlgItemTextA(dialog, 101, text, 8), 7u);
  EXPECT_STREQ(text, "Sales T");
  EXPECT_EQ(GetDlgItemTextA(dialog, 101, text, 0), 0u);
  SetDlgItemTextA(dialog, 101, nullptr);
  EXPECT_EQ(GetDlgItemTextA(dialog, 101, text, sizeof text), 0u);
  std::strcpy(text, "keep");

  CheckDlgButton(dialog, 200, BST_CHECKED);
  EXPECT_EQ(IsDlgButtonChecked(dialog, 200), BST_CHECKED);
  CheckDlgButton(dialog, 200, BST_UNCHECKED);
  EXPECT_EQ(IsDlgButtonChecked(dialog, 200), BST_UNCHECKED);

  EXPECT_EQ(EnableWindow(GetDlgItem(dialog, 300), 0), 0) << "answers whether it was disabled";
  EXPECT_EQ(EnableWindow(GetDlgItem(dialog, 300), 0), 1);
  EXPECT_EQ(EnableWindow(GetDlgItem(dialog, 300), 1), 1);
  EXPECT_TRUE(IsDlgItemEnabled(dialog, 300));

  // Null and destroyed handles are refused, never followed.
  HWND control = GetDlgItem(dialog, 1);
  DestroyDialogModel(dialog);
  EXPECT_EQ(GetDlgItem(dialog, 1), nullptr);
  EXPECT_EQ(SetDlgItemTextA(dialog, 1, "x"), 0);
  EXPECT_EQ(GetDlgItemTextA(dialog, 1, text, sizeof text), 0u);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(CheckDlgButton(nullptr, 1, BST_CHECKED), 0);
  EXPECT_EQ(EnableWindow(control, 0), 0);
  EXPECT_EQ(SetFocus(control), nullptr);
  EXPECT_EQ(SendMessageA(control, EM_LIMITTEXT, 3, 0), 0);
  EXPECT_TRUE(GetTabStops(control).empty());
  DestroyDialogModel(dialog);  // twice: ignored
}

TEST(DialogModel, FocusIsPerDialogAndTabStopsPerList) {
  HWND first = CreateDialogModel(), second = CreateDialogModel();
  EXPECT_EQ(SetFocus(GetDlgItem(first, 10)), nullptr);
  EXPECT_EQ(SetFocus(GetDlgItem(first, 11)), GetDlgItem(first, 10));
  EXPECT_EQ(SetFocus(GetDlgItem(second, 10)), nullptr);
  EXPECT_EQ(GetFocusedItem(first), 11);
  EXPECT_EQ(GetFocusedItem(second), 10);

  const int16_t stops[] = {40, 120, 200};
  HWND list = GetDlgItem(first, 500);
  EXPECT_EQ(SendMessageA(list, LB_SETTABSTOPS_MSG, 3, reinterpret_cast<LPARAM>(stops)), 1);
  EXPECT_EQ(GetTabStops(list), (std::vector<int16_t>{40, 120, 200}));
  SendDlgItemMessageA(first, 500, LB_SETTABSTOPS_MSG, 1, reinterpret_cast<LPARAM>(stops));
  EXPECT_EQ(GetTabStops(list), (std::vector<int16_t>{40}));

  SetMainWindow(first);
  EXPECT_EQ(GetMainWindow(), first);
  DestroyDialogModel(first);
  EXPECT_EQ(GetMainWindow(), nullptr) << "a destroyed main window is forgotten";
  DestroyDialogModel(second);
}

TEST(WindowText, WsprintfIsBoundedAndSystemErrorTextIsAllocated) {
  char out[1024];
  EXPECT_EQ(wsprintfA(out, "%s %d", "Period", 12), 9);
  EXPECT_STREQ(out, "Period 12");
  EXPECT_EQ(wsprintfA(out, "%s", std::string(3000, 'z').c_str()), 1023) << "the system's limit";
  EXPECT_EQ(std::strlen(out), 1023u);

  errno = ENOENT;
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ENOENT));
  char* text = nullptr;
  DWORD length = FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM,
                                nullptr, ENOENT, 0, reinterpret_cast<char*>(&text), 0, nullptr);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(length, std::strlen(text));
  EXPECT_STREQ(text, std::strerror(ENOENT));
  EXPECT_EQ(LocalFree(text), nullptr);
  const DWORD kFromSystem = FORMAT_MESSAGE_FROM_SYSTEM;
  EXPECT_EQ(FormatMessageA(kFromSystem, nullptr, ENOENT, 0, out, 4, nullptr), 0u) << "too long";
  EXPECT_GT(FormatMessageA(kFromSystem, nullptr, 99999, 0, out, sizeof out, nullptr), 0u)
      << "an unknown error still has a text";
}

}  // namespace
