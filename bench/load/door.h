#pragma once

#include <string>

/// Where the load goes: tcp://HOST:PORT, unix://PATH, http://HOST:PORT[/PATH] or
/// ws://HOST:PORT[/PATH], the path being /rpc where there is none.
struct Door {
  enum Kind { TCP, UNIX, HTTP, WEBSOCKET };

  Kind kind = TCP;
  std::string host;  // without brackets
  std::string port;
  std::string path;  // of the socket's file, or of the URL

  /// False for anything else.
  static bool parse(const std::string& url, Door& door);

  /// A new connection, upgraded where it is to be, which does not block; -1 with the reason in
  /// `error`.
  int connect(std::string& error) const;
};
