#pragma once

#include <cstddef>
#include <string>

#include "vexa/vexa_export.h"
#include "vexa/yajl_handler.h"

/// Reads a configuration file of records, an array of objects whose members are all texts:
///
///     [{"method": "sum", "dll": "libsum.so", "init": "make_sum", "params": "a \"b c\" $HOME"}]
///
/// The name of the first member is the reader's to choose. `//` and `/* */` comments are allowed. A
/// record is bad, and skipped with a line of its own, when it is not an object, has no key member,
/// or has a member that is unknown, given twice or not a text. A missing "dll" or "init" reads as
/// an empty text, with which loading then fails; a missing "params" is no arguments.
///
/// Fed by load_json_config(), on one thread.
class VEXA_EXPORT JSON_Base_Conf : public YAJL_Handler {
public:
  /// @param key name of the key member, borrowed for the reader's life
  JSON_Base_Conf(const char* key, unsigned int key_length);
  JSON_Base_Conf(const JSON_Base_Conf&) = delete;
  JSON_Base_Conf& operator=(const JSON_Base_Conf&) = delete;
  ~JSON_Base_Conf() override;

  bool handle_null_i() override;
  bool handle_boolean_i(bool value) override;
  bool handle_number_i(const char* text, std::size_t length) override;
  bool handle_string_i(const char* text, std::size_t length) override;
  bool handle_start_map_i() override;
  bool handle_map_key_i(const char* text, std::size_t length) override;
  bool handle_end_map_i() override;
  bool handle_start_array_i() override;
  bool handle_end_array_i() override;

protected:
  /// Acts on the record that the four texts below describe, and logs what goes wrong with it. False
  /// when it failed; reading goes on with the next record.
  virtual bool handle_record() = 0;

  const std::string& uri() const { return uri_; }  ///< the key member: a method name or a URI
  const std::string& dll() const { return dll_; }
  const std::string& init() const { return init_; }
  const std::string& params() const { return params_; }

private:
  friend VEXA_EXPORT std::size_t load_json_config(const char* path, JSON_Base_Conf& reader);

  /// Where the text of the events stands in its file.
  class Source;

  void begin(Source* source);
  bool open();
  void close();
  bool scalar();
  void begin_record();
  void end_record();
  std::string* member(const char* name, std::size_t length);
  void bad(const std::string& why);
  bool stop(const char* why);

  const char* const key_;
  const unsigned int key_length_;
  std::string uri_;
  std::string dll_;
  std::string init_;
  std::string params_;

  Source* source_ = nullptr;     // set while load_json_config() runs
  std::size_t depth_ = 0;        // open containers; 1 in the list of records, 2 in a record
  std::size_t record_line_ = 0;  // where the record begins
  std::size_t failures_ = 0;
  std::string* value_ = nullptr;   // the member whose value comes next; null when it is skipped
  std::string member_name_;        // its name, for messages
  unsigned seen_ = 0;              // one bit a member of the record
  bool skip_ = false;              // the record is bad and its line is logged
  const char* stopped_ = nullptr;  // why reading was given up; null while it goes on
};

/// Reads `path` into `reader`, record by record as they come. How many records failed; a file that
/// cannot be read or parsed to its end counts one more and is one line at error priority, with the
/// line and column where it stands. The records before that place stay loaded. Nothing is thrown.
VEXA_EXPORT std::size_t load_json_config(const char* path, JSON_Base_Conf& reader);

/// The key member of the records that are told apart by URI.
struct URI_Base_Conf_Traits {
  static constexpr char key[] = "uri";
};
