// The reader makes the same of a text, whole or cut anywhere; and a message that it accepts is
// written and read again to the same message.
#include "json_rpc/json_rpc_reader.h"

#include "fuzz/input.h"
#include "json_rpc/json_rpc_writer.h"
#include "tests/support/log_capture.h"

namespace {

std::string written(const JSON_RPC_Object& object) {
  std::string text;
  YAJL_String_Printer printer(text);
  FUZZ_CHECK(JSON_RPC_Writer().write(object, printer));
  return text;
}

struct Outcome {
  bool accepted = true;
  int error = 0;
  bool refused = false;
  unsigned int members = 0;
  json_spirit::Value id;
  JSON_RPC_Object_var message;  // null unless accepted

  std::string text() const { return message.get() == nullptr ? "" : written(*message); }
};

Outcome read(const Fuzz_Input::Pieces& pieces) {
  JSON_RPC_Reader reader;
  FUZZ_CHECK(reader.open());
  Outcome outcome;
  for (const auto& piece : pieces) {
    outcome.accepted = outcome.accepted && reader.read(piece.data(), piece.size());
  }
  outcome.accepted = outcome.accepted && reader.read(nullptr, 0);
  outcome.error = reader.error();
  outcome.refused = reader.refused();
  outcome.members = reader.members();
  outcome.id = reader.id();
  if (outcome.accepted) outcome.message = reader.object();
  return outcome;
}

bool same_body(const JSON_RPC_Object& a, const JSON_RPC_Object& b) {
  switch (a.type) {
    case JSON_RPC_Object::TYPE_RESPONSE:
      return static_cast<const JSON_RPC_Response&>(a).result ==
             static_cast<const JSON_RPC_Response&>(b).result;
    case JSON_RPC_Object::TYPE_RESPONSE_ERROR: {
      const auto& x = static_cast<const JSON_RPC_Response_Error&>(a);
      const auto& y = static_cast<const JSON_RPC_Response_Error&>(b);
      return x.code == y.code && x.message == y.message && x.data == y.data;
    }
    default: {
      const auto& x = static_cast<const JSON_RPC_Request&>(a);
      const auto& y = static_cast<const JSON_RPC_Request&>(b);
      return x.method == y.method && x.params == y.params;
    }
  }
}

void write_and_read_again(const JSON_RPC_Object& object) {
  const std::string text = written(object);
  const Outcome again = read({{text.begin(), text.end()}});
  FUZZ_CHECK(again.message.get() != nullptr);
  // A null id is written in front of the method, where it leaves a notification.
  const bool null_request = object.type == JSON_RPC_Object::TYPE_REQUEST && object.id.is_null();
  FUZZ_CHECK(again.message->type == (null_request ? JSON_RPC_Object::TYPE_NOTIFY : object.type));
  // Half of a surrogate pair is read, and written as U+FFFD.
  if (text.find("\xef\xbf\xbd") != std::string::npos) return;
  FUZZ_CHECK(again.message->version == object.version && again.message->id == object.id);
  FUZZ_CHECK(same_body(object, *again.message));
  FUZZ_CHECK(null_request || written(*again.message) == text);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Log_Capture log;
  const Fuzz_Input input(data, size);
  const Outcome whole = read(input.whole());
  const Outcome cut = read(input.cut());
  FUZZ_CHECK(whole.accepted == cut.accepted && whole.error == cut.error);
  FUZZ_CHECK(whole.refused == cut.refused && whole.members == cut.members);
  FUZZ_CHECK(whole.id == cut.id && whole.text() == cut.text());
  if (whole.message.get() != nullptr) {
    FUZZ_CHECK(whole.message->type == cut.message->type && same_body(*whole.message, *cut.message));
    write_and_read_again(*whole.message);
  }
  return 0;
}
