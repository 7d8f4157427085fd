#include "vexa/json_base_conf.h"

#include <ace/OS_NS_fcntl.h>
#include <ace/OS_NS_unistd.h>

#include <algorithm>
#include <new>

#include "json_spirit/json_spirit_value.h"
#include "vexa/exception_text.h"
#include "vexa/handle_eintr.h"
#include "vexa/json_dump.h"
#include "vexa/json_limits.h"
#include "vexa/log.h"
#include "vexa/on_exit.h"
#include "vexa/yajl_error.h"
#include "vexa/yajl_parse_handle.h"

/// A file, read and parsed in pieces. yajl tells only how far into the piece it has come, so lines
/// are counted on the way.
class JSON_Base_Conf::Source {
public:
  Source(const char* path, JSON_Base_Conf& reader) : path_(path) {
    if (parser_.open(get_yajl_default_callbacks(), &reader)) {
      yajl_config(parser_.get(), yajl_allow_comments, 1);
    }
  }

  const char* path() const { return path_; }

  /// The line, from 1, that the parser has come to.
  std::size_t line() {
    advance();
    return line_;
  }

  /// False when the file could not be read (errno), or parsed: then error() says why.
  bool read(int file);

  bool parse_failed() const { return status_ != yajl_status_ok; }

  void log_parse_error(const char* why);

private:
  void advance();
  std::string error();

  const char* const path_;
  YAJL_Parse_Handle parser_;
  char piece_[16 * 1024];
  std::size_t size_ = 0;     // of the piece
  std::size_t counted_ = 0;  // bytes of the piece whose lines are counted
  std::size_t line_ = 1;
  std::size_t column_ = 0;  // bytes of the line that are counted
  yajl_status status_ = yajl_status_ok;
};

bool JSON_Base_Conf::Source::read(int file) {
  if (!parser_.is_open()) {
    errno = ENOMEM;
    return false;
  }
  for (;;) {
    const ssize_t n = handle_EINTR([&] { return ACE_OS::read(file, piece_, sizeof piece_); });
    if (n < 0) return false;
    if (n == 0) break;
    size_ = static_cast<std::size_t>(n);
    counted_ = 0;
    errno = 0;
    status_ = parser_.feed(piece_, size_);
    if (status_ != yajl_status_ok) return false;
    advance();
  }
  size_ = counted_ = 0;
  errno = 0;
  status_ = parser_.feed(nullptr, 0);
  return status_ == yajl_status_ok;
}

void JSON_Base_Conf::Source::advance() {
  if (!parser_.is_open()) return;
  const std::size_t end = std::min<std::size_t>(yajl_get_bytes_consumed(parser_.get()), size_);
  for (; counted_ < end; ++counted_) {
    ++column_;
    if (piece_[counted_] == '\n') {
      ++line_;
      column_ = 0;
    }
  }
}

void JSON_Base_Conf::Source::log_parse_error(const char* why) {
  advance();
  const std::string text = why != nullptr ? std::string(why) : error();
  VEXA_ERROR("%s:%B:%B: Failed to parse configuration: %s\n", path_, line_, column_, text.c_str());
}

std::string JSON_Base_Conf::Source::error() {
  if (errno == ENOMEM) parser_.close();  // a handler's want of memory reads like yajl's own
  std::string text = YAJL_Error(parser_, false, nullptr, 0).c_str();
  text.erase(text.find_last_not_of('\n') + 1);
  return text;
}

namespace {

/// A name from the file as one quoted word for a log line.
std::string quoted(const std::string& name) {
  constexpr std::size_t longest = 64;
  return JSON_Dump(json_spirit::Value(name.substr(0, longest))).str();
}

}  // namespace

JSON_Base_Conf::JSON_Base_Conf(const char* key, unsigned int key_length)
    : key_(key), key_length_(key_length) {}

JSON_Base_Conf::~JSON_Base_Conf() = default;

void JSON_Base_Conf::begin(Source* source) {
  source_ = source;
  depth_ = 0;
  failures_ = 0;
  stopped_ = nullptr;
}

bool JSON_Base_Conf::handle_null_i() { return scalar(); }
bool JSON_Base_Conf::handle_boolean_i(bool) { return scalar(); }
bool JSON_Base_Conf::handle_number_i(const char*, std::size_t) { return scalar(); }

