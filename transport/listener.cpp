#include "transport/listener.h"

#include <sys/stat.h>
#include <unistd.h>

#include <boost/asio/error.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/socket_base.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cerrno>
#include <chrono>
#include <new>
#include <utility>

#include "transport/socket_stream.h"
#include "transport/stream_socket.h"
#include "transport/tls.h"
#include "vexa/log.h"

namespace transport {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
typedef asio::local::stream_protocol unix_stream;

namespace {

constexpr std::chrono::milliseconds retry_after{500};  // when descriptors have run out

template <typename Protocol>
class Listener_Of final : public Listener {
public:
  Listener_Of(const Endpoint& endpoint, const Listen_Options& options, std::shared_ptr<Loop> loop,
              std::shared_ptr<Server_State> state, Next_Loop next_loop, std::size_t index)
      : index_(index),
        door_(options.door),
        tls_(options.tls),
        loop_(std::move(loop)),
        state_(std::move(state)),
        next_loop_(std::move(next_loop)),
        acceptor_(loop_->context()),
        timer_(loop_->context()) {
    endpoint_ = endpoint;
  }

  ~Listener_Of() override { remove_file(); }

  bool open(const typename Protocol::endpoint& address, error_code& error) {
    acceptor_.open(address.protocol(), error);
    if (!error && endpoint_.kind == Endpoint::TCP) {
      acceptor_.set_option(asio::socket_base::reuse_address(true), error);
    }
    // A Unix socket is born with its final mode: nobody slips in between.
    const mode_t mask = ::umask(0177);
    if (!error) acceptor_.bind(address, error);
    ::umask(mask);
    if (error) return false;
    bound_ = true;
    acceptor_.listen(asio::socket_base::max_listen_connections, error);
    if (!error) acceptor_.non_blocking(true, error);
    return !error;
  }

  typename Protocol::endpoint bound() const {
    error_code ignored;
    return acceptor_.local_endpoint(ignored);
  }
  void port(std::uint16_t port) { endpoint_.port = port; }

  void start() override { wait(); }

  void resume() override {
    if (!paused_ || state_->connections >= state_->limits.max_connections) return;
    paused_ = false;
    VEXA_INFO("Accepting goes on at %C.\n", endpoint_.url().c_str());
    wait();
  }

  void close() override {
    error_code ignored;
    acceptor_.close(ignored);
    timer_.cancel();
    paused_ = false;
    remove_file();
  }

private:
  void wait() {
    acceptor_.async_wait(asio::socket_base::wait_read, [this](const error_code& error) {
      if (!error) try_accept();
    });
  }

  void try_accept() {
    try {
      accept();
    } catch (const std::bad_alloc&) {
      retry_later(asio::error::no_memory);
    }
  }

  /// Takes every connection that has come, unless too many are open.
  void accept() {
    for (;;) {
      if (state_->connections >= state_->limits.max_connections) {
        VEXA_WARNING("Accepting pauses at %C: %B connections are open.\n", endpoint_.url().c_str(),
                     state_->limits.max_connections);
        paused_ = true;
        state_->metrics->add(Metrics::REFUSED, index_);
        return;
      }
      if (target_ == nullptr) target_ = next_loop_();
      error_code error;
      typename Protocol::socket socket = acceptor_.accept(target_->context(), error);
      if (error == asio::error::would_block || error == asio::error::try_again) break;
      if (!error) {
        hand_over(std::exchange(target_, nullptr), std::move(socket));
      } else if (exhausted(error)) {
        return retry_later(error);
      }
      // Any other error concerns that connection alone: its peer has gone again.
    }
    wait();
  }

  static bool exhausted(const error_code& error) {
    return error.value() == EMFILE || error.value() == ENFILE || error.value() == ENOBUFS ||
           error.value() == ENOMEM;
  }

