#include "json_rpc/json_rpc_channel.h"

#include <ace/UNIX_Addr.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>

#include "tests/support/json_rpc_fixture.h"
#include "vexa/addr_string.h"
#include "vexa/peer_addr_string_t.h"

using json_spirit::Value;

namespace {

class ChannelTest : public JSON_RPC_Fixture {};

TEST_F(ChannelTest, SendErrorFillsInTheStandardTextAndLeavesNullDataOut) {
  struct Case {
    int code;
    const char* message;
    Value data;
    const char* error;
  };
  const Case cases[] = {
      {-32602, nullptr, Value::null, R"("code":-32602,"message":"Invalid params")"},
      {-32603, nullptr, Value::null, R"("code":-32603,"message":"Internal error")"},
      {-32601, "gone fishing", Value::null, R"("code":-32601,"message":"gone fishing")"},
      {0, nullptr, Value::null, R"("code":0,"message":"")"},
      {7, "x", Value(false), R"("code":7,"message":"x","data":false)"},
  };
  const JSON_RPC_Channel_var channel = make_fake_channel();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.error);
    EXPECT_EQ(0, channel->send_error(c.code, 4, c.message, c.data));
    EXPECT_EQ(std::string(R"({"jsonrpc":"2.0","id":4,"error":{)") + c.error + "}}",
              fake(channel).texts().back());
  }
  fake(channel).send_result = -1;
  EXPECT_EQ(-1, channel->send_error(1, 4, nullptr, Value::null));
  EXPECT_EQ(EPIPE, errno);
}

TEST_F(ChannelTest, PeerAddressIsThatOfTheEndAskedFor) {
  typedef ACE_Peer_Addr_String_T<JSON_RPC_Channel> Text;
  const JSON_RPC_Channel_var channel = make_fake_channel();
  fake(channel).local_addr.set(443, "2001:db8::7", 1, AF_INET6);
  EXPECT_STREQ("192.0.2.1:1000", Text(channel.get(), true, true).c_str());
  EXPECT_STREQ("2001:db8::7", Text(channel.get(), false, false).c_str());
  EXPECT_EQ(0u, log_.size());

  fake(channel).remote_result = -1;
  EXPECT_STREQ("", Text(channel.get(), true, true).c_str());
  EXPECT_TRUE(
      log_.contains(LM_ERROR, "Failed to get socket address, errno=" + std::to_string(ENOTCONN) +
                                  ", " + std::strerror(ENOTCONN) + "\n"));
  char small[8] = "before";
  for (const bool with_port : {true, false}) {
    log_.clear();
    EXPECT_EQ(0, Text::to_str(channel.get(), false, with_port, small, sizeof small));
    EXPECT_STREQ("", small);
    EXPECT_TRUE(log_.contains(
        LM_ERROR, "Failed to convert socket address to string, errno=" + std::to_string(ENOSPC) +
                      ", " + std::strerror(ENOSPC) + "\n"));
  }
}

TEST_F(ChannelTest, AddressesOfEveryKindHaveAText) {
  const ACE_INET_Addr v4(80, "192.0.2.7", AF_INET);
  const ACE_INET_Addr v6(80, "2001:db8::7", AF_INET6);
  const std::string longest(107, 'p');
  const ACE_UNIX_Addr path("/run/a.sock");
  const ACE_UNIX_Addr long_path(longest.c_str());
  sockaddr_un raw = {};
  raw.sun_family = AF_UNIX;
  std::strcpy(raw.sun_path + 1, "hidden");  // the zero byte in front makes it abstract
  ACE_UNIX_Addr abstract_addr;
  abstract_addr.set_addr(&raw, offsetof(sockaddr_un, sun_path) + 7);
  EXPECT_STREQ("192.0.2.7", ACE_Addr_String(v4, false).c_str());
  EXPECT_STREQ("[2001:db8::7]:80", ACE_Addr_String(v6, true).c_str());
  EXPECT_STREQ("/run/a.sock", ACE_Addr_String(path, false).c_str());
  EXPECT_EQ(longest, ACE_Addr_String(long_path, true).c_str());
  EXPECT_STREQ("@hidden", ACE_Addr_String(abstract_addr, false).c_str());
  EXPECT_STREQ("", ACE_Addr_String(ACE_Addr()).c_str());
  EXPECT_STREQ("", ACE_Addr_String(ACE_Addr(AF_INET, 16)).c_str()) << "a family without its class";
  EXPECT_STREQ("", ACE_Addr_String(ACE_UNIX_Addr()).c_str());
}

}  // namespace
