#include "json_rpc/json_restful_request_map.h"

#include "vexa/singleton_t.h"

JSON_RESTful_Request_Map::JSON_RESTful_Request_Map() = default;
JSON_RESTful_Request_Map::~JSON_RESTful_Request_Map() = default;

JSON_RESTful_Request_Map* JSON_RESTful_Request_Map::instance() {
  return Singleton_T<JSON_RESTful_Request_Map>::instance();
}
void JSON_RESTful_Request_Map::close_instance() { Singleton_T<JSON_RESTful_Request_Map>::close(); }