bool JSON_Base_Conf::handle_string_i(const char* text, std::size_t length) {
  if (depth_ != 2 || value_ == nullptr) return scalar();
  value_->assign(text, length);
  return true;
}

bool JSON_Base_Conf::handle_start_map_i() {
  if (depth_ == 0) return stop("the file is not an array of records");
  if (depth_ == 1) begin_record();
  return open();
}

bool JSON_Base_Conf::handle_map_key_i(const char* text, std::size_t length) {
  if (depth_ != 2 || skip_) return true;
  member_name_.assign(text, length);
  value_ = member(text, length);
  return true;
}

bool JSON_Base_Conf::handle_end_map_i() {
  close();
  if (depth_ == 1) end_record();
  return true;
}

bool JSON_Base_Conf::handle_start_array_i() {
  if (depth_ == 1) {
    begin_record();
    bad("it is not an object");
  }
  return open();
}

bool JSON_Base_Conf::handle_end_array_i() {
  close();
  return true;
}

/// A container begins, anywhere.
bool JSON_Base_Conf::open() {
  if (depth_ >= vexa::max_value_depth) return stop("values are nested too deep");
  if (depth_ == 2) scalar();
  ++depth_;
  return true;
}

void JSON_Base_Conf::close() { --depth_; }

/// A value that is no text, or stands where none is read.
bool JSON_Base_Conf::scalar() {
  if (depth_ == 0) return stop("the file is not an array of records");
  if (depth_ == 1) {
    begin_record();
    bad("it is not an object");
  } else if (depth_ == 2 && value_ != nullptr) {
    bad("its member " + quoted(member_name_) + " is not a text");
  }
  return true;
}

void JSON_Base_Conf::begin_record() {
  record_line_ = source_ != nullptr ? source_->line() : 0;
  for (std::string* text : {&uri_, &dll_, &init_, &params_}) text->clear();
  value_ = nullptr;
  seen_ = 0;
  skip_ = false;
}

void JSON_Base_Conf::end_record() {
  if (!skip_ && (seen_ & 1) == 0) bad("it has no member " + quoted(std::string(key_, key_length_)));
  if (!skip_ && !handle_record()) ++failures_;
}

/// Where the value of a member goes; null, with the record given up, when it has no place.
std::string* JSON_Base_Conf::member(const char* name, std::size_t length) {
  const std::string wanted(name, length);
  const struct {
    std::string name;
    std::string* value;
  } members[] = {{std::string(key_, key_length_), &uri_},
                 {"dll", &dll_},
                 {"init", &init_},
                 {"params", &params_}};
  unsigned bit = 1;
  for (const auto& m : members) {
    if (m.name == wanted) {
      if ((seen_ & bit) != 0) {
        bad("its member " + quoted(wanted) + " is given twice");
        return nullptr;
      }
      seen_ |= bit;
      return m.value;
    }
    bit <<= 1;
  }
  bad("its member " + quoted(wanted) + " is unknown");
  return nullptr;
}

/// Gives the current record up; what is left of it is skipped.
void JSON_Base_Conf::bad(const std::string& why) {
  skip_ = true;
  value_ = nullptr;
  ++failures_;
  VEXA_ERROR("%s:%B: Skipped a bad record: %s.\n", source_ != nullptr ? source_->path() : "",
             record_line_, why.c_str());
}

bool JSON_Base_Conf::stop(const char* why) {
  stopped_ = why;
  return false;
}

std::size_t load_json_config(const char* path, JSON_Base_Conf& reader) {
  reader.begin(nullptr);
  try {
    const int file = handle_EINTR([&] { return ACE_OS::open(path, O_RDONLY | O_CLOEXEC); });
    const auto close_file = vexa::on_exit([&] {
      if (file != -1) ACE_OS::close(file);
    });
    const auto source = std::make_unique<JSON_Base_Conf::Source>(path, reader);
    const auto forget = vexa::on_exit([&] { reader.source_ = nullptr; });
    reader.begin(source.get());
    if (file != -1 && source->read(file)) return reader.failures_;
    if (source->parse_failed()) {
      source->log_parse_error(reader.stopped_);
    } else {
      VEXA_ERROR("%s: Failed to read configuration: %m\n", path);
    }
  } catch (...) {
    VEXA_ERROR("%s: Failed to read configuration: %s\n", path, vexa::exception_text());
  }
  return reader.failures_ + 1;
}
