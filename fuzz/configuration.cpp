// Each element of a configuration file is a record or a failure with an error line, as a plain
// reader of the file sees it too; and what a record gives as arguments can be split, or is refused.
#include <ace/ARGV.h>
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/input.h"
#include "tests/support/log_capture.h"
#include "vexa/json_conf_t.h"
#include "vexa/json_reader.h"

namespace {

/// Keeps the records, loads nothing.
class Records final : public JSON_Base_Conf {
public:
  Records() : JSON_Base_Conf("method", 6) {}
  std::vector<std::string> methods;

private:
  bool handle_record() override {
    methods.push_back(uri());
    if (vexa::can_split(params().c_str())) {
      const ACE_ARGV words(params().c_str(), true);
      FUZZ_CHECK(words.argc() >= 0);
    }
    return true;
  }
};

/// A file without a folder, and so without waiting for a disk.
class Memory_File {
public:
  explicit Memory_File(std::string_view text)
      : file_(::memfd_create("configuration", MFD_CLOEXEC)) {
    FUZZ_CHECK(::write(file_, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  }
  ~Memory_File() { ::close(file_); }
  Memory_File(const Memory_File&) = delete;
  Memory_File& operator=(const Memory_File&) = delete;
  std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

private:
  const int file_;
};

void check(const json_spirit::Value& file, const Records& records, std::size_t failures) {
  if (file.type() != json_spirit::array_type) {
    FUZZ_CHECK(failures == 1 && records.methods.empty());
    return;
  }
  const json_spirit::Array& elements = file.get_array();
  FUZZ_CHECK(records.methods.size() + failures == elements.size());
  auto method = records.methods.begin();
  for (const json_spirit::Value& element : elements) {
    if (method == records.methods.end()) break;
    if (element.type() != json_spirit::obj_type) continue;
    const auto member = element.get_obj().find("method");
    if (member != element.get_obj().end() && member->second == json_spirit::Value(*method)) {
      ++method;
    }
  }
  FUZZ_CHECK(method == records.methods.end());  // in their order
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Log_Capture log;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const Memory_File file(text);
  Records records;
  const std::size_t failures = load_json_config(file.path().c_str(), records);
  FUZZ_CHECK(log.texts(LM_ERROR).size() == failures);

  json_spirit::Value value;
  if (json_read(text.data(), text.size(), value)) {
    check(value, records, failures);
  } else if (text.find('/') == std::string_view::npos) {  // else there may be comments
    FUZZ_CHECK(failures != 0);
  }
  return 0;
}
