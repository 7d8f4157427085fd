#include "vexa/cgi_response.h"

void CGI_Response::reset() {
  status_ = 0;
  minor_version_ = 1;
  headers_.clear();
}
