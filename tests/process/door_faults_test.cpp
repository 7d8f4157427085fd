// Faults of peers, through every kind of door: each costs its connection only, and nothing of it
// stays.

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/process/host_fixture.h"
#include "tests/process/http_client.h"

namespace {

enum Kind { STREAM, HTTP, WEBSOCKET };

struct Door {
  bool tls() const { return url[std::strlen(url) - 1] == 's' && std::strcmp(url, "ws") != 0; }

  const char* url;
  Kind kind;
};
const Door doors[] = {{"tcp", STREAM},  {"http", HTTP},  {"http", WEBSOCKET},  {"ws", WEBSOCKET},
                      {"tcps", STREAM}, {"https", HTTP}, {"https", WEBSOCKET}, {"wss", WEBSOCKET}};

/// A peer of one door.
class Peer {
public:
  Peer(const Host_Process& host, const Door& door, int receive_buffer = 0)
      : kind_(door.kind), wire_(url_of(host, door), "", receive_buffer) {
    EXPECT_TRUE(wire_.connected());
  }

  /// What a message, the connection's first, is on the wire.
  std::string first(const std::string& message) const {
    return kind_ == WEBSOCKET ? websocket_handshake() + next(message) : next(message);
  }
  std::string next(const std::string& message) const {
    return kind_ == HTTP        ? http_post(message)
           : kind_ == WEBSOCKET ? websocket_text(message)
                                : message;
  }
  std::string first_answer() {
    if (kind_ == WEBSOCKET) wire_.until("\r\n\r\n");
    return next_answer();
  }
  std::string next_answer() {
    if (kind_ == WEBSOCKET) return websocket_answer(wire_);
    std::string text = kind_ == HTTP ? http_answer(wire_).body : wire_.until("\n");
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
  }
  Wire_Client& wire() { return wire_; }

private:
  static std::string url_of(const Host_Process& host, const Door& door) {
    for (const std::string& url : host.urls()) {
      if (url.rfind(std::string(door.url) + ":", 0) == 0) return url;
    }
    return std::string();
  }

  const Kind kind_;
  Wire_Client wire_;
};

class DoorFaultsTest : public Host_Fixture {
protected:
  static void SetUpTestSuite() {
    certificates_ = new Certificates;
    certificates_->sign("server", "IP:127.0.0.1");
  }
  static void TearDownTestSuite() { delete certificates_; }

  void start(Words options = {}) {
    const std::string server = certificates_->file("server");
    options.insert(options.end(), {"--tls-cert", server, "--tls-key", server});
    for (const char* scheme : {"tcp", "http", "ws", "tcps", "https", "wss"}) {
      options.insert(options.end(), {"--listen", std::string(scheme) + "://127.0.0.1:0"});
    }
    options.insert(options.end(), {"--admin", "http://127.0.0.1:0"});
    Host_Fixture::start(std::move(options));
    admin_ = std::make_unique<Wire_Client>(host_->urls().back());
  }

  void TearDown() override {
    serves();
    EXPECT_TRUE(wait_until([this] { return at_rest(); })) << metrics();
    admin_.reset();
    Host_Fixture::TearDown();
  }

  /// Every door still answers.
  void serves() {
    for (const Door& door : doors) {
      Peer peer(*host_, door);
      EXPECT_TRUE(peer.wire().send(peer.first(echo)));
      EXPECT_EQ(echoed, peer.first_answer()) << door.url;
    }
  }

  std::string metrics() {
    admin_->send(http_get("/metrics"));
    return http_answer(*admin_).body;
  }
  /// Whether nothing is left but the connection that asks.
  bool at_rest() {
    const std::string text = metrics();
    const auto is = [&](const std::string& row) {
      return text.find("\njson_rpc_" + row + "\n") != std::string::npos;
    };
    return is("requests_in_flight 0") && is("unsent_bytes 0") && is("connections 1") &&
           is("channels 0") && is("subscriptions 0") && is("pool_tasks 0");
  }

  static Certificates* certificates_;
  std::unique_ptr<Wire_Client> admin_;
};

Certificates* DoorFaultsTest::certificates_ = nullptr;

TEST_F(DoorFaultsTest, PeersThatBreakOffAtAnyByteAreForgotten) {
  start();
  const std::string call = echo.substr(0, echo.size() - 1);  // whole with its last byte
  for (const Door& door : doors) {
    SCOPED_TRACE(door.url);
    const std::size_t size = Peer(*host_, door).first(call).size();
    // What is behind TLS is the same, and the handshakes take long.
    const std::size_t step = sanitized ? 17 : door.tls() ? 5 : 1;
    for (std::size_t length = size % step; length <= size; length += step) {
      Peer reset(*host_, door), ended(*host_, door);
      reset.wire().send(reset.first(call).substr(0, length));
      reset.wire().reset();
      ended.wire().send(ended.first(call).substr(0, length));
      ended.wire().half_close();
      const std::string last = ended.wire().rest();
      EXPECT_EQ(length == size, last.find(echoed) != std::string::npos) << length << last;
    }
  }
}

TEST_F(DoorFaultsTest, BytesMayComeOneByOneAndSendingMayEndBeforeTheAnswer) {
  start();
  for (const Door& door : doors) {
    SCOPED_TRACE(door.url);
    Peer peer(*host_, door);
    ASSERT_TRUE(peer.wire().send(peer.first(echo), 1));
    EXPECT_EQ(echoed, peer.first_answer());
    peer.wire().send(peer.next(sleeper(150)));
    peer.wire().half_close();
    EXPECT_EQ(result("1", "150"), peer.next_answer());
  }
}

TEST_F(DoorFaultsTest, WhoGoesBeforeTheAnswerHoldsNothing) {
  start();
  for (const Door& door : doors) {
    for (const bool reset : {true, false}) {
      Peer peer(*host_, door), subscriber(*host_, door);
      peer.wire().send(peer.first(sleeper(200)));
      subscriber.wire().send(subscriber.first(subscription()));
      EXPECT_EQ(result("1", "true"), subscriber.first_answer());
      for (Peer* gone : {&peer, &subscriber}) reset ? gone->wire().reset() : gone->wire().close();
    }
  }
  serves();
}

TEST_F(DoorFaultsTest, WhoTakesNothingIsClosed) {
  start({"--max-queue", "100000", "--stall-timeout", "1"});
  constexpr int small = 4096;  // of their buffers: soon the host can send no more
  const std::string large = request("echo", "\"" + std::string(100000, 'x') + "\"", "1");
  std::string pings;
  for (int i = 0; i < 1000; ++i) pings += websocket_frame(0x89, std::string(125, 'x'));
  std::vector<std::unique_ptr<Peer>> peers;
  std::vector<std::thread> senders;
  const auto flood = [&](const Door& door, bool with_pings) {
    peers.push_back(std::make_unique<Peer>(*host_, door, small));
    senders.emplace_back([&, with_pings, peer = peers.back().get()] {
      bool taken = peer->wire().send(peer->first(large));
      const std::string more = with_pings ? pings : peer->next(large);
      for (int i = 0; i < 5000 && taken; ++i) taken = peer->wire().send(more);
      EXPECT_FALSE(taken) << "all was taken";
    });
  };
  const auto begin = std::chrono::steady_clock::now();
  for (const Door& door : doors) {
    // The system's own buffers take megabytes of each, which is much for a sanitized host.
    if (sanitized && door.tls()) continue;
    flood(door, false);
    if (door.kind == WEBSOCKET && door.url[0] == 'w') flood(door, true);
  }
  for (std::thread& sender : senders) sender.join();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, host_patience / 2);
}

}  // namespace
