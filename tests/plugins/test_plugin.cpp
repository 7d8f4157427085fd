// A handler library with a factory for everything that a library can do wrong. What happens inside
// is told to the test at notice priority. It leaves the process when it is closed, so that closing
// can be seen.
#include <ace/DLL_Manager.h>

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

struct Handler : JSON_RPC_Handler {
  static constexpr char kind[] = "handler";
  int init(int argc, char** argv) override { return tell_init(argc, argv); }
  int fini() override { return tell("fini"), 0; }
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return 0; }
};

struct Creator : JSON_RPC_Params_Handler_Creator {
  static constexpr char kind[] = "filter";
  YAJL_Handler* create(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return nullptr; }
};

struct RESTful_Creator : Object_Creator_T<JSON_RESTful_Handler> {
  static constexpr char kind[] = "RESTful creator";
  JSON_RESTful_Handler* create() override { return nullptr; }
  void destroy(JSON_RESTful_Handler*) override {}
};

template <typename Object, typename Base>
Base* make(void (**gobbler)(void*)) {
  *gobbler = [](void* p) {
    tell(std::string("gobbled a ") + Object::kind);
    delete static_cast<Base*>(p);
  };
  return new (std::nothrow) Object;
}

}  // namespace

#define FACTORY extern "C" JSON_RPC_PLUGIN_EXPORT

FACTORY u_long _get_dll_unload_policy() { return ACE_DLL_UNLOAD_POLICY_DEFAULT; }

FACTORY JSON_RPC_Handler* make_handler(void (**gobbler)(void*)) {
  return make<Handler, JSON_RPC_Handler>(gobbler);
}
FACTORY JSON_RPC_Params_Handler_Creator* make_creator(void (**gobbler)(void*)) {
  return make<Creator, JSON_RPC_Params_Handler_Creator>(gobbler);
}
FACTORY Object_Creator_T<JSON_RESTful_Handler>* make_restful(void (**gobbler)(void*)) {
  return make<RESTful_Creator, Object_Creator_T<JSON_RESTful_Handler>>(gobbler);
}
FACTORY JSON_RPC_Handler* make_null(void (**)(void*)) { return errno = ENOSPC, nullptr; }
FACTORY JSON_RPC_Handler* make_throwing(void (**)(void*)) { throw std::runtime_error("no object"); }
