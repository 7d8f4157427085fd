// Every error that a socket call may give, in a running host: the connection that it meets is
// served or closed, the next one is served, and nothing is left over.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/faults/socket_faults.h"
#include "tests/process/host_client.h"
#include "tests/process/host_process.h"

namespace {

/// A fault that the host which is started while this lives may meet, and afterwards too.
class Shared_Fault {
public:
  Shared_Fault() : path_(::testing::TempDir() + "faultXXXXXX") {
    const int file = ::mkstemp(&path_[0]);
    if (file == -1 || ::ftruncate(file, sizeof(Socket_Fault)) != 0) {
      ADD_FAILURE() << "cannot make " << path_;
    }
    void* const place =
        ::mmap(nullptr, sizeof(Socket_Fault), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    fault_ = new (place) Socket_Fault;
  }
  ~Shared_Fault() {
    ::munmap(fault_, sizeof(Socket_Fault));
    ::unlink(path_.c_str());
  }
  Shared_Fault(const Shared_Fault&) = delete;
  Shared_Fault& operator=(const Shared_Fault&) = delete;

  Socket_Fault* operator->() const { return fault_; }

  std::unique_ptr<Host_Process> start(const Host_Setup& setup = Host_Setup()) const {
    const char* const options = std::getenv("ASAN_OPTIONS");
    const std::string before = options != nullptr ? options : "";
    ::setenv("ASAN_OPTIONS", (before + ":verify_asan_link_order=0").c_str(), 1);
    ::setenv("SOCKET_FAULT", path_.c_str(), 1);
    ::setenv("LD_PRELOAD", SOCKET_FAULTS_LIBRARY, 1);
    auto host = std::make_unique<Host_Process>(setup);
    ::unsetenv("LD_PRELOAD");
    ::unsetenv("SOCKET_FAULT");
    ::setenv("ASAN_OPTIONS", before.c_str(), 1);
    return host;
  }

private:
  std::string path_;
  Socket_Fault* fault_;
};

struct Case {
  Socket_Fault::Call call;
  int error;
  bool survives;  // the connection goes on
};

const Case cases[] = {
    {Socket_Fault::ACCEPT, EINTR, true},
    {Socket_Fault::ACCEPT, ECONNABORTED, true},
    {Socket_Fault::ACCEPT, EPROTO, true},
    {Socket_Fault::ACCEPT, EPERM, true},
    {Socket_Fault::ACCEPT, ENETDOWN, true},
    {Socket_Fault::ACCEPT, ENOPROTOOPT, true},
    {Socket_Fault::ACCEPT, EHOSTUNREACH, true},
    {Socket_Fault::ACCEPT, EOPNOTSUPP, true},
    {Socket_Fault::ACCEPT, EMFILE, true},
    {Socket_Fault::ACCEPT, ENFILE, true},
    {Socket_Fault::ACCEPT, ENOBUFS, true},
    {Socket_Fault::ACCEPT, ENOMEM, true},
    {Socket_Fault::READ, EINTR, true},
    {Socket_Fault::READ, Socket_Fault::ONE_BYTE, true},
    {Socket_Fault::READ, Socket_Fault::END, false},
    {Socket_Fault::READ, ECONNRESET, false},
    {Socket_Fault::READ, ETIMEDOUT, false},
    {Socket_Fault::READ, EHOSTUNREACH, false},
    {Socket_Fault::READ, ENOMEM, false},
    {Socket_Fault::READ, ENOBUFS, false},
    {Socket_Fault::READ, EIO, false},
    {Socket_Fault::READ, ENOTCONN, false},
    {Socket_Fault::WRITE, EINTR, true},
    {Socket_Fault::WRITE, EAGAIN, true},
    {Socket_Fault::WRITE, Socket_Fault::ONE_BYTE, true},
    {Socket_Fault::WRITE, EPIPE, false},
    {Socket_Fault::WRITE, ECONNRESET, false},
    {Socket_Fault::WRITE, ETIMEDOUT, false},
    {Socket_Fault::WRITE, EHOSTUNREACH, false},
    {Socket_Fault::WRITE, ENETDOWN, false},
    {Socket_Fault::WRITE, ENOBUFS, false},
    {Socket_Fault::WRITE, ENOMEM, false},
    {Socket_Fault::WRITE, EIO, false},
};

const std::string question = request("sum", "[1,2]", "7");
const std::string answer = result("7", "3");

TEST(HostFaultTest, AFaultCostsOneConnectionAtTheMost) {
  Shared_Fault fault;
  const std::unique_ptr<Host_Process> host = fault.start();
  ASSERT_TRUE(host->ready());
  { EXPECT_EQ(answer, Host_Client(host->url()).call(question)); }
  std::size_t idle = host->descriptors();
  wait_until([&] {
    const std::size_t now = host->descriptors();
    const bool fewer = now < idle;
    idle = now;
    return fewer;
  });
  const std::size_t threads = host->threads();
  for (const Case& c : cases) {
    for (const int times : {1, 3}) {
      SCOPED_TRACE(::testing::Message()
                   << "call " << c.call << ", error " << c.error << " "
                   << (c.error > 0 ? std::strerror(c.error) : "") << ", " << times << " times");
      if (times > 1 && c.call == Socket_Fault::ACCEPT &&
          (c.error == EMFILE || c.error == ENFILE || c.error == ENOBUFS || c.error == ENOMEM)) {
        continue;  // half a second each
      }
      fault->arm(c.call, c.error, 0, c.survives ? times : 1);
      {
        Host_Client met(host->url());
        ASSERT_TRUE(met.connected());
        met.send(question);
        if (c.survives) {
          EXPECT_EQ(answer, met.line());
        } else {
          EXPECT_EQ("", met.rest());
        }
      }
      EXPECT_EQ(c.survives ? times : 1, fault->hits);
      EXPECT_EQ(answer, Host_Client(host->url()).call(question)) << "the next connection";
      EXPECT_TRUE(host->wait_for_descriptors(idle));
      EXPECT_EQ(threads, host->threads());
    }
  }
  host->stop();
}

TEST(HostFaultTest, ALargeAnswerThatBreaksOffIsMixedWithNothing) {
  Shared_Fault fault;
  const std::unique_ptr<Host_Process> host = fault.start();
  ASSERT_TRUE(host->ready());
  const std::string text(3 << 20, 'x');
  const std::string large = request("echo", "[\"" + text + "\"]", "8");
  const std::string whole = result("8", "[\"" + text + "\"]") + "\n";
  for (const int error : {EPIPE, ENOBUFS, EAGAIN, static_cast<int>(Socket_Fault::ONE_BYTE)}) {
    SCOPED_TRACE(error);
    fault->arm(Socket_Fault::WRITE, error, 1);
    Host_Client client(host->url());
    ASSERT_TRUE(client.send(large + question));
    client.half_close();
    const std::string got = client.rest();
    EXPECT_EQ(1, fault->hits);
    const std::string all = whole + answer + "\n";
    EXPECT_EQ(0, all.compare(0, got.size(), got));
    EXPECT_EQ(error == EAGAIN || error == Socket_Fault::ONE_BYTE, got == all);
    EXPECT_EQ(answer, Host_Client(host->url()).call(question));
  }
  host->stop();
}

TEST(HostFaultTest, ALinkThatCannotConnectTriesAgain) {
  Host_Process hub;
  ASSERT_TRUE(hub.ready());
  const int errors[] = {ECONNREFUSED, ETIMEDOUT, ENETUNREACH, EADDRNOTAVAIL, EINTR, EAGAIN, EACCES};
  std::vector<std::unique_ptr<Shared_Fault>> faults;
  std::vector<std::unique_ptr<Host_Process>> agents;
  for (const int error : errors) {
    faults.push_back(std::make_unique<Shared_Fault>());
    (*faults.back())->arm(Socket_Fault::CONNECT, error);
    Host_Setup setup;
    setup.options = {"--connect", hub.url(), "--agent-id", "a" + std::to_string(error)};
    agents.push_back(faults.back()->start(setup));
  }
  for (std::size_t i = 0; i < agents.size(); ++i) {
    SCOPED_TRACE(std::strerror(errors[i]));
    EXPECT_TRUE(hub.wait_for_log(" a" + std::to_string(errors[i])));
    EXPECT_EQ(1, (*faults[i])->hits);
  }
  for (const auto& agent : agents) agent->stop();
  hub.stop();
}

}  // namespace
