// What a channel makes of its bytes, in either framing, does not depend on how they are cut nor on
// where the sink pauses; it hands out no more messages than it got bytes; and what it holds is
// bounded, however long the peer goes on.
#include "transport/inbound.h"

#include <malloc.h>

#include "fuzz/input.h"
#include "json_rpc/json_rpc_writer.h"
#include "tests/support/log_capture.h"

// AddressSanitizer's own count, where it is linked: mallinfo2() knows nothing then.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

using namespace transport;

namespace {

constexpr std::size_t max_message = 256;
constexpr std::size_t max_held = 32u << 10;  // a value of so many bytes, the parser, ids to answer
constexpr int rounds = 16;

std::size_t allocated() {
  return __sanitizer_get_current_allocated_bytes ? __sanitizer_get_current_allocated_bytes()
                                                 : mallinfo2().uordblks;
}

class Null_Wire final : public Wire {
public:
  void wake() override {}
  void resume() override {}
  void close_soon(const char*) override {}
};

Limits limits() {
  Limits limits;
  limits.max_message = max_message;
  return limits;
}

class Peer final : public Inbound::Sink {
public:
  explicit Peer(bool pauses)
      : stream_(new Stream_Channel(limits(), Stream_Channel::Addresses(), wire_)),
        channel_(stream_),
        inbound_(*stream_, *this, true),
        pauses_(pauses) {
    stream_->self(channel_);
  }

  /// Whether more is wanted.
  bool feed(const std::vector<char>& piece) {
    Inbound::Verdict verdict = Inbound::GO_ON;
    for (std::size_t at = 0, used = 0; at < piece.size() && verdict != Inbound::STOP; at += used) {
      verdict = inbound_.feed(piece.data() + at, piece.size() - at, used);
      FUZZ_CHECK(used <= piece.size() - at);
      FUZZ_CHECK(verdict != Inbound::GO_ON || used == piece.size() - at);
      FUZZ_CHECK(verdict != Inbound::PAUSE || paused_);
      paused_ = false;
      answer();
    }
    return verdict != Inbound::STOP;
  }

  void end() {
    inbound_.end();
    answer();
  }

  void message(const JSON_RPC_Object_var& object, std::size_t bytes) override {
    FUZZ_CHECK(bytes <= max_message && !paused_);
    YAJL_String_Printer printer(seen);
    FUZZ_CHECK(JSON_RPC_Writer().write(*object, printer));
    ++messages;
    paused_ = pauses_;
  }
  bool overloaded() const override { return paused_; }

  std::string seen;    // the messages as text
  std::string output;  // to the peer
  std::size_t messages = 0;

private:
  void answer() {
    std::vector<Output_Piece> batch;
    while (stream_->outbox().take(batch)) {
    }
    for (const Output_Piece& piece : batch) {
      output += piece.text();
      stream_->outbox().sent(piece.text().size(), piece.answers);
    }
  }

  const std::shared_ptr<Wire> wire_ = std::make_shared<Null_Wire>();
  Stream_Channel* const stream_;
  const JSON_RPC_Channel_var channel_;
  Inbound inbound_;
  const bool pauses_;
  bool paused_ = false;
};

void whole_equals_cut(const Fuzz_Input& input) {
  Peer whole(false);
  Peer cut(true);
  bool goes_on = true;
  for (const auto& piece : input.whole()) whole.feed(piece);
  for (const auto& piece : input.cut()) goes_on = goes_on && cut.feed(piece);
  whole.end();
  cut.end();
  FUZZ_CHECK(whole.seen == cut.seen && whole.output == cut.output);
  FUZZ_CHECK(whole.messages <= input.text().size());
}

void holds_little(const Fuzz_Input& input) {
  const Fuzz_Input::Pieces pieces = input.cut();
  Peer peer(false);
  const std::size_t before = allocated();
  bool goes_on = true;
  for (int round = 0; round < rounds && goes_on; ++round) {
    for (std::size_t i = 0; i < pieces.size() && goes_on; ++i) {
      const Log_Capture log;
      goes_on = peer.feed(pieces[i]);
      std::string().swap(peer.seen);
      std::string().swap(peer.output);
    }
    FUZZ_CHECK(allocated() <= before + max_held);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Fuzz_Input input(data, size);
  {
    const Log_Capture log;
    whole_equals_cut(input);
  }
  holds_little(input);
  return 0;
}
