#include "bench/callers.h"

#include <unistd.h>

#include <algorithm>

#include "bench/give_up.h"
#include "bench/side_by_side.h"
#include "bench/sockets.h"

namespace {

constexpr unsigned int first_id = 1000000;
constexpr std::size_t compared = 4;  // bytes, at the end of an answer, behind its id

class Callers {
public:
  Callers(const std::vector<int>& sockets, const Exchange& exchange, const Callers_Load& load)
      : exchange_(exchange), load_(load) {
    for (const int socket : sockets) {
      poll_.add(socket, static_cast<unsigned int>(callers_.size()));
      callers_.push_back({socket, 0});
    }
  }

  /// Ends when that many requests have been answered.
  void run(unsigned int requests) {
    left_ = requests;
    for (const Caller& caller : callers_) send(caller, load_.depth);
    for (unsigned int waiting = requests; waiting > 0;) {
      for (const unsigned int key : poll_.spin()) {
        const unsigned int answers = take_answers(callers_[key]);
        waiting -= answers;
        send(callers_[key], answers);
      }
    }
  }

private:
  struct Caller {
    int socket;
    std::size_t partial;  // bytes of an answer that came in part
  };

  void send(const Caller& caller, unsigned int requests) {
    text_.clear();
    for (requests = std::min(requests, left_); requests > 0; --requests, --left_) {
      text_ += exchange_.before_id;
      text_ += std::to_string(first_id + left_ % first_id);
      text_ += exchange_.after_id;
      if (load_.joined) continue;
      send_all(caller.socket, text_);
      text_.clear();
    }
    send_all(caller.socket, text_);
  }

  /// How many one read completes. They all have one length; anything else is no answer.
  unsigned int take_answers(Caller& caller) {
    const std::string_view bytes = receive(caller.socket, buffer_);
    if (bytes.empty()) give_up("the server closes");
    const std::string& answer = exchange_.answer;
    const std::size_t end = caller.partial + bytes.size();
    caller.partial = end % answer.size();
    if (caller.partial == 0 && bytes.size() >= compared &&
        bytes.substr(bytes.size() - compared) != answer.substr(answer.size() - compared)) {
      give_up("a wrong answer");
    }
    return static_cast<unsigned int>(end / answer.size());
  }

  const Exchange& exchange_;
  const Callers_Load& load_;
  Poll poll_;
  std::vector<Caller> callers_;
  unsigned int left_ = 0;  // to send
  std::string text_;
  std::vector<char> buffer_ = std::vector<char>(65536);
};

}  // namespace

double requests_per_cpu_second(pid_t server, const std::vector<int>& sockets,
                               const Exchange& exchange, const Callers_Load& load,
                               unsigned int requests) {
  Callers callers(sockets, exchange, load);
  callers.run(requests / 10);
  const double before = cpu_seconds(server);
  callers.run(requests);
  const double rate = requests / (cpu_seconds(server) - before);
  for (const int socket : sockets) ::close(socket);
  return rate;
}
