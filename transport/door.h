#pragma once

#include <memory>
#include <string>

#include "transport/method_filter.h"
#include "transport/opened.h"
#include "transport/transport_export.h"

namespace transport {

class Tls_Server;

/// What a listener serves.
class TRANSPORT_EXPORT Door {
public:
  virtual ~Door();
  /// Begins to serve a stream that was accepted, on its loop's thread.
  virtual void serve(Opened opened) = 0;
};

/// JSON-RPC as a stream of messages.
class TRANSPORT_EXPORT Stream_Door final : public Door {
public:
  /// `filter`: what peers may call; null for all.
  explicit Stream_Door(std::shared_ptr<const Method_Filter> filter);
  void serve(Opened opened) override;

private:
  const std::shared_ptr<const Method_Filter> filter_;
};

/// Where a server listens, and for what.
struct Listen_Options {
  std::string url;
  std::shared_ptr<Door> door;
  std::shared_ptr<Tls_Server> tls;  ///< null: none
};

}  // namespace transport
