#include "transport/endpoint.h"

#include <gtest/gtest.h>
#include <sys/un.h>

#include <string>

using namespace transport;

namespace {

TEST(EndpointTest, ReadsUrlsAndWritesThemBack) {
  const std::string longest(sizeof(sockaddr_un::sun_path) - 1, 'x');
  const struct {
    std::string url;
    Endpoint::Kind kind;
    std::string where;
    int port;
  } cases[] = {
      {"tcp://127.0.0.1:7070", Endpoint::TCP, "127.0.0.1", 7070},
      {"tcp://localhost:0", Endpoint::TCP, "localhost", 0},
      {"tcp://[::1]:65535", Endpoint::TCP, "::1", 65535},
      {"unix://relative/path:1", Endpoint::UNIX, "relative/path:1", 0},
      {"unix://" + longest, Endpoint::UNIX, longest, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.url);
    Endpoint endpoint;
    std::string error;
    ASSERT_TRUE(Endpoint::parse(c.url, endpoint, error)) << error;
    EXPECT_EQ(c.kind, endpoint.kind);
    EXPECT_EQ(c.where, c.kind == Endpoint::TCP ? endpoint.host : endpoint.path);
    EXPECT_EQ(c.port, endpoint.port);
    EXPECT_EQ(c.url, endpoint.url());
  }
}

TEST(EndpointTest, RefusesWhatIsNone) {
  for (const std::string& url :
       {std::string(), std::string("7070"), std::string("http://127.0.0.1:1"),
        std::string("tcp://"), std::string("tcp://127.0.0.1"), std::string("tcp://127.0.0.1:"),
        std::string("tcp://127.0.0.1:65536"), std::string("tcp://127.0.0.1:-1"),
        std::string("tcp://127.0.0.1:1x"), std::string("tcp://127.0.0.1: 1"),
        std::string("tcp://:1"), std::string("tcp://::1:1"), std::string("unix://"),
        "unix://" + std::string(sizeof(sockaddr_un::sun_path), 'x')}) {
    Endpoint endpoint;
    std::string error;
    EXPECT_FALSE(Endpoint::parse(url, endpoint, error)) << url;
    EXPECT_NE("", error) << url;
  }
}

}  // namespace
