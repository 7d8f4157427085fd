#pragma once

#include <vector>

#include "http/admin.h"
#include "http/prometheus.h"
#include "http/site.h"
#include "transport/server.h"

/// What the operators' listener serves: whether the process lives, whether it is ready, and its
/// metrics.
class Admin_Site final : public http::Site {
public:
  /// Both outlive this.
  Admin_Site(const http::Readiness& readiness, const transport::Server& server);

  bool wants_body(const Http_Request_Head&) const override { return false; }
  void answer(Http_Request_Head& head, std::string& body, http::Exchange& exchange) override;

private:
  const std::vector<http::Reading> readings_;
  const http::Admin admin_;
};
