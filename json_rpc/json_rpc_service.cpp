// init() and fini() run on the host's main thread while no other thread of the host uses the
// library.
#include "json_rpc/json_rpc_service.h"

#include <ace/Assert.h>
#include <ace/Get_Opt.h>
#include <ace/Time_Value.h>

#include <atomic>
#include <cerrno>
#include <new>
#include <string>

#include "json_rpc/json_restful_conf.h"
#include "json_rpc/json_restful_request_map.h"
#include "json_rpc/json_rpc_channel_map.h"
#include "json_rpc/json_rpc_channel_pool.h"
#include "json_rpc/json_rpc_conf.h"
#include "json_rpc/json_rpc_dispatcher.h"
#include "json_rpc/json_rpc_notify_manager.h"
#include "json_rpc/json_rpc_params_conf.h"
#include "json_rpc/json_rpc_params_handler_map.h"
#include "json_rpc/json_rpc_request_map.h"
#include "json_rpc/json_rpc_response_map.h"
#include "json_rpc/json_rpc_thread_handler.h"
#include "json_rpc/json_rpc_thread_pool_handler.h"
#include "vexa/http_file_uri_map.h"
#include "vexa/http_redirect_uri_map.h"
#include "vexa/log.h"
#include "vexa/natoi.h"

namespace {

std::atomic<std::size_t> failed{0};

/// Kept: JSON_RESTful_Handler_Creator_Map is not among them.
void close_registries(bool with_handlers) {
  JSON_RPC_Notify_Manager::close_instance();
  JSON_RPC_Dispatcher::close_instance();
  JSON_RPC_Channel_Pool::close_instance();
  JSON_RPC_Channel_Map::close_instance();
  if (with_handlers) {
    JSON_RPC_Response_Map::close_instance();
    JSON_RPC_Request_Map::close_instance();
  }
  JSON_RPC_Params_Handler_Map::close_instance();
  if (with_handlers) JSON_RESTful_Request_Map::close_instance();
  HTTP_File_URI_Map::close_instance();
  HTTP_Redirect_URI_Map::close_instance();
}

template <typename Conf>
void load(const char* path) {
  Conf reader;
  failed += load_json_config(path, reader);
}

/// The number that an option's text begins with; 0 where it begins with none. Kept: what is wrong
/// with it changes nothing, but it is counted, for a host that checks its configuration.
std::size_t number(char* text) {
  char* stop = nullptr;
  const std::size_t value = natoi<std::size_t>(text, nullptr, &stop);
  if (errno != 0 || *stop != '\0') {
    ++failed;
    VEXA_WARNING("The JSON_RPC_Service option value '%s' is read as %B.\n", text, value);
  }
  return value;
}

/// The option that was not understood, as it was written (but without a value behind "=").
std::string option_text(ACE_Get_Opt& options) {
  const std::string name = options.last_option();
  return (name.size() == 1 ? "-" : "--") + name;
}

}  // namespace

JSON_RPC_Service::JSON_RPC_Service() = default;
JSON_RPC_Service::~JSON_RPC_Service() = default;

void JSON_RPC_Service::create_registries() {
  JSON_RESTful_Request_Map::instance();
  JSON_RPC_Params_Handler_Map::instance();
  JSON_RPC_Request_Map::instance();
  JSON_RPC_Response_Map::instance();
  JSON_RPC_Channel_Map::instance();
  JSON_RPC_Channel_Pool::instance();
  JSON_RPC_Dispatcher::instance();
  JSON_RPC_Notify_Manager::instance();
  HTTP_File_URI_Map::instance();
  HTTP_Redirect_URI_Map::instance();
}

int JSON_RPC_Service::init(int argc, char** argv) {
  create_registries();
  parse_args(argc, argv);
  if (threads_ == 0) return 0;
  if (JSON_RPC_Thread_Pool_Handler::activate("JSONRPC", threads_, high_water_mark_,
                                             low_water_mark_) == -1) {
    VEXA_ERROR("Failed to activate JSON-RPC thread pool(number: %B, low/high water mark: %B/%B).\n",
               threads_, low_water_mark_, high_water_mark_);
    fini();  // the configurator does not call it after a failed init
    return -1;
  }
  VEXA_INFO("JSON-RPC thread pool(number: %B, low/high water mark: %B/%B) is activated.\n",
            threads_, low_water_mark_, high_water_mark_);
  return 0;
}

int JSON_RPC_Service::parse_args(int argc, char** argv) {
  failed = 0;
  ACE_Get_Opt options(argc, argv, "j:f:h:l:n:r:", 0, 0, ACE_Get_Opt::PERMUTE_ARGS, 0);
  options.long_option("jsonrpc", 'j', ACE_Get_Opt::ARG_REQUIRED);
  options.long_option("jsonrpc-params-filter", 'f', ACE_Get_Opt::ARG_REQUIRED);
  options.long_option("restful", 'r', ACE_Get_Opt::ARG_REQUIRED);
  options.long_option("jsonrpc-thread-number", 'n', ACE_Get_Opt::ARG_REQUIRED);
  options.long_option("jsonrpc-thread-queue-hwm", 'h', ACE_Get_Opt::ARG_REQUIRED);
  options.long_option("jsonrpc-thread-queue-lwm", 'l', ACE_Get_Opt::ARG_REQUIRED);
  for (int option = options(); option != EOF; option = options()) {
    char* const argument = options.opt_arg();
    switch (option) {
      case 'j':
        load<JSON_RPC_Conf>(argument);
        break;
      case 'f':
        load<JSON_RPC_Params_Conf>(argument);
        break;
      case 'r':
        load<JSON_RESTful_Conf>(argument);
        break;
      case 'n':
        threads_ = number(argument);
        break;
      case 'h':
        high_water_mark_ = number(argument);
        break;
      case 'l':
        low_water_mark_ = number(argument);
        break;
      default:
        ++failed;
        VEXA_ERROR("Unknown JSON_RPC_Service option %s\n", option_text(options).c_str());
        break;
    }
  }
  for (int i = options.opt_ind(); i < argc; ++i) {
    if (*argv[i] == '-') continue;  // an option without its argument, which has been counted
    ++failed;
    VEXA_WARNING("The JSON_RPC_Service argument '%s' is ignored.\n", argv[i]);
  }
  return 0;
}

int JSON_RPC_Service::fini() {
  if (threads_ != 0) JSON_RPC_Thread_Pool_Handler::deactivate();
  const bool idle = JSON_RPC_Thread_Handler::wait_all(ACE_Time_Value(10));
  if (!idle) {
    VEXA_ERROR("Method handlers are left open: %B calls still run on threads of their own.\n",
               JSON_RPC_Thread_Handler::running());
  }
  close_registries(idle);
  return 0;
}

std::size_t JSON_RPC_Service::failures() { return failed; }

ACE_Service_Object* _make_JSON_RPC_Service(void (**gobbler)(void*)) {
  if (gobbler != nullptr) *gobbler = _gobble_JSON_RPC_Service;
  return new (std::nothrow) JSON_RPC_Service;
}

void _gobble_JSON_RPC_Service(void* p) {
  ACE_Service_Object* const _p = static_cast<ACE_Service_Object*>(p);
  ACE_ASSERT(_p != 0);
  delete _p;
}
