#pragma once

/// Marks what libjson_rpc_transport exports; everything else stays hidden.
#define TRANSPORT_EXPORT __attribute__((visibility("default")))
