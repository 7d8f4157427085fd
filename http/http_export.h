#pragma once

/// Marks what libjson_rpc_http exports; everything else stays hidden.
#define HTTP_EXPORT __attribute__((visibility("default")))
