// What the host does before it serves: options, configuration, listeners.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <sstream>
#include <string>

#include "tests/process/host_fixture.h"

namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

/// How often a line of `text` begins with `prefix`.
int lines_with(const std::string& text, const std::string& prefix) {
  std::istringstream lines(text);
  int count = 0;
  for (std::string line; std::getline(lines, line);) count += line.rfind(prefix, 0) == 0;
  return count;
}

TEST(HostStartTest, ABadOptionIsOneLineAndStatus2) {
  for (const Words& options :
       {Words{"--unknown"}, Words{"word"}, Words{"--threads", "0"}, Words{"--threads", "x"},
        Words{"--max-queue", "-1"}, Words{"--stall-timeout", "0"}, Words{"--log-level", "loud"},
        Words{"--max-message"}, Words{"--max-pending", "99999999999999999999"}}) {
    SCOPED_TRACE(options.back());
    Host_Process host(options);
    EXPECT_EQ(2, host.wait());
    EXPECT_EQ("", host.output());
    EXPECT_EQ(1, lines_with(host.log(), ""));
    EXPECT_EQ(1, lines_with(host.log(), "json_rpc_host: "));
  }
}

TEST(HostStartTest, CheckLoadsEverythingAndTellsWhatIsBad) {
  const std::string service =
      "dynamic JSON_RPC_Service Service_Object * " JSON_RPC_LIBRARY ":_make_JSON_RPC_Service() ";
  const std::string echo_record =
      R"({"method":"echo","dll":")" SAMPLE_PLUGIN_DIR R"(/libecho.so","init":"make_echo"})";
  struct Case {
    std::string methods;
    std::string svc;
    std::string log;
    int status = 1;
  };
  const Case cases[] = {
      {"", "", "", 0},
      {"/* one */ [" + echo_record + "] // more", "", "", 0},
      {"[" + echo_record + R"(,{"method":"x","dll":"/nowhere/libx.so","init":"make"}])", "",
       "/nowhere/libx.so"},
      {"[" + echo_record, "", "methods.json"},
      {"", "nonsense {", " error "},
      {"", "# nothing\n", "loads no JSON_RPC_Service"},
      {"", service + "\"-j /nowhere/methods.json\"\n", "/nowhere/methods.json"},
      {"", service + "\"--unknown\"\n", "Unknown JSON_RPC_Service option --unknown"},
      {"", "dynamic JSON_RPC_Service Service_Object * /nowhere/lib.so:_make() \"\"\n", " error "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.methods + c.svc);
    Host_Setup setup(Words{"--check"});
    setup.methods = c.methods;
    setup.svc = c.svc;
    Host_Process host(setup);
    EXPECT_EQ(c.status, host.wait()) << host.log();
    EXPECT_THAT(host.output(), HasSubstr(c.status == 0 ? ": good\n" : ": bad, see the log\n"));
    EXPECT_THAT(host.log(), HasSubstr(c.log));
  }
}

TEST(HostStartTest, ListensWhereItIsToldTo) {
  const Temporary_Directory directory;
  const std::string path = directory / "socket";
  Host_Process host(Words{"--listen", "tcp://127.0.0.1:0", "--listen", "tcp://127.0.0.1:0",
                          "--listen", "unix://" + path});
  ASSERT_TRUE(host.ready());
  ASSERT_EQ(3u, host.urls().size());
  EXPECT_EQ("unix://" + path, host.urls()[2]);
  EXPECT_NE(host.urls()[0], host.urls()[1]);
  for (const std::string& url : host.urls()) EXPECT_EQ(echoed, Host_Client(url).call(echo)) << url;
  struct stat status;
  ASSERT_EQ(0, ::stat(path.c_str(), &status));
  EXPECT_EQ(0600u, status.st_mode & 07777);

  // What is taken stays with whom it belongs to.
  for (const std::string& taken : {host.urls()[0], host.urls()[2]}) {
    Host_Process second(Words{"--listen", taken});
    EXPECT_EQ(2, second.wait());
    EXPECT_EQ(1, lines_with(second.log(), "json_rpc_host: cannot listen on " + taken + ": "));
    EXPECT_THAT(second.output(), ::testing::Not(HasSubstr("ready")));
  }
  EXPECT_EQ(echoed, Host_Client(host.urls()[2]).call(echo));
  host.stop();
  EXPECT_NE(0, ::stat(path.c_str(), &status)) << "the file goes at exit";
}

TEST(HostStartTest, ReplacesAStaleSocketAndNothingElse) {
  const Temporary_Directory directory;
  const std::string stale = directory / "stale";
  const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, stale.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(0, ::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address));
  ::close(socket);
  Host_Process host(Words{"--listen", "unix://" + stale});
  ASSERT_TRUE(host.ready());
  EXPECT_EQ(echoed, Host_Client(host.url()).call(echo));
  host.stop();

  const std::string file = directory.write("file", "precious");
  Host_Process other(Words{"--listen", "unix://" + file});
  EXPECT_EQ(2, other.wait());
  EXPECT_EQ("precious", read_file(file));
}

TEST(HostStartTest, LogsTimeAndChannelAndNothingThatAPeerForged) {
  Host_Process host(Words{"--log-level", "info"});
  ASSERT_TRUE(host.ready());
  EXPECT_EQ(error("4", -32601, "Method not found"),
            Host_Client(host.url())
                .call(request("x\\n2026-01-01T00:00:00.000Z error forged\\u0007", "[]", "4")));
  host.stop();
  EXPECT_EQ(0, lines_with(host.log(), "2026-01-01T00:00:00.000Z"));
  std::istringstream lines(host.log());
  for (std::string line; std::getline(lines, line);) {
    EXPECT_THAT(line, MatchesRegex("(    .*|[0-9]+-[0-9]+-[0-9]+T[0-9:.]+Z "
                                   "(debug|info|warning|error)( \\[channel [0-9]+\\])? .*)"));
  }
  EXPECT_THAT(host.log(), HasSubstr(" error [channel 1] JSON-RPC 'x"));
}

}  // namespace
