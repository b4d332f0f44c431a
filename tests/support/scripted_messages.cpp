#include "scripted_messages.h"

ScriptedMessages::ScriptedMessages() {
  SetMessageHandler([this](const HostMessage& m) { return Handle(m); });
}

ScriptedMessages::~ScriptedMessages() { SetMessageHandler(nullptr); }

std::vector<int> ScriptedMessages::Numbers() const {
  std::vector<int> numbers;
  for (const HostMessage& m : shown_) numbers.push_back(m.number);
  return numbers;
}

HostMessage ScriptedMessages::Last() const {
  return shown_.empty() ? HostMessage{} : shown_.back();
}

int ScriptedMessages::Handle(const HostMessage& message) {
  shown_.push_back(message);
  if (!answers_.empty()) {
    int answer = answers_.front();
    answers_.pop_front();
    return answer;
  }
  if (default_answer_ != 0) return default_answer_;
  switch (message.style & MB_BUTTONS_MASK) {
    case MB_YESNO:
    case MB_YESNOCANCEL:
      return IDNO;
    case MB_RETRYCANCEL:
    case MB_OKCANCEL:
      return IDCANCEL;
    case MB_ABORTRETRYIGNORE:
      return IDIGNORE;
    default:
      return IDOK;
  }
}
