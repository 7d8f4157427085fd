#include "http/console.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "tests/http/recorded_reply.h"

namespace {

/// What lies between <name> and </name> on the page, where each is once.
std::string part(const std::string& page, const std::string& name) {
  EXPECT_EQ(page.find("<" + name + ">"), page.rfind("<" + name + ">"));
  const std::size_t begin = page.find("<" + name + ">") + name.size() + 2;
  return page.substr(begin, page.find("</" + name + ">") - begin);
}

std::string hash_source(const std::string& text) {
  unsigned char hash[32];
  unsigned char base64[45];
  EXPECT_EQ(1, EVP_Digest(text.data(), text.size(), hash, nullptr, EVP_sha256(), nullptr));
  EVP_EncodeBlock(base64, hash, sizeof hash);
  return "'sha256-" + std::string(reinterpret_cast<const char*>(base64)) + "'";
}

TEST(ConsoleTest, BrowsersMayRunWhatIsOnThePageAndNothingElse) {
  Recorded_Reply reply;
  ASSERT_TRUE(http::serve_console(head_of(HTTP_METHOD_GET, "/?a=b"), reply));
  EXPECT_EQ(200, reply.status());
  const std::string& page = reply.body();
  EXPECT_EQ(page.size() - 1, page.rfind("</html>\n") + 7) << "cut off";
  const std::string policy = reply.header("Content-Security-Policy");
  EXPECT_NE(std::string::npos, policy.find("script-src " + hash_source(part(page, "script"))))
      << policy;
  EXPECT_NE(std::string::npos, policy.find("style-src " + hash_source(part(page, "style"))))
      << policy;
  EXPECT_EQ(0u, policy.find("default-src 'none'"));
  EXPECT_EQ(std::string::npos, policy.find("unsafe"));
  for (const char* refused :
       {" style=\"", " onclick=", "innerHTML", "src=\"", "<link rel=\"style"}) {
    EXPECT_EQ(std::string::npos, page.find(refused)) << refused;
  }
}

}  // namespace
