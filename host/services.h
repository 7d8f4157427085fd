#pragma once

#include <string>

/// The process's services, as ACE's service configurator loads them from a file.
class Services {
public:
  /// Loads what `file` names: 0, or the number of directives that failed (a file that cannot be
  /// read counts as one). What went wrong is logged.
  int load(const std::string& file);

  /// Finishes every service and closes the configurator: before main returns.
  void close();

  /// Whether the library's service is there.
  static bool ready();

  /// Records and options of the library's service that were bad.
  static std::size_t failures();

private:
  bool open_ = false;
};
