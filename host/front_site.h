#pragma once

#include <cstddef>

#include "http/site.h"

/// What the host's HTTP listeners serve beside JSON-RPC: RESTful handlers, what has moved, files,
/// and the console at "/" where nothing else is; in this order. What they are is complete before
/// the loops start.
class Front_Site final : public http::Site {
public:
  /// @param max_body most bytes of a RESTful answer, 0 for any
  explicit Front_Site(std::size_t max_body);

  bool wants_body(const Http_Request_Head& head) const override;
  void answer(Http_Request_Head& head, std::string& body, http::Exchange& exchange) override;

private:
  const std::size_t max_body_;
};
