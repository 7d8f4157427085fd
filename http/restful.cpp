// Calls travel to the pool and to threads of their own by the library's ways for JSON-RPC calls:
// so the host counts and awaits them together with those when it stops.
#include "http/restful.h"

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "http/restful_call.h"
#include "http/target.h"
#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_thread_handler.h"
#include "json_rpc/json_rpc_thread_pool_handler.h"
#include "vexa/adopt.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace {

typedef Object_Creator_T<JSON_RESTful_Handler> Creator;

/// What a creator made, with the way back to it.
class Created_Handler final : public JSON_RESTful_Handler {
public:
  Created_Handler(Creator& creator, JSON_RESTful_Handler& handler)
      : creator_(creator), handler_(handler) {}
  ~Created_Handler() override {
    end([this] { handler_.fini(); });
    end([this] { creator_.destroy(&handler_); });
  }

  int init(int argc, char** argv) override { return handler_.init(argc, argv); }
  int fini() override { return handler_.fini(); }
  CONCURRENCY concurrency() const override { return handler_.concurrency(); }
  int handle_request(JSON_RESTful_Channel* channel, json_spirit::Value& body) override {
    return handler_.handle_request(channel, body);
  }

private:
  template <typename Step>
  static void end(Step step) {
    try {
      step();
    } catch (...) {
      VEXA_ERROR("A RESTful handler threw an exception at its end: %C\n", vexa::exception_text());
    }
  }

  Creator& creator_;  // never closed while handlers live
  JSON_RESTful_Handler& handler_;
};

void destroy(void* handler) { delete static_cast<JSON_RESTful_Handler*>(handler); }

/// What the creator makes; null, with a log line, when it makes nothing.
JSON_RESTful_Handler* create(Creator& creator, const std::string& uri) {
  try {
    errno = 0;
    JSON_RESTful_Handler* const handler = creator.create();
    if (handler != nullptr) return handler;
    VEXA_ERROR("The creator of the RESTful handler for '%C' made none: %m\n", uri.c_str());
  } catch (...) {
    VEXA_ERROR("The creator of the RESTful handler for '%C' threw an exception: %C\n", uri.c_str(),
               vexa::exception_text());
  }
  return nullptr;
}

bool make_handler(Creator& creator, const std::string& uri, JSON_RESTful_Request_Map& handlers) {
  if (uri != http::normal_path(uri)) {
    VEXA_ERROR("No request can reach the RESTful handler for '%C': '%C' would do.\n", uri.c_str(),
               http::normal_path(uri).c_str());
    return false;
  }
  JSON_RESTful_Handler* const made = create(creator, uri);
  if (made == nullptr) return false;
  std::unique_ptr<Created_Handler> handler(new (std::nothrow) Created_Handler(creator, *made));
  if (handler == nullptr) {
    creator.destroy(made);
    VEXA_ERROR("No memory for the RESTful handler for '%C'.\n", uri.c_str());
    return false;
  }
  if (handlers.insert(uri, std::string(), handler.get(), &destroy) != 0) {
    VEXA_ERROR("There is a RESTful handler for '%C' already.\n", uri.c_str());
    return false;
  }
  static_cast<void>(handler.release());  // the registry's now
  return true;
}

int run_call(JSON_RPC_Object& call) {
  static_cast<Restful_Call&>(call).run();
  return 0;
}

/// Runs calls on the shared pool.
class Pool_Runner final : public JSON_RPC_Thread_Pool_Handler {
  int handle_object_i(JSON_RPC_Channel_ptr, JSON_RPC_Object_var call) override {
    return run_call(*call);
  }
};

/// Runs each call on a thread of its own.
class Thread_Runner final : public JSON_RPC_Thread_Handler {
  int handle_object_i(JSON_RPC_Channel_var, JSON_RPC_Object_var call) override {
    return run_call(*call);
  }
};

/// Stands for the requester where the library wants one; the answer goes another way.
class No_Channel final : public JSON_RPC_Channel {
public:
  int send(JSON_RPC_Object_var) override { return refuse(); }
  int send(JSON_Generator&) override { return refuse(); }
  yajl_gen_t* send_begin() override { return refuse(), nullptr; }
  int send_end() override { return refuse(); }
  int get_local_addr(ACE_Addr&) override { return refuse(); }
  int get_remote_addr(ACE_Addr&) override { return refuse(); }
  bool is_ssl() override { return false; }
  HTTP_SOCK_State request_state() override { return HTTP_SOCK_STATE_CLOSED; }
  HTTP_SOCK_State response_state() override { return HTTP_SOCK_STATE_CLOSED; }

private:
  static int refuse() {
    errno = ENOTCONN;
    return -1;
  }
};

/// Never destroyed: a call may end after the destructors of static objects have run.
template <typename Runner>
Runner& runner() {
  alignas(Runner) static unsigned char place[sizeof(Runner)];
  static Runner* const it = new (place) Runner;
  return *it;
}

/// Hands the call over. One that cannot be is destroyed, and by that answered.
void start(JSON_RESTful_Handler::CONCURRENCY where, const JSON_RPC_Object_var& call) {
  switch (where) {
    case JSON_RESTful_Handler::THREAD: {
      JSON_RPC_Channel_var requester;
      if (!vexa::adopt(requester, static_cast<JSON_RPC_Channel*>(new (std::nothrow) No_Channel))) {
        return;
      }
      runner<Thread_Runner>().handle_object(JSON_RPC_Channel_ptr(requester), call);
      return;
    }
    case JSON_RESTful_Handler::PROACTIVE:
      if (!JSON_RPC_Thread_Pool_Handler::is_active()) return;
      runner<Pool_Runner>().handle_object(JSON_RPC_Channel_var(), call);
      return;
    default:
      run_call(*call);
  }
}

JSON_RESTful_Handler::CONCURRENCY concurrency_of(const JSON_RESTful_Handler& handler) {
  try {
    return handler.concurrency();
  } catch (...) {
    VEXA_ERROR("concurrency() of a RESTful handler threw an exception: %C\n",
               vexa::exception_text());
    return JSON_RESTful_Handler::INHERITED;
  }
}

}  // namespace

std::size_t http::make_restful_handlers(JSON_RESTful_Handler_Creator_Map& creators,
                                        JSON_RESTful_Request_Map& handlers) {
  std::size_t failed = 0;
  creators.for_each_name([&](const std::string& uri) {
    if (!make_handler(*creators.find(uri), uri, handlers)) ++failed;
  });
  return failed;
}

bool http::serve_restful(const JSON_RESTful_Request_Map& handlers, Http_Request_Head& head,
                         std::string& body, std::size_t max_answer, Restful_Answer answer) {
  std::string::size_type prefix = 0;
  JSON_RESTful_Handler* const handler = handlers.find(head.path, '/', prefix);
  if (handler == nullptr) return false;
  JSON_RPC_Object* made;
  try {
    made = new Restful_Call(*handler, std::move(head), prefix, std::move(body), max_answer, answer);
  } catch (const std::bad_alloc&) {
    answer(503, HTTP_Headers(), std::string());
    return true;
  }
  // From here on the call answers, if only by going.
  JSON_RPC_Object_var call;
  if (vexa::adopt(call, made)) start(concurrency_of(*handler), call);
  return true;
}
