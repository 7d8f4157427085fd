#include "tools/json_rpc_call/interruption.h"

#include <signal.h>

#include <thread>

#include "tools/json_rpc_call/output.h"

void leave_when_interrupted(int status) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // the threads to come inherit it
  std::thread([signals, status] {
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);  // here a second one strikes
    leave(status);
  }).detach();
}
