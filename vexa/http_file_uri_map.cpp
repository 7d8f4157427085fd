#include "vexa/http_file_uri_map.h"

#include "vexa/singleton_t.h"

HTTP_File_URI_Map* HTTP_File_URI_Map::instance() {
  return Singleton_T<HTTP_File_URI_Map>::instance();
}

void HTTP_File_URI_Map::close_instance() { Singleton_T<HTTP_File_URI_Map>::close(); }
