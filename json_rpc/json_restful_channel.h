#pragma once

#include <ace/Addr.h>
#include <ace/Lock.h>
#include <yajl/yajl_gen.h>

#include <cstddef>

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_spirit/json_spirit_value.h"
#include "vexa/io_base.h"

class CGI_Request;
class CGI_Response;

/// One RESTful HTTP exchange: what a RESTful handler answers through. The host implements it; its
/// bytes go out through IO_Base. Operations that give an int give 0, or -1 with errno.
class JSON_RPC_EXPORT JSON_RESTful_Channel : public IO_Base {
public:
  typedef std::size_t size_type;

  ~JSON_RESTful_Channel() override;

  /// Where the client really is, when it comes through a proxy, as the host defines it.
  virtual int get_original_addr(ACE_Addr& addr) const = 0;

  /// Both are the channel's and last as long as the exchange.
  virtual const CGI_Request* request() = 0;
  virtual CGI_Response* response() = 0;

  /// Sends a JSON body.
  virtual int send(const json_spirit::Value& body) = 0;
  virtual int send(JSON_Generator& body) = 0;

  /// Sends an HTTP error status, alone or with a second code and a text. What the second code means
  /// is the host's to say.
  virtual int send_error(int status) = 0;
  virtual int send_error(int status, int code) = 0;
  virtual int send_error(int status, int code, const char* text) = 0;

  /// Sends an error that is made from the last system error.
  virtual int send_last_error(int status, const char* text) = 0;

  /// A streamed body: the generator to write it with, valid until send_end(); null on failure.
  virtual yajl_gen_t* send_begin() = 0;
  virtual int send_end() = 0;

  virtual int get_local_addr(ACE_Addr& addr) = 0;
  virtual int get_remote_addr(ACE_Addr& addr) = 0;
  virtual bool is_ssl() = 0;

  /// Where in the request's URI the handler's own part begins, in bytes.
  virtual size_type uri_off() = 0;

  /// The lock that serialises writers; null, as here, when none is needed.
  virtual ACE_Lock* mutex();
};
