#pragma once

#include <chrono>
#include <string>

#include "json_rpc/json_rpc_object.h"
#include "tools/json_rpc_call/peer.h"

/// Why a call or a notification over the peer's channel failed with that errno, for one line.
std::string reason_of_failure(Peer& peer, int error, std::chrono::seconds timeout);

/// Whether the answer is none of the peer's, but tells that the connection was lost; then with a
/// reason.
bool closed_under_call(Peer& peer, const JSON_RPC_Object* answer, std::string& reason);
