#include "transport/link.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/error.hpp>
#include <new>
#include <thread>
#include <utility>

#include "json_rpc/json_rpc_channel_map.h"
#include "json_rpc/json_rpc_channel_pool.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_notify_manager.h"
#include "json_rpc/json_rpc_response_map.h"
#include "vexa/adopt.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace transport {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
typedef asio::local::stream_protocol unix_stream;

namespace {

constexpr unsigned first_wait = 1;  // seconds
constexpr unsigned longest_wait = 60;

Exponential_Backoff_Iterator new_wait() {
  return Exponential_Backoff_Iterator(first_wait, Exponential_Backoff_Iterator::unlimited,
                                      longest_wait, true);
}

template <typename Socket>
std::function<void()> hanging_up(const std::shared_ptr<Socket>& socket) {
  return [weak = std::weak_ptr<Socket>(socket)] {
    error_code ignored;
    if (const std::shared_ptr<Socket> pending = weak.lock()) pending->close(ignored);
  };
}

}  // namespace

/// Gets the answer to the greeting, on the link's loop: it is read there.
class Link::Greeting_Handler final : public JSON_RPC_Handler {
public:
  explicit Greeting_Handler(std::weak_ptr<Link> link) : link_(std::move(link)) {}

  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var object) override {
    const std::shared_ptr<Link> link = link_.lock();
    if (link == nullptr) return -1;
    link->greeted(object.get());
    return 0;
  }

private:
  const std::weak_ptr<Link> link_;
};

Link::Link(std::shared_ptr<Loop> loop, std::shared_ptr<Server_State> state,
           const Endpoint& endpoint, const Link_Options& options)
    : loop_(std::move(loop)),
      state_(std::move(state)),
      endpoint_(endpoint),
      options_(options),
      facade_(new Link_Channel(endpoint.url())),
      channel_(facade_),
      timer_(loop_->context()),
      wait_(new_wait()) {}

Link::~Link() = default;

/// A handler of something pending, which does nothing when the link, or that attempt of it, is
/// gone.
template <typename Operation>
auto Link::while_current(Operation operation) {
  return [weak = weak_from_this(), attempt = attempt_, operation](const error_code& error,
                                                                  const auto&... results) {
    const std::shared_ptr<Link> self = weak.lock();
    if (self == nullptr || self->closed_ || self->attempt_ != attempt) return;
    try {
      operation(*self, error, results...);
    } catch (...) {
      self->down(vexa::exception_text());
    }
  };
}

template <typename Operation>
void Link::after(std::chrono::milliseconds time, Operation operation) {
  timer_.expires_after(time);
  timer_.async_wait(while_current([operation](Link& self, const error_code& error) {
    if (!error) operation(self);
  }));
}

void Link::start() {
  try {
    dial();
  } catch (...) {
    down(vexa::exception_text());
  }
}

void Link::close() {
  closed_ = true;
  abandon_attempt();
}

/// What is pending of the present attempt ends.
void Link::abandon_attempt() {
  ++attempt_;
  timer_.cancel();
  if (hang_up_) std::exchange(hang_up_, nullptr)();
}

void Link::dial() {
  after(state_->limits.stall_timeout, [](Link& self) { self.down("it does not answer"); });
  if (endpoint_.kind == Endpoint::UNIX) {
    dial_unix();
  } else {
    dial_tcp();
  }
}

void Link::dial_unix() {
  const auto socket = std::make_shared<Unix_Socket>(loop_->context());
  hang_up_ = hanging_up(socket);
  socket->async_connect(unix_stream::endpoint(endpoint_.path),
                        while_current([socket](Link& self, const error_code& error) {
                          self.dialed(error, *socket);
                        }));
}

/// The name is looked up on a thread of its own, which nobody waits for: a look-up cannot be broken
/// off, and may take longer than anybody has time.
void Link::dial_tcp() {
  auto found = while_current(
      [](Link& self, const error_code& error, const tcp::resolver::results_type& endpoints) {
        self.resolved(error, endpoints);
      });
  std::thread([endpoint = endpoint_, loop = std::weak_ptr<Loop>(loop_), found] {
    try {
      asio::io_context context;
      error_code error;
      const tcp::resolver::results_type endpoints =
          tcp::resolver(context).resolve(endpoint.host, std::to_string(endpoint.port), error);
      if (const std::shared_ptr<Loop> alive = loop.lock()) {
        asio::post(alive->context(), [found, error, endpoints] { found(error, endpoints); });
      }
    } catch (const std::exception& error) {  // then the attempt's time-out ends it
      VEXA_ERROR("A look-up of %C failed: %C\n", endpoint.host.c_str(), error.what());
    }
  }).detach();
}

void Link::resolved(const error_code& error, const tcp::resolver::results_type& found) {
  if (error) return down(error.message());
  const auto socket = std::make_shared<Tcp_Socket>(loop_->context());
  hang_up_ = hanging_up(socket);
  asio::async_connect(
      *socket, found,
      while_current([socket](Link& self, const error_code& failed, const tcp::endpoint&) {
        self.dialed(failed, *socket);
      }));
}

