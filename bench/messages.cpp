#include "bench/messages.h"

#include <cstdio>

namespace messages {
namespace {

std::string small_request() {
  return R"({"jsonrpc":"2.0","method":"sum","params":[1,22,333,4444],"id":12345})";
}

std::string middle_request() {
  std::string request = R"({"jsonrpc":"2.0","method":"sum","params":{)";
  for (int i = 0; i < 20; ++i) {
    char member[96];
    std::snprintf(member, sizeof member, "%s\"member_%02d\":\"a text of some thirty characters\"",
                  i == 0 ? "" : ",", i);
    request += member;
  }
  return request + R"(},"id":12345})";
}

std::string large_request() {
  std::string request = R"({"jsonrpc":"2.0","method":"sum","params":[)";
  for (unsigned int i = 0; i < 10'000; ++i) {
    char object[160];
    std::snprintf(object, sizeof object,
                  "%s{\"id\":%u,\"name\":\"item %u\",\"price\":%u.25,\"active\":%s,"
                  "\"group\":\"tools\",\"stock\":%u,\"place\":[%u,%u]}",
                  i == 0 ? "" : ",", 100'000 + i, i, i % 1000, i % 2 == 0 ? "true" : "false",
                  i % 77, i % 13, i % 11);
    request += object;
  }
  return request + R"(],"id":12345})";
}

}  // namespace

const Named (&all())[3] {
  static const Named named[] = {
      {"68B", small_request()}, {"1KB", middle_request()}, {"1MB", large_request()}};
  return named;
}

}  // namespace messages
