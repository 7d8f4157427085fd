#include "transport/endpoint.h"

#include <gtest/gtest.h>
#include <sys/un.h>

#include <string>

using namespace transport;

namespace {

TEST(EndpointTest, ReadsUrlsAndRefusesWhatIsNone) {
  const std::string longest(sizeof(sockaddr_un::sun_path) - 1, 'x');
  Endpoint endpoint;
  std::string error;
  for (const std::string& url : {std::string("tcp://localhost:0"), std::string("tcp://[::1]:65535"),
                                 std::string("unix://a/b:1"), "unix://" + longest}) {
    ASSERT_TRUE(Endpoint::parse(url, endpoint, error)) << error;
    EXPECT_EQ(url, endpoint.url());
  }
  for (const std::string& url :
       {std::string(), std::string("7070"), std::string("http://127.0.0.1:1"),
        std::string("tcp://"), std::string("tcp://127.0.0.1"), std::string("tcp://127.0.0.1:"),
        std::string("tcp://127.0.0.1:65536"), std::string("tcp://127.0.0.1:-1"),
        std::string("tcp://127.0.0.1:1x"), std::string("tcp://127.0.0.1: 1"),
        std::string("tcp://:1"), std::string("tcp://::1:1"), std::string("unix://"),
        "unix://" + longest + "x"}) {
    error.clear();
    EXPECT_FALSE(Endpoint::parse(url, endpoint, error)) << url;
    EXPECT_NE("", error) << url;
  }
}

}  // namespace