template <typename Socket>
void Link::dialed(const error_code& error, Socket& socket) {
  if (error) return down(error.message());
  hang_up_ = nullptr;
  abandon_attempt();  // the time-out may be on its way already
  const Stream_Channel::Addresses addresses = addresses_of(socket);
  prepare(socket);
  error_code failed;
  socket.non_blocking(true, failed);
  if (failed) return down(failed.message());
  connected(Socket_Stream::Socket(std::move(socket)), addresses);
}

void Link::connected(Socket_Stream::Socket socket, const Stream_Channel::Addresses& addresses) {
  const auto connection = std::make_shared<Stream_Connection>(
      Opened{loop_, state_, Connection_Slot(state_),
             std::make_unique<Socket_Stream>(std::move(socket)), addresses});
  connection_ = connection;
  connection->start(options_, weak_from_this());
  if (connection->closed()) return;  // connection_closed() has seen to it
  if (options_.greeting) {
    greet();
  } else {
    up();
  }
}

void Link::greet() {
  const JSON_RPC_Object_var request = options_.greeting();
  if (request.get() == nullptr) return end_connection("it has no greeting");
  JSON_RPC_Id_Generator::gen(*request);
  greeting_id_ = request->id.get_str();
  JSON_RPC_Handler_var handler;
  if (!vexa::adopt(handler, static_cast<JSON_RPC_Handler*>(
                                new (std::nothrow) Greeting_Handler(weak_from_this()))) ||
      JSON_RPC_Response_Map::instance()->insert(request->id, handler) != 0) {
    return end_connection("there is no memory for its greeting");
  }
  after(state_->limits.stall_timeout,
        [](Link& self) { self.end_connection("its greeting was not answered"); });
  const JSON_RPC_Channel_var channel(connection_.lock()->channel());
  if (channel.null() || channel->send(request) != 0) {
    end_connection("its greeting could not be sent");
  }
}

void Link::greeted(const JSON_RPC_Object* answer) {
  JSON_RPC_Response_Map::instance()->remove(std::exchange(greeting_id_, std::string()));
  const std::shared_ptr<Stream_Connection> connection = connection_.lock();
  if (up_ || connection == nullptr || connection->closed()) return;
  abandon_attempt();  // the time-out may be on its way already
  if (answer != nullptr && answer->type == JSON_RPC_Object::TYPE_RESPONSE) return up();
  if (answer != nullptr && answer->type == JSON_RPC_Object::TYPE_RESPONSE_ERROR) {
    const auto& error = static_cast<const JSON_RPC_Response_Error&>(*answer);
    VEXA_ERROR("Link %C is refused: %d %C\n", endpoint_.url().c_str(), static_cast<int>(error.code),
               error.message.c_str());
  }
  end_connection("its greeting was refused");
}

/// Closes the connection, which then says so; later, for this may be called from within it.
void Link::end_connection(const char* reason) {
  if (const std::shared_ptr<Stream_Connection> connection = connection_.lock()) {
    connection->close_soon(reason);
  }
}

void Link::up() {
  const std::shared_ptr<Stream_Connection> connection = connection_.lock();
  if (connection == nullptr) return;
  up_ = true;
  wait_ = new_wait();
  facade_->attach(connection->channel());
  JSON_RPC_Channel_Pool::instance()->insert(channel_);
  VEXA_INFO("Link %C is up.\n", endpoint_.url().c_str());
  if (options_.changed) options_.changed(true, std::string());
}

void Link::connection_closed(const char* reason) {
  connection_.reset();
  facade_->attach(JSON_RPC_Channel_var());
  JSON_RPC_Channel_Pool::instance()->remove(channel_);
  JSON_RPC_Channel_Map::instance()->remove(channel_);  // where the process has put it
  JSON_RPC_Notify_Manager::instance()->unsubscribe(channel_);
  if (!greeting_id_.empty()) JSON_RPC_Response_Map::instance()->remove(greeting_id_);
  greeting_id_.clear();
  up_ = false;
  down(reason != nullptr ? reason : "the peer has closed");
}

void Link::down(const std::string& reason) {
  if (closed_) return;
  abandon_attempt();
  if (options_.reconnect && !state_->stopping) {
    const unsigned seconds = *wait_;
    ++wait_;
    VEXA_WARNING("Link %C is down: %C. The next attempt is in %u s.\n", endpoint_.url().c_str(),
                 reason.c_str(), seconds);
    after(std::chrono::seconds(seconds), [](Link& self) {
      self.state_->metrics->add(Metrics::LINK_RETRIES);
      self.dial();
    });
  } else {
    VEXA_WARNING("Link %C is down: %C.\n", endpoint_.url().c_str(), reason.c_str());
  }
  if (options_.changed) options_.changed(false, reason);
}

}  // namespace transport
