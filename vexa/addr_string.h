#pragma once

#include <ace/Addr.h>

#include "vexa/vexa_export.h"

/// An address as text that is safe to show and to compare, made without a name look-up.
///
///   address                    with the port            without
///   internet, version 4       "192.0.2.7:4711"          "192.0.2.7"
///   internet, version 6       "[2001:db8::7]:4711"      "2001:db8::7"
///   Unix socket               its path, "@name" for an abstract one, "" for an unnamed one
///   not set, or of a family that is not known           ""
///
/// An internet address counts as not set when it is the wildcard with port 0, as a
/// default-constructed ACE_INET_Addr is: no peer ever has it, and "::" would look like one.
class VEXA_EXPORT ACE_Addr_String {
public:
  explicit ACE_Addr_String(const ACE_Addr& addr, bool with_port = true);
  const char* c_str() const { return buf_; }

private:
  char buf_[128];  // the longest path of a Unix socket has 107 bytes
};
