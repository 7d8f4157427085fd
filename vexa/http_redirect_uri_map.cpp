#include "vexa/http_redirect_uri_map.h"

#include "vexa/singleton_t.h"

HTTP_Redirect_URI_Map* HTTP_Redirect_URI_Map::instance() {
  return Singleton_T<HTTP_Redirect_URI_Map>::instance();
}

void HTTP_Redirect_URI_Map::close_instance() { Singleton_T<HTTP_Redirect_URI_Map>::close(); }
