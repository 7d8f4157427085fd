#include "bench/bare_server.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <vector>

#include "bench/give_up.h"
#include "bench/side_by_side.h"

Bare_Server::Bare_Server(const std::function<void(int listener)>& serve, int core) {
  const int listener = listen_on_loopback(port_);
  pid_ = ::fork();
  if (pid_ == -1) give_up("fork");
  if (pid_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    pin(0, core);
    serve(listener);
    ::_exit(0);
  }
  ::close(listener);
}

Bare_Server::~Bare_Server() {
  if (pid_ <= 0) return;  // -1 would be everybody
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

void answer_each(int listener, char last_byte, const std::string& answer) {
  Poll poll;
  poll.add(listener, listener);
  std::vector<char> buffer(65536);
  std::string answers;
  for (;;) {
    for (const unsigned int socket : poll.wait()) {
      if (static_cast<int>(socket) == listener) {
        const int accepted = accept_from(listener);
        poll.add(accepted, accepted);
        continue;
      }
      const std::string_view requests = receive(socket, buffer);
      if (requests.empty()) {
        ::close(socket);
        continue;
      }
      const std::size_t size =
          std::count(requests.begin(), requests.end(), last_byte) * answer.size();
      while (answers.size() < size) answers += answer;
      // A caller may go without waiting for its last answers.
      if (size > 0) ::send(socket, answers.data(), size, MSG_NOSIGNAL);
    }
  }
}
