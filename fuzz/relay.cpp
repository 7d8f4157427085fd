// Whatever an agent answers, and however its bytes are cut, a requester receives whole JSON texts,
// one for each id that it asked under and each beginning with that id. Or, once a part of an answer
// that broke off has left, its connection is closed behind such texts and a part of one. A relay
// that waits is resumed when its requester takes what it has; and while nothing leaves, the cuts
// change nothing.
#include <yajl/yajl_parse.h>

#include <cctype>
#include <map>

#include "fuzz/input.h"
#include "json_rpc/json_rpc_session.h"
#include "tests/support/log_capture.h"
#include "transport/inbound.h"

using namespace transport;

namespace {

// A tilde of the input stands for so many bytes: two make an answer that is sent while it comes,
// and four a message that is too long.
constexpr std::size_t tilde_size = 33'000;
constexpr std::size_t max_message = 120'000;
constexpr std::size_t max_tildes = 6;
constexpr std::size_t little = 1024, much = 64u << 20;  // of unsent output

class Counting_Wire final : public Wire {
public:
  void wake() override {}
  void resume() override { ++resumes; }
  void close_soon(const char*) override { ++closes; }

  int resumes = 0;
  int closes = 0;
};

/// A channel with nobody behind it.
struct End {
  explicit End(std::size_t max_queue)
      : wire(std::make_shared<Counting_Wire>()),
        stream(new Stream_Channel(limits(max_queue), Stream_Channel::Addresses(), wire)),
        channel(stream) {
    stream->self(channel);
  }

  static Limits limits(std::size_t max_queue) {
    Limits limits;
    limits.max_message = max_message;
    limits.max_queue = max_queue;
    return limits;
  }

  /// What may be written now leaves.
  void take() {
    std::vector<Output_Piece> batch;
    while (stream->outbox().take(batch)) {
    }
    for (const Output_Piece& piece : batch) {
      output += piece.text();
      stream->outbox().sent(piece.text().size(), piece.answers);
    }
  }

  const std::shared_ptr<Counting_Wire> wire;
  Stream_Channel* const stream;
  const JSON_RPC_Channel_var channel;
  std::string output;
};

/// Whether `text` is JSON, or, when it is not `whole`, the beginning of it.
bool is_json(std::string_view text, bool whole) {
  const yajl_handle parser = yajl_alloc(nullptr, nullptr, nullptr);
  yajl_status status =
      yajl_parse(parser, reinterpret_cast<const unsigned char*>(text.data()), text.size());
  if (whole && status == yajl_status_ok) status = yajl_complete_parse(parser);
  yajl_free(parser);
  return status == yajl_status_ok;
}

bool skip(std::string_view& text, std::string_view prefix) {
  if (text.substr(0, prefix.size()) != prefix) return false;
  text.remove_prefix(prefix.size());
  return true;
}

/// Passes over the rest of a JSON string: no further than the text's end.
void skip_string(std::string_view& text) {
  while (!text.empty() && text.front() != '"') {
    text.remove_prefix(text.front() == '\\' && text.size() > 1 ? 2 : 1);
  }
  skip(text, "\"");
}

/// The id, as text, that an answer begins with, behind its version if it has one; "" when the text
/// ends before.
std::string first_id(std::string_view text) {
  FUZZ_CHECK(skip(text, "{"));
  if (skip(text, "\"jsonrpc\":\"")) {
    skip_string(text);
    if (text.empty()) return std::string();
    FUZZ_CHECK(skip(text, ","));
  }
  if (text.empty()) return std::string();
  FUZZ_CHECK(skip(text, "\"id\":"));
  return std::string(text.substr(0, text.find_first_of(",}")));
}

/// Takes the next answer out of `rest`; whether it is whole.
bool next_answer(std::string_view& rest, bool headers, std::string_view& answer) {
  std::size_t length = rest.find('\n');
  if (headers) {
    FUZZ_CHECK(skip(rest, "Content-Length: "));
    const std::size_t end = rest.find("\r\n\r\n");
    FUZZ_CHECK(end != std::string_view::npos);
    length = std::stoul(std::string(rest.substr(0, end)));
    rest.remove_prefix(end + 4);
    FUZZ_CHECK(length <= rest.size());
  }
  answer = rest.substr(0, length);
  if (length == std::string_view::npos) {
    rest = std::string_view();
    return false;
  }
  rest.remove_prefix(length + (headers ? 0 : 1));
  return true;
}

/// A requester and what it asked under.
struct Requester : End {
  Requester(std::size_t max_queue, bool headers) : End(max_queue) {
    if (headers) stream->framing(Framing::HEADERS);
  }

  void ask(Stream_Channel& agent, const json_spirit::Value& id, const char* text) {
    const JSON_RPC_Object_var request =
        JSON_RPC_Session::make_rpc_request("m", json_spirit::Value());
    request->id = id;
    stream->await(id);
    ++asked[text];
    FUZZ_CHECK(agent.forward(channel, request) == 0);
  }

