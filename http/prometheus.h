#pragma once

#include <functional>
#include <string>
#include <vector>

#include "http/http_export.h"
#include "transport/metrics.h"

namespace http {

/// A number that is read whenever somebody asks for the metrics.
struct Reading {
  enum Type { GAUGE, COUNTER };

  std::string name;  ///< as it is shown: "json_rpc_channels"; a counter's ends with "_total"
  std::string help;
  Type type;
  std::function<double()> read;  ///< on the thread of whoever asks; one that throws is left out
};

/// The metrics and readings in Prometheus's text exposition format, version 0.0.4. Counters are
/// there from the start; histograms from a method's first answer on, and of the codes from -32000
/// to -32099 those that were ever sent. Throws std::bad_alloc.
HTTP_EXPORT std::string prometheus_text(const transport::Metrics& metrics,
                                        const std::vector<Reading>& readings);

/// The media type of that text.
extern HTTP_EXPORT const char* const prometheus_type;

}  // namespace http
