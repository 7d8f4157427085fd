// Every error that a socket call may give, in a running host: the connection that it meets is
// served or closed, the next one is served, and nothing is left over.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tests/faults/socket_faults.h"
#include "tests/process/host_client.h"
#include "tests/process/host_process.h"
#include "tests/support/temporary_file.h"

namespace {

/// A fault that the host which is started while this lives may meet, and afterwards too.
class Shared_Fault {
public:
  Shared_Fault() {
    const int file = ::open(file_.path().c_str(), O_RDWR | O_CLOEXEC);
    void* const place =
        ::mmap(nullptr, sizeof(Socket_Fault), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    fault_ = new (place) Socket_Fault;
  }
  ~Shared_Fault() { ::munmap(fault_, sizeof(Socket_Fault)); }
  Shared_Fault(const Shared_Fault&) = delete;
  Shared_Fault& operator=(const Shared_Fault&) = delete;

  Socket_Fault* operator->() const { return fault_; }

  std::unique_ptr<Host_Process> start() const {
    const char* const options = std::getenv("ASAN_OPTIONS");
    const std::string before = options != nullptr ? options : "";
    ::setenv("ASAN_OPTIONS", (before + ":verify_asan_link_order=0").c_str(), 1);
    ::setenv("SOCKET_FAULT", file_.path().c_str(), 1);
    ::setenv("LD_PRELOAD", SOCKET_FAULTS_LIBRARY, 1);
    auto host = std::make_unique<Host_Process>(Host_Setup());
    ::unsetenv("LD_PRELOAD");
    ::unsetenv("SOCKET_FAULT");
    ::setenv("ASAN_OPTIONS", before.c_str(), 1);
    return host;
  }

private:
  const Temporary_File file_{std::string(sizeof(Socket_Fault), '\0')};
  Socket_Fault* fault_;
};

/// Errors of one call, and whether the connection that meets them goes on.
const struct {
  Socket_Fault::Call call;
  bool survives;
  std::vector<int> errors;
} cases[] = {
    {Socket_Fault::ACCEPT, true, {EINTR, ECONNABORTED, EPROTO, EPERM, ENETDOWN, EHOSTUNREACH}},
    {Socket_Fault::ACCEPT, true, {EMFILE, ENOBUFS}},
    {Socket_Fault::READ, true, {EINTR, Socket_Fault::ONE_BYTE}},
    {Socket_Fault::READ, false, {Socket_Fault::END, ECONNRESET, ETIMEDOUT, ENOMEM, EIO}},
    {Socket_Fault::WRITE, true, {EINTR, EAGAIN, Socket_Fault::ONE_BYTE}},
    {Socket_Fault::WRITE, false, {EPIPE, ECONNRESET, ETIMEDOUT, ENETDOWN, ENOBUFS, ENOMEM}},
};

const std::string question = request("sum", "[1,2]", "7");
const std::string answer = result("7", "3");

TEST(HostFaultTest, AFaultCostsOneConnectionAtTheMost) {
  Shared_Fault fault;
  const std::unique_ptr<Host_Process> host = fault.start();
  ASSERT_TRUE(host->ready());
  std::size_t idle = 0;
  {
    Host_Client first(host->url());
    EXPECT_EQ(answer, first.call(question));
    idle = host->descriptors() - 1;
  }
  const std::size_t threads = host->threads();
  for (const auto& c : cases) {
    for (const int error : c.errors) {
      SCOPED_TRACE(::testing::Message() << "call " << c.call << ", error " << error);
      fault->arm(c.call, error);
      {
        Host_Client met(host->url());
        met.send(question);
        EXPECT_EQ(c.survives ? answer : "", c.survives ? met.line() : met.rest());
      }
      EXPECT_EQ(1, fault->hits);
      EXPECT_EQ(answer, Host_Client(host->url()).call(question)) << "the next connection";
      EXPECT_TRUE(host->wait_for_descriptors(idle));
      EXPECT_EQ(threads, host->threads());
    }
  }
  host->stop();
}

}  // namespace