  bool closed() const { return wire->closes > 0; }

  void check_received() {
    const bool headers = stream->framing() == Framing::HEADERS;
    std::string_view rest = output, answer;
    while (!rest.empty()) {
      const bool whole = next_answer(rest, headers, answer);
      FUZZ_CHECK(whole || closed());
      FUZZ_CHECK(is_json(answer, whole));
      const std::string id = first_id(answer);
      FUZZ_CHECK(asked.count(id) == 1 || (id.empty() && !whole));
      FUZZ_CHECK(id.empty() || --asked[id] == 0);
    }
    for (const auto& id : asked) FUZZ_CHECK(id.second == 0 || closed());
  }

  std::map<std::string, int> asked;  // id as text -> answers that are missing
};

/// The agent, who was asked three things under the forward ids 1 to 3.
class Relay final : public Inbound::Sink {
public:
  Relay(std::size_t max_queue, bool headers)
      : first_(max_queue, headers),
        second_(max_queue, false),
        agent_(max_queue),
        inbound_(*agent_.stream, *this, true) {
    first_.ask(*agent_.stream, "x", "\"x\"");
    second_.ask(*agent_.stream, "y", "\"y\"");
    first_.ask(*agent_.stream, 7, "7");
  }

  /// Whether the agent is read on.
  bool feed(std::string_view piece) {
    const std::vector<char> bytes(piece.begin(), piece.end());  // a byte too many is seen
    std::size_t used;
    const bool stopped = inbound_.feed(bytes.data(), bytes.size(), used) == Inbound::STOP;
    FUZZ_CHECK(stopped || used == bytes.size());
    inbound_.pass_on_relay();
    return !stopped;
  }

  /// The requesters take all, as a relay that waits needs it.
  void go_on() {
    if (!inbound_.relay_waits(agent_.wire)) return;
    // A requester that is to be closed takes nothing behind the answer that broke off: its close
    // ends the wait, and is not played here.
    if (first_.closed() || second_.closed()) return;
    const int resumes = agent_.wire->resumes;
    take(true, true);
    FUZZ_CHECK(agent_.wire->resumes > resumes);
    FUZZ_CHECK(!inbound_.relay_waits(agent_.wire));
  }

  void take(bool first, bool second) {
    if (first) first_.take();
    if (second) second_.take();
  }

  /// The agent's connection closes.
  void close(bool in_order) {
    if (in_order) {
      inbound_.end();
      agent_.stream->no_more_answers();
    }
    inbound_.abandon_relay();
    agent_.stream->closed();
    take(true, true);
    first_.check_received();
    second_.check_received();
  }

  void message(const JSON_RPC_Object_var& object, std::size_t) override {
    if (object->type == JSON_RPC_Object::TYPE_REQUEST) agent_.stream->await(object->id);
    const bool answer = object->type == JSON_RPC_Object::TYPE_RESPONSE ||
                        object->type == JSON_RPC_Object::TYPE_RESPONSE_ERROR;
    if (answer) agent_.stream->answered(object);
  }
  bool overloaded() const override { return false; }

  std::string received() const { return first_.output + second_.output; }

private:
  Requester first_;
  Requester second_;
  End agent_;
  Inbound inbound_;
};

std::string expand(const std::vector<char>& piece, std::size_t& tildes) {
  std::string text;
  for (const char c : piece) {
    if (c != '~') {
      text += c;
    } else if (tildes > 0) {
      --tildes;
      text.append(tilde_size, 'x');
    }
  }
  return text;
}

/// What the requesters receive when nothing leaves before the agent has gone.
std::string undisturbed(const Fuzz_Input::Pieces& pieces, bool headers) {
  Relay relay(much, headers);
  std::size_t tildes = max_tildes;
  bool goes_on = true;
  for (std::size_t i = 0; i < pieces.size() && goes_on; ++i) {
    goes_on = relay.feed(expand(pieces[i], tildes));
  }
  relay.close(true);
  return relay.received();
}

/// Requesters who take something after some of the pieces; their room is small.
void taken_meanwhile(const Fuzz_Input& input, bool headers) {
  const Fuzz_Input::Pieces pieces = input.cut();
  Relay relay(little, headers);
  std::size_t tildes = max_tildes;
  bool goes_on = true;
  for (std::size_t i = 0; i < pieces.size() && goes_on; ++i) {
    goes_on = relay.feed(expand(pieces[i], tildes));
    relay.take(input.piece_size(i) % 3 == 1, input.piece_size(i) % 3 == 2);
    if (goes_on) relay.go_on();
  }
  relay.close(input.line().size() % 2 == 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Log_Capture log;
  const Fuzz_Input input(data, size);
  const bool headers = !input.line().empty() && std::isupper(input.line().front() & 0x7f) != 0;
  FUZZ_CHECK(undisturbed(input.whole(), headers) == undisturbed(input.cut(), headers));
  taken_meanwhile(input, headers);
  return 0;
}
