#pragma once

namespace transport {

// The errors that the transport itself answers with, beside those of the JSON-RPC 2.0 standard.

constexpr int server_busy = -32000;
constexpr int server_stopping = -32001;
constexpr const char* busy_text = "Server busy";
constexpr const char* stopping_text = "Server is stopping";

}  // namespace transport