  void retry_later(const error_code& error) {
    VEXA_WARNING("Accepting pauses at %C: %C.\n", endpoint_.url().c_str(), error.message().c_str());
    state_->metrics->add(Metrics::REFUSED, index_);
    timer_.expires_after(retry_after);
    timer_.async_wait([this](const error_code& e) {
      if (!e && acceptor_.is_open()) try_accept();
    });
  }

  void hand_over(std::shared_ptr<Loop> loop, typename Protocol::socket socket) {
    const Stream_Channel::Addresses addresses = addresses_of(socket);
    prepare(socket);
    error_code error;
    socket.non_blocking(true, error);
    if (error) return;
    Opened opened{loop, state_, Connection_Slot(state_, index_), nullptr, addresses};
    asio::post(loop->context(), [door = door_, tls = tls_, opened = std::move(opened),
                                 plain = Socket_Stream::Socket(std::move(socket))]() mutable {
      serve(door, tls, std::move(plain), std::move(opened));
    });
  }

  static void serve(const std::shared_ptr<Door>& door, const std::shared_ptr<Tls_Server>& tls,
                    Socket_Stream::Socket socket, Opened opened) {
    if (tls != nullptr) return accept_tls(tls, door, std::move(socket), std::move(opened));
    opened.stream = std::make_unique<Socket_Stream>(std::move(socket));
    door->serve(std::move(opened));
  }

  void remove_file() {
    if (!bound_ || endpoint_.kind != Endpoint::UNIX) return;
    bound_ = false;
    ::unlink(endpoint_.path.c_str());
  }

  const std::size_t index_;  // of the metrics
  const std::shared_ptr<Door> door_;
  const std::shared_ptr<Tls_Server> tls_;
  const std::shared_ptr<Loop> loop_;
  const std::shared_ptr<Server_State> state_;
  const Next_Loop next_loop_;
  typename Protocol::acceptor acceptor_;
  std::shared_ptr<Loop> target_;  // of the next connection, from when it is expected
  asio::steady_timer timer_;
  bool paused_ = false;
  bool bound_ = false;
};

/// Removes the file of a socket that nobody listens on any more; one that is alive stays.
void remove_stale(const std::string& path) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return;
  asio::io_context context;
  unix_stream::socket probe(context);
  error_code error;
  probe.connect(unix_stream::endpoint(path), error);
  if (error == asio::error::connection_refused) ::unlink(path.c_str());
}

template <typename Protocol>
std::unique_ptr<Listener> finish(std::unique_ptr<Listener_Of<Protocol>> listener,
                                 const typename Protocol::endpoint& address, std::string& error) {
  error_code code;
  if (listener->open(address, code)) return listener;
  error = code.message();
  return nullptr;
}

}  // namespace

std::unique_ptr<Listener> open_listener(const Listen_Options& options,
                                        const std::shared_ptr<Loop>& loop,
                                        const std::shared_ptr<Server_State>& state,
                                        Listener::Next_Loop next_loop, std::size_t index,
                                        std::string& error) {
  Endpoint endpoint;
  if (!Endpoint::parse(options.url, Endpoint::DOORS, endpoint, error)) return nullptr;
  if (endpoint.kind == Endpoint::UNIX) {
    remove_stale(endpoint.path);
    return finish<unix_stream>(std::make_unique<Listener_Of<unix_stream>>(
                                   endpoint, options, loop, state, std::move(next_loop), index),
                               unix_stream::endpoint(endpoint.path), error);
  }
  error_code code;
  tcp::resolver resolver(loop->context());
  const tcp::resolver::results_type found =
      resolver.resolve(endpoint.host, std::to_string(endpoint.port), tcp::resolver::passive, code);
  if (code || found.empty()) {
    error = code.message();
    return nullptr;
  }
  auto listener = std::make_unique<Listener_Of<tcp>>(endpoint, options, loop, state,
                                                     std::move(next_loop), index);
  Listener_Of<tcp>* const opened = listener.get();
  std::unique_ptr<Listener> result =
      finish<tcp>(std::move(listener), found.begin()->endpoint(), error);
  if (result != nullptr) opened->port(opened->bound().port());
  return result;
}

}  // namespace transport
