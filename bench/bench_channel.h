#pragma once

#include "json_rpc/json_rpc_channel.h"

/// A channel that goes nowhere; what a benchmark does not use fails.
class Bench_Channel : public JSON_RPC_Channel {
public:
  int send(JSON_RPC_Object_var) override { return -1; }
  int send(JSON_Generator&) override { return -1; }
  yajl_gen_t* send_begin() override { return nullptr; }
  int send_end() override { return -1; }
  int get_local_addr(ACE_Addr&) override { return -1; }
  int get_remote_addr(ACE_Addr&) override { return -1; }
  bool is_ssl() override { return false; }
  HTTP_SOCK_State request_state() override { return HTTP_SOCK_STATE_CONNECTED; }
  HTTP_SOCK_State response_state() override { return HTTP_SOCK_STATE_CONNECTED; }
};
