// A handler library with a factory for everything that a library can do wrong. What happens inside
// is told to the test at notice priority.
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "json_rpc/json_restful_handler.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_params_handler_creator.h"
#include "vexa/log.h"
#include "vexa/object_creator_t.h"
#include "vexa/yajl_handler.h"

namespace {

void tell(const std::string& event) { VEXA_LOG(LM_NOTICE, 0, "%s\n", event.c_str()); }

/// Tells its arguments as "init [a][b]". A first word "return=N" is the result, "throw" throws.
int tell_init(int argc, char** argv) {
  std::string event = "init ";
  for (int i = 0; i < argc; ++i) event += std::string("[") + argv[i] + "]";
  tell(event);
  if (argc == 0) return 0;
  if (std::strcmp(argv[0], "throw") == 0) throw std::runtime_error("no init");
  if (std::strncmp(argv[0], "return=", 7) != 0) return 0;
  errno = EACCES;
  return std::atoi(argv[0] + 7);
}

class Handler : public JSON_RPC_Handler {
public:
  ~Handler() override { tell("destroyed"); }
  int init(int argc, char** argv) override { return tell_init(argc, argv); }
  int fini() override {
    tell("fini");
    return 0;
  }
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override {
    throw std::runtime_error("no answer");
  }
};

class Creator : public JSON_RPC_Params_Handler_Creator {
public:
  ~Creator() override { tell("creator destroyed"); }
  int init(int argc, char** argv) override { return tell_init(argc, argv); }
  YAJL_Handler* create(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override {
    return new (std::nothrow) YAJL_Handler;
  }
};

class RESTful_Handler : public JSON_RESTful_Handler {
public:
  int handle_request(JSON_RESTful_Channel*, json_spirit::Value&) override { return 0; }
};

class RESTful_Creator : public Object_Creator_T<JSON_RESTful_Handler> {
public:
  ~RESTful_Creator() override { tell("RESTful creator destroyed"); }
  JSON_RESTful_Handler* create() override {
    tell(std::string("creates with ") + (argc_ > 0 ? argv_[0] : "nothing"));
    return new (std::nothrow) RESTful_Handler;
  }
  void destroy(JSON_RESTful_Handler* handler) override { delete handler; }
};

template <typename Object>
void gobble(void* p) {
  tell("gobbled");
  delete static_cast<Object*>(p);
}

JSON_RPC_Handler* without_gobbler = nullptr;  // the last one made

}  // namespace

#define FACTORY extern "C" JSON_RPC_PLUGIN_EXPORT

FACTORY JSON_RPC_Handler* make_handler(void (**gobbler)(void*)) {
  *gobbler = gobble<JSON_RPC_Handler>;
  return new (std::nothrow) Handler;
}

FACTORY JSON_RPC_Handler* make_without_gobbler(void (**)(void*)) {
  return without_gobbler = new (std::nothrow) Handler;
}

FACTORY void delete_without_gobbler() { delete without_gobbler; }

FACTORY JSON_RPC_Handler* make_null(void (**)(void*)) {
  errno = ENOSPC;
  return nullptr;
}

FACTORY JSON_RPC_Handler* make_throwing(void (**)(void*)) { throw std::runtime_error("no object"); }

FACTORY JSON_RPC_Handler* make_throwing_int(void (**)(void*)) { throw 1; }

FACTORY JSON_RPC_Params_Handler_Creator* make_creator(void (**gobbler)(void*)) {
  *gobbler = gobble<JSON_RPC_Params_Handler_Creator>;
  return new (std::nothrow) Creator;
}

FACTORY Object_Creator_T<JSON_RESTful_Handler>* make_restful(void (**gobbler)(void*)) {
  *gobbler = gobble<Object_Creator_T<JSON_RESTful_Handler>>;
  return new (std::nothrow) RESTful_Creator;
}
