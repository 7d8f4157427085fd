#pragma once

#include <cstddef>
#include <vector>

#include "json_rpc/json_rpc_export.h"
#include "vexa/yajl_handler.h"
#include "vexa/yajl_parse_handle.h"

/// One open object or array of the text that is being parsed.
struct JSON_State {
  JSON_State(bool o, unsigned long long k, unsigned long long m) : obj(o), key(k), masks(m) {}

  bool obj;                  ///< true, for arrays too
  unsigned long long key;    ///< the bit of the member being read; 0: unknown, or none seen
  unsigned long long masks;  ///< the bits of the members whose value was reported
};

/// Turns a byte stream, fed in pieces of any size, into the member events of one JSON-RPC message,
/// without building the document: checks member names and the JSON types of their values, reports
/// each accepted member to handle_key_i, and hands what lies deeper to a nested handler where one
/// is set. A container is reported twice, when it opens and when it has closed; callback_type()
/// tells. One parse handle takes one JSON text: open() again before the next. One thread.
class JSON_RPC_EXPORT JSON_RPC_Parser : public YAJL_Handler {
public:
  enum {
    VERSION_BIT = 1,
    ID_BIT = 2,
    PARAMS_BIT = 4,
    METHOD_BIT = 8,
    RESULT_BIT = 16,
    ERROR_BIT = 32,
    CODE_BIT = 64,
    MESSAGE_BIT = 128,
    DATA_BIT = 256
  };

  /// What error() gives, and failure lines print as err=.
  enum Error {
    ERROR_NONE = 0,
    ERROR_NO_HANDLE = 1,  ///< the parse handle could not be allocated
    ERROR_NO_MEMORY = 2,  ///< a message, or a part of it, could not be allocated
    ERROR_STRUCTURE = 3,  ///< not an object, or an end without its start
    ERROR_CODE = 4,       ///< the error code is not an integer
    ERROR_MEMBER = 5,     ///< an unknown member, or a value of a type that the member cannot have
    ERROR_DEPTH = 6,      ///< a value deeper than vexa::max_value_depth
    ERROR_EVENT = 9       ///< a value that the member cannot take
  };

  JSON_RPC_Parser();
  ~JSON_RPC_Parser() override;

  /// Closes, then allocates a parse handle: comments are refused, UTF-8 is checked.
  bool open();
  bool is_open() const { return handle_.is_open(); }
  void close();

  /// Feeds input; null data or length 0 says that it has ended, so that an incomplete text fails.
  /// False when no handle is open, and when the text or a handler refuses it: then one line is
  /// logged and the levels stay as they were; the owner closes the parser. Without memory it is not
  /// open any more.
  bool read(const char* data, std::size_t length);

  /// The Error of the last failure; ERROR_NONE after a failure means that the text is no JSON, or
  /// that a nested handler refused it.
  int error() const { return err_; }

  /// Whether the last read() failed because a handler refused the text, not because it is no JSON.
  bool refused() const { return refused_; }

  /// How many bytes of the last read() were taken: after a failure, the place of the failure.
  std::size_t consumed() const;

  /// The bits of the known members whose names were seen at the top level so far, complete or not.
  unsigned int members() const { return members_; }

  /// Accepts the value of the innermost level's member when `allowed` has its bit, and reports it;
  /// otherwise ERROR_MEMBER.
  bool handle_any(unsigned int allowed, const char* text, std::size_t length);

  bool handle_null_i() override;
  bool handle_boolean_i(bool value) override;
  bool handle_number_i(const char* text, std::size_t length) override;
  bool handle_string_i(const char* text, std::size_t length) override;
  bool handle_start_map_i() override;
  bool handle_map_key_i(const char* text, std::size_t length) override;
  bool handle_end_map_i() override;
  bool handle_start_array_i() override;
  bool handle_end_array_i() override;

  /// A member's value: `key` is its bit, or 0 for the start and the end of the message. Numbers and
  /// strings come as text; of a boolean `length` is the value; null and containers have neither.
  virtual bool handle_key_i(unsigned int key, const char* text, std::size_t length) = 0;

protected:
  bool fail(Error error) {
    err_ = error;
    return false;
  }
  /// What has been reported at the top level so far.
  unsigned int reported() const {
    return states_.empty() ? 0 : static_cast<unsigned int>(states_.front().masks);
  }

  YAJL_Parse_Handle handle_;
  int err_;
  std::vector<JSON_State> states_;  ///< the open levels, outermost first

private:
  bool in_error() const { return states_.front().key == ERROR_BIT; }
  bool handle_scalar(unsigned int top, unsigned int in_error, const char* text, std::size_t length);
  bool start(unsigned int top, bool map);
  bool too_deep() const;
  void report(const char* data, std::size_t length);

  bool refused_;
  unsigned int members_;
};
