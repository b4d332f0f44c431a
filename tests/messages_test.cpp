// Messages and string resources by number: every number the library uses has an English
// text, inserts are filled safely whatever the call supplies, the answer comes from the
// host's handler or, without one, is the choice that changes nothing.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "message_table_internal.h"
#include "scripted_messages.h"
#include "utility.h"

namespace {

std::string LoadString(unsigned id, int capacity = 256) {
  std::vector<char> buffer(static_cast<size_t>(capacity) + 1, '#');
  int length = LoadStringA(nullptr, id, buffer.data(), capacity);
  EXPECT_EQ(static_cast<size_t>(length), std::strlen(buffer.data()));
  return buffer.data();
}

TEST(MessageTable, EveryNumberTheLibraryUsesHasAText) {
  const int messages[] = {801,  804,  1913, 2200,  2203,  2204,  2533,  2400,  2417,  2477, 2493,
                          2507, 2508, 2509, 2510,  2550,  2551,  4482,  4484,  4493,  4497, 5500,
                          5501, 5502, 5503, 10320, 10321, 15603, 15604, 15703, 15704, 20258};
  for (int number : messages) {
    ASSERT_NE(MessageText(number), nullptr) << number;
    EXPECT_GT(std::strlen(MessageText(number)), 10u) << number;
  }
  for (int status : {2, 3, 4, 5, 6, 8, 9, 10, 12, 18, 22, 25, 43, 46, 51, 59, 80, 84, 85}) {
    const char* text = MessageText(20000 + status);
    ASSERT_NE(text, nullptr) << status;
    EXPECT_NE(std::strstr(text, "%s"), nullptr) << "names the file: " << status;
  }
  EXPECT_NE(MessageText(20077), nullptr) << "other statuses have a generic text";
  for (int journal = 310; journal <= 323; ++journal) {
    ASSERT_NE(MessageText(journal), nullptr) << journal;
    EXPECT_LT(std::strlen(MessageText(journal)), 29u) << journal;
  }
  EXPECT_STREQ(MessageText(311), "General Journal");
  EXPECT_STREQ(MessageText(310), "Cash Disbursements Journal");
  EXPECT_EQ(MessageText(12345), nullptr);

  const unsigned strings[] = {806, 807, 2206, 2207, 2208, 2236, 2252, 2253, 4406, 10106, 15706};
  for (unsigned id : strings) EXPECT_FALSE(LoadString(id).empty()) << id;
  for (unsigned id = 2220; id <= 2236; ++id) {
    EXPECT_FALSE(LoadString(id).empty()) << id;
    EXPECT_LE(LoadString(id).size(), 30u) << id;
  }
  EXPECT_EQ(LoadString(2220), "Cash");
  EXPECT_EQ(LoadString(2230), "Equity - Does Not Close");
  EXPECT_EQ(LoadString(2235), "Expenses");
  EXPECT_EQ(LoadString(2252), "Increase");
  EXPECT_EQ(LoadString(2253), "Decrease");
  EXPECT_LE(LoadString(10106).size(), 15u);
  EXPECT_LE(LoadString(4406).size(), 20u);

  // Only %s and %ld mark inserts in the table, so the filler understands every text.
  size_t count = 0;
  const NumberedText* table = MessageTable(&count);
  for (size_t i = 0; i < count; ++i) {
    for (const char* p = std::strchr(table[i].text, '%'); p; p = std::strchr(p + 1, '%')) {
      EXPECT_TRUE(std::strncmp(p, "%s", 2) == 0 || std::strncmp(p, "%ld", 3) == 0)
          << table[i].number << ": " << table[i].text;
    }
  }
}

TEST(MessageTable, LoadStringCopiesWithinTheBuffer) {
  EXPECT_EQ(LoadString(2221, 9), "Accounts");
  EXPECT_EQ(LoadString(2221, 1), "");
  EXPECT_EQ(LoadString(99999), "");
  char buffer[4] = "abc";
  EXPECT_EQ(LoadStringA(nullptr, 2220, buffer, 0), 0);
  EXPECT_STREQ(buffer, "abc") << "a zero capacity writes nothing";
  EXPECT_EQ(LoadStringA(nullptr, 2220, nullptr, 10), 0);
}

TEST(Messages, InsertsAreFilledWhateverTheCallSupplies) {
  ScriptedMessages messages;
  MessageWithString(MB_ICONEXCLAMATION, 2203, "1100");
  EXPECT_EQ(messages.Last().text, "Account 1100 was not found.");
  EXPECT_EQ(messages.Last().number, 2203);
  EXPECT_EQ(messages.Last().style, MB_ICONEXCLAMATION);

  MessageWithCard(MB_ICONEXCLAMATION, 2551, "WIDGET", "GADGET");
  EXPECT_EQ(messages.Last().text, "Items WIDGET and GADGET have the same UPC/SKU.");
  MessageWithPara(MB_ICONEXCLAMATION, 5502, 4);
  EXPECT_EQ(messages.Last().text, "A general record could not be read (record kind 4).");

  // Calls that supply other inserts than the text asks for: shown, never read past.
  MessageWithPara(MB_ICONEXCLAMATION, 2203, -17);
  EXPECT_EQ(messages.Last().text, "Account -17 was not found.");
  MessageWithString(MB_ICONEXCLAMATION, 5501, "%s%s%n");
  EXPECT_NE(messages.Last().text.find("status %s%s%n)"), std::string::npos);
  Message(MB_ICONEXCLAMATION, 2551);
  EXPECT_EQ(messages.Last().text, "Items  and  have the same UPC/SKU.");
  MessageWithString(MB_ICONEXCLAMATION, 2203, nullptr);
  EXPECT_EQ(messages.Last().text, "Account  was not found.");

  MessageWithCard(MB_OK, 424242, "a", "b");
  EXPECT_EQ(messages.Last().text, "Message 424242: a, b");
  Message(MB_OK, 424243);
  EXPECT_EQ(messages.Last().text, "Message 424243");

  MessageWithString(MB_RETRYCANCEL, 20085, "CHART.DAT");
  EXPECT_NE(messages.Last().text.find("CHART.DAT is in use"), std::string::npos);
  MessageWithString(MB_RETRYCANCEL, 20077, "CHART.DAT");
  EXPECT_NE(messages.Last().text.find("CHART.DAT"), std::string::npos);
  EXPECT_NE(messages.Last().text.find("status 77"), std::string::npos);

  MessageBoxText(MB_OK, "100% plain");
  EXPECT_EQ(messages.Last().text, "100% plain");
  EXPECT_EQ(messages.Last().number, 0);
}

TEST(Messages, AnswerComesFromTheHandlerOrTheDefaultForTheStyle) {
  {
    ScriptedMessages messages;
    messages.Answer(IDYES);
    messages.Answer(IDRETRY);
    EXPECT_EQ(MessageWithString(MB_YESNO | MB_ICONQUESTION, 2204, "1100"), IDYES);
    EXPECT_EQ(Message(MB_RETRYCANCEL, 20258), IDRETRY);
    EXPECT_EQ(messages.Numbers(), (std::vector<int>{2204, 20258}));
  }
  // No handler: the text goes to standard error and the answer changes nothing.
  testing::internal::CaptureStderr();
  EXPECT_EQ(Message(MB_ICONINFORMATION, 1913), IDOK);
  EXPECT_EQ(Message(MB_ICONEXCLAMATION, 2200), IDOK);
  EXPECT_EQ(MessageWithString(MB_YESNO | MB_ICONQUESTION, 804, "J1"), IDNO);
  EXPECT_EQ(MessageWithString(MB_YESNOCANCEL, 804, "J1"), IDNO);
  EXPECT_EQ(Message(MB_RETRYCANCEL | MB_ICONEXCLAMATION, 5503), IDCANCEL);
  EXPECT_EQ(Message(MB_OKCANCEL, 5503), IDCANCEL);
  EXPECT_EQ(MessageBoxText(MB_ABORTRETRYIGNORE | MB_ICONSTOP, "assert"), IDIGNORE);
  std::string written = testing::internal::GetCapturedStderr();
  EXPECT_NE(written.find("No cash account"), std::string::npos);
  EXPECT_NE(written.find("Project J1 is inactive"), std::string::npos);

  // A handler may itself show a message (a host that logs through the library).
  int depth = 0;
  SetMessageHandler([&depth](const HostMessage& m) {
    if (++depth == 1) Message(MB_OK, 2200);
    return m.number == 2200 ? IDOK : IDCANCEL;
  });
  EXPECT_EQ(Message(MB_OKCANCEL, 5500), IDCANCEL);
  EXPECT_EQ(depth, 2);
  SetMessageHandler(nullptr);
}

TEST(Broadcasts, DeliveredSynchronouslyToTheHandler) {
  BroadcastMessage(1181, 1, nullptr);  // no handler: nothing happens
  std::vector<unsigned> seen;
  int payload = 7;
  SetBroadcastHandler([&](unsigned message, uintptr_t wparam, const void* lparam) {
    seen.push_back(message);
    EXPECT_EQ(wparam, 42u);
    EXPECT_EQ(lparam, &payload);
  });
  BroadcastMessage(1182, 42, &payload);
  BroadcastMessage(1183, 42, &payload);
  SetBroadcastHandler(nullptr);
  BroadcastMessage(1181, 42, &payload);
  EXPECT_EQ(seen, (std::vector<unsigned>{1182, 1183}));
}

}  // namespace
