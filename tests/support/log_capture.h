#pragma once

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Record.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Takes every record that any thread logs through ACE while it lives, in place of standard error.
/// Made before the threads that log and destroyed after them; captures may nest, the inner one
/// takes the records. Any thread may ask. A text is the whole record, its final line feed included.
class Log_Capture : public ACE_Log_Msg_Backend {
public:
  typedef std::pair<ACE_Log_Priority, std::string> Record;

  Log_Capture() : outer_(ACE_Log_Msg::msg_backend(this)), flags_(ACE_LOG_MSG->flags()) {
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
  }
  ~Log_Capture() override {
    if ((flags_ & ACE_Log_Msg::CUSTOM) == 0) ACE_LOG_MSG->clr_flags(ACE_Log_Msg::CUSTOM);
    if ((flags_ & ACE_Log_Msg::STDERR) != 0) ACE_LOG_MSG->set_flags(ACE_Log_Msg::STDERR);
    ACE_Log_Msg::msg_backend(outer_);
  }
  Log_Capture(const Log_Capture&) = delete;
  Log_Capture& operator=(const Log_Capture&) = delete;

  std::vector<Record> records() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return records_;
  }

  /// The records of one priority, in order.
  std::vector<std::string> texts(ACE_Log_Priority priority) const {
    std::vector<std::string> texts;
    for (const Record& record : records()) {
      if (record.first == priority) texts.push_back(record.second);
    }
    return texts;
  }

  /// Whether a record of that priority reads exactly `text`.
  bool contains(ACE_Log_Priority priority, const std::string& text) const {
    const std::vector<std::string> found = texts(priority);
    return std::find(found.begin(), found.end(), text) != found.end();
  }

  /// How many records, of any priority, hold `part` somewhere.
  std::size_t count(const std::string& part) const {
    const std::vector<Record> found = records();
    return std::count_if(found.begin(), found.end(), [&](const Record& record) {
      return record.second.find(part) != std::string::npos;
    });
  }

  std::size_t size() const { return records().size(); }

  void clear() {
    const std::lock_guard<std::mutex> guard(mutex_);
    records_.clear();
  }

  int open(const ACE_TCHAR*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record& record) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    records_.emplace_back(static_cast<ACE_Log_Priority>(record.type()), record.msg_data());
    return 0;
  }

private:
  ACE_Log_Msg_Backend* const outer_;
  const unsigned long flags_;
  mutable std::mutex mutex_;
  std::vector<Record> records_;  // guarded by mutex_
};

/// Enables exactly `priorities` for the process, and for this thread, while it lives.
class Log_Priorities {
public:
  explicit Log_Priorities(unsigned long priorities)
      : process_(ACE_LOG_MSG->priority_mask(priorities, ACE_Log_Msg::PROCESS)),
        thread_(ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::THREAD)) {}
  ~Log_Priorities() {
    ACE_LOG_MSG->priority_mask(process_, ACE_Log_Msg::PROCESS);
    ACE_LOG_MSG->priority_mask(thread_, ACE_Log_Msg::THREAD);
  }
  Log_Priorities(const Log_Priorities&) = delete;
  Log_Priorities& operator=(const Log_Priorities&) = delete;

private:
  const unsigned long process_;
  const unsigned long thread_;
};
