#pragma once

#include <vector>

#include "http/http_export.h"
#include "http/prometheus.h"

namespace http {

/// What the system knows of this process, under the names that all exporters use: memory, CPU time,
/// descriptors, threads, and when it started. A figure that the system does not tell is NaN.
HTTP_EXPORT std::vector<Reading> process_readings();

}  // namespace http
