#pragma once

/// Marks what libjson_rpc exports; everything else stays hidden.
#define JSON_RPC_EXPORT __attribute__((visibility("default")))

/// Marks the factory of a plug-in library, together with extern "C".
#define JSON_RPC_PLUGIN_EXPORT __attribute__((visibility("default")))
