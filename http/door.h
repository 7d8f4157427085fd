#pragma once

#include <memory>
#include <string>

#include "http/http_export.h"
#include "http/origin_check.h"
#include "http/site.h"
#include "transport/door.h"
#include "transport/method_filter.h"

namespace http {

/// What a listener of the HTTP front serves. Filled before it listens, then only read.
struct Door_Options {
  bool http = true;               ///< else nothing but upgrades to WebSocket
  bool websocket = true;          ///< upgrades at the RPC path, or with `http` off at any
  std::string rpc_path = "/rpc";  ///< empty: no JSON-RPC
  std::shared_ptr<const transport::Method_Filter> filter;  ///< null passes all
  std::shared_ptr<Site> site;                              ///< what else is served; null: 404
  Origin_Check origins;
};

/// HTTP/1.1 (RFC 9112), JSON-RPC over it, and WebSocket (RFC 6455) by upgrade.
class HTTP_EXPORT Http_Door final : public transport::Door {
public:
  explicit Http_Door(Door_Options options);
  void serve(transport::Opened opened) override;

private:
  const std::shared_ptr<const Door_Options> options_;
};

}  // namespace http
