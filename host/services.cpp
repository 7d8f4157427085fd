#include "host/services.h"

#include <ace/Dynamic_Service.h>
#include <ace/Service_Config.h>
#include <ace/Service_Object.h>
#include <ace/Thread_Manager.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "json_rpc/json_rpc_service.h"
#include "vexa/log.h"

namespace {

const char* const service_name = "JSON_RPC_Service";

/// Whether a file's text can be read; errno says why not. The configurator ends the process where
/// it finds out by itself.
bool readable(const std::string& file) {
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor == -1) return false;
  char byte;
  const bool good = ::read(descriptor, &byte, 1) != -1;
  const int error = errno;
  ::close(descriptor);
  errno = error;
  return good;
}

}  // namespace

int Services::load(const std::string& file) {
  if (!readable(file)) {
    VEXA_ERROR("Cannot read '%C': %m\n", file.c_str());
    return 1;
  }
  open_ = true;
  std::string name = "json_rpc_host";
  std::string flag = "-f";
  std::string path = file;
  char* arguments[] = {&name[0], &flag[0], &path[0], nullptr};
  const int failed = ACE_Service_Config::open(3, arguments, ACE_DEFAULT_LOGGER_KEY, true, true);
  if (failed != 0) VEXA_ERROR("'%C': %d directives failed.\n", file.c_str(), failed);
  if (!ready()) VEXA_ERROR("'%C' loads no %C.\n", file.c_str(), service_name);
  return failed;
}

void Services::close() {
  if (!open_) return;
  open_ = false;
  ACE_Service_Config::close();
  // Threads of ACE's that have run out of work may still be inside it.
  ACE_Thread_Manager::instance()->wait();
}

bool Services::ready() {
  return ACE_Dynamic_Service<ACE_Service_Object>::instance(service_name, true) != nullptr;
}

std::size_t Services::failures() { return JSON_RPC_Service::failures(); }
