#include "vexa/addr_string.h"

#include <ace/INET_Addr.h>
#include <ace/UNIX_Addr.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace {

TEST(AddrStringTest, AddressesOfEveryKindHaveAText) {
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
