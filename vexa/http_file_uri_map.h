#pragma once

#include "vexa/http_uri_map.h"
#include "vexa/vexa_export.h"

/// URI prefixes that are served from files: prefix -> root folder in the file system.
class VEXA_EXPORT HTTP_File_URI_Map : public HTTP_URI_Map {
public:
  /// The one of this process; created by the first call, which must come before other threads do.
  static HTTP_File_URI_Map* instance();
  /// Destroys it; a later instance() is a new, empty one.
  static void close_instance();
};
