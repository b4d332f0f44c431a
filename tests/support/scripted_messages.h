// Records every message the library shows and answers them from a script, so that a test
// can check which message came, with what text, and steer the user's answers.
#ifndef BASICS_TESTS_SUPPORT_SCRIPTED_MESSAGES_H_
#define BASICS_TESTS_SUPPORT_SCRIPTED_MESSAGES_H_

#include <deque>
#include <string>
#include <vector>

#include "utility.h"

class ScriptedMessages {
 public:
  // Installs itself as the message handler; the previous default returns on destruction.
  ScriptedMessages();
  ~ScriptedMessages();
  ScriptedMessages(const ScriptedMessages&) = delete;
  ScriptedMessages& operator=(const ScriptedMessages&) = delete;

  // The next message is answered with answer (IDYES, IDNO, IDRETRY, ...).
  void Answer(int answer) { answers_.push_back(answer); }
  // Answer when the script is empty: OK/Cancel/No, as the default handler would.
  void SetDefaultAnswer(int answer) { default_answer_ = answer; }

  const std::vector<HostMessage>& shown() const { return shown_; }
  // Numbers of the messages shown so far, in order.
  std::vector<int> Numbers() const;
  // The last message shown (a default-constructed one when none).
  HostMessage Last() const;
  void Clear() { shown_.clear(); }

 private:
  int Handle(const HostMessage& message);

  std::deque<int> answers_;
  std::vector<HostMessage> shown_;
  int default_answer_ = 0;  // 0: the default handler's answer for the style
};

#endif  // BASICS_TESTS_SUPPORT_SCRIPTED_MESSAGES_H_
