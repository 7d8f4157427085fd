#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "transport/transport_export.h"

namespace transport {

/// Which methods a listener's peers may call: those that match a pattern of `allow`, or all when it
/// has none, and none of `deny`. In a pattern `*` stands for any text.
struct TRANSPORT_EXPORT Method_Filter {
  std::vector<std::string> allow;
  std::vector<std::string> deny;

  bool passes(std::string_view method) const;
};

}  // namespace transport
