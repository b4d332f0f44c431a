// Messages and strings by number: every number the library uses has a text, inserts are filled
// safely, and the answer is the handler's or, without one, the choice that changes nothing.
#include <cstring>
#include <regex>
#include <string>
#include <utility>
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

std::string Text(int number) { return MessageText(number) ? MessageText(number) : ""; }
bool Fits(const std::string& text, size_t width) { return !text.empty() && text.size() <= width; }

TEST(MessageTable, EveryNumberTheLibraryUsesHasATextCopiedWithinTheBuffer) {
  const int numbers[] = {801,  804,  1913, 2200,  2203,  2204,  2533,  2400,  2417,  2477, 2493,
                         2507, 2508, 2509, 2510,  2550,  2551,  4482,  4484,  4493,  4497, 5500,
                         5501, 5502, 5503, 10320, 10321, 15603, 15604, 15703, 15704, 20258};
  for (int number : numbers) EXPECT_GT(Text(number).size(), 10u) << number;
  // Every status the record manager reports names the file; other statuses a generic text.
  const int statuses[] = {2, 3, 4, 5, 6, 8, 9, 10, 12, 18, 22, 25, 43, 46, 51, 59, 77, 80, 84, 85};
  for (int s : statuses) EXPECT_NE(Text(20000 + s).find("%s"), std::string::npos) << s;
  for (int j = 310; j <= 323; ++j) EXPECT_TRUE(Fits(Text(j), 28)) << "journal name " << j;
  EXPECT_EQ(Text(310), "Cash Disbursements Journal");
  EXPECT_EQ(Text(311), "General Journal");
  EXPECT_EQ(MessageText(12345), nullptr);
  const unsigned strings[] = {806, 807, 2206, 2207, 2208, 15706};
  for (unsigned id : strings) EXPECT_FALSE(LoadString(id).empty()) << id;
  for (unsigned id = 2220; id <= 2236; ++id) EXPECT_TRUE(Fits(LoadString(id), 30)) << id;
  const std::pair<unsigned, const char*> texts[] = {
      {2220, "Cash"}, {2235, "Expenses"}, {2252, "Increase"}, {2253, "Decrease"}};
  for (const auto& [id, text] : texts) EXPECT_EQ(LoadString(id), text);
  EXPECT_TRUE(Fits(LoadString(10106), 15) && Fits(LoadString(4406), 20));

  // Only %s and %ld mark inserts in the table, so the filler understands every text.
  size_t count = 0;
  const NumberedText* table = MessageTable(&count);
  const std::regex insert("%s|%ld");
  for (size_t i = 0; i < count; ++i) {
    std::string rest = std::regex_replace(table[i].text, insert, "");
    EXPECT_EQ(rest.find('%'), std::string::npos) << table[i].number << ": " << table[i].text;
  }
  // LoadStringA copies within the buffer.
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
  // The text of the message that the call in the argument showed.
  auto shown = [&messages](int) { return messages.Last().text; };
  EXPECT_EQ(shown(MessageWithString(MB_OK, 2203, "1100")), "Account 1100 was not found.");
  EXPECT_EQ(shown(MessageWithCard(MB_OK, 2551, "WIDGET", "GADGET")),
            "Items WIDGET and GADGET have the same UPC/SKU.");
  EXPECT_EQ(shown(MessageWithPara(MB_OK, 5502, 4)),
            "A general record could not be read (record kind 4).");
  // Calls that supply other inserts than the text asks for: shown, never read past.
  EXPECT_EQ(shown(MessageWithPara(MB_OK, 2203, -17)), "Account -17 was not found.");
  EXPECT_NE(shown(MessageWithString(MB_OK, 5501, "%s%s%n")).find("status %s%s%n)"),
            std::string::npos);
  EXPECT_EQ(shown(Message(MB_OK, 2551)), "Items  and  have the same UPC/SKU.");
  EXPECT_EQ(shown(MessageWithString(MB_OK, 2203, nullptr)), "Account  was not found.");
  EXPECT_EQ(shown(MessageWithCard(MB_OK, 424242, "a", "b")), "Message 424242: a, b");
  EXPECT_EQ(shown(MessageWithString(MB_OK, 20077, "CHART.DAT")),
            "The record manager could not use the data file CHART.DAT. (record manager status 77)");
  EXPECT_EQ(shown(MessageBoxText(MB_OK, "100% plain")), "100% plain");
}

TEST(Messages, AnswerComesFromTheHandlerOrTheDefaultForTheStyle) {
  // No handler: the text goes to standard error and the answer changes nothing.
  const unsigned question = MB_YESNO | MB_ICONQUESTION, retry = MB_RETRYCANCEL | MB_ICONSTOP;
  const std::pair<unsigned, int> defaults[] = {
      {MB_ICONINFORMATION, IDOK}, {question, IDNO},  {MB_YESNOCANCEL, IDNO},
      {MB_OKCANCEL, IDCANCEL},    {retry, IDCANCEL}, {MB_ABORTRETRYIGNORE, IDIGNORE}};
  testing::internal::CaptureStderr();
  for (auto [style, answer] : defaults) EXPECT_EQ(MessageWithString(style, 804, "J1"), answer);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("J1 is inactive"), std::string::npos);

  ScriptedMessages messages;
  messages.Answer(IDYES);
  messages.Answer(IDRETRY);
  EXPECT_EQ(MessageWithString(MB_YESNO | MB_ICONQUESTION, 2204, "1100"), IDYES);
  EXPECT_EQ(Message(MB_RETRYCANCEL, 20258), IDRETRY);
  EXPECT_EQ(messages.Numbers(), (std::vector<int>{2204, 20258}));

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
  std::vector<unsigned> seen;
  SetBroadcastHandler([&seen](unsigned message, uintptr_t wparam, const void* lparam) {
    if (wparam == 42 && lparam == &seen) seen.push_back(message);
  });
  BroadcastMessage(1182, 42, &seen);
  SetBroadcastHandler(nullptr);
  BroadcastMessage(1181, 42, &seen);  // no handler: nothing happens
  EXPECT_EQ(seen, (std::vector<unsigned>{1182}));
}

}  // namespace
