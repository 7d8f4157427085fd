#include "json_rpc/json_restful_conf.h"

JSON_RESTful_Handler_Creator_Map* JSON_RESTful_Conf_Traits::registry() {
  return JSON_RESTful_Handler_Creator_Map::instance();
}
