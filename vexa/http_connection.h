#pragma once

#include <ace/Intrusive_Auto_Ptr.h>
#include <ace/Message_Block.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "vexa/http_request.h"
#include "vexa/http_response.h"
#include "vexa/http_sock_state.h"
#include "vexa/vexa_export.h"

class HTTP_Session;
namespace vexa {
struct HTTP_Link;
}

/// One exchange with an HTTP server (RFC 9112): made by HTTP_Session::send_request(), it takes the
/// request's body, then gives the response's head and body, in that order:
///
///   send()*  [end()]  recv_header()  recv()* until state() is HTTP_SOCK_STATE_CONTENT_RECEIVED
///
/// The transport connection below is the session's: it goes back there to be used again as soon as
/// the response has been received whole, and is closed when the exchange failed or was left early.
///
/// Every operation blocks; one that waits longer than the session's time-out fails with ETIMEDOUT.
/// After a failure the state is HTTP_SOCK_STATE_CLOSED, error() tells why, and everything further
/// fails with the same error. One thread at a time; handles may be copied by any.
class VEXA_EXPORT HTTP_Connection {
public:
  static void intrusive_add_ref(HTTP_Connection* connection);
  static void intrusive_remove_ref(HTTP_Connection* connection);

  /// Sends the next bytes of the request's body, all of them: `length`, or -1. Small pieces are
  /// gathered, and go out with those that follow, with the request's head before them, or at the
  /// end; so a failure to send may show only there.
  ///
  /// A body is framed as the request says: chunked, or of that Content-Length, where more than
  /// announced is refused (EINVAL). What says neither is sent in chunks; but a GET or HEAD has no
  /// body then (EINVAL): it left at once. When the server has answered and stopped reading, what is
  /// left of the body is dropped without an error: the answer says what was wrong.
  ssize_t send(const char* data, std::size_t length);

  /// Ends the request: all that was gathered is sent. 0, or -1 with the socket's errno, ETIMEDOUT,
  /// or EINVAL when the body is shorter than announced. recv_header() does it too.
  int end();

  /// Ends the request and receives the head of its response into `response`, which is reset first.
  /// Interim responses (1xx) are passed over. 0, or -1:
  ///   ETIMEDOUT   nothing came in time
  ///   ECONNRESET  the server closed before the head was whole
  ///   EPROTO      what came is no HTTP response
  ///   EMSGSIZE    the head has more than 64 KiB
  ///   EINVAL      the body was shorter than the request announced; or it is not the time for this
  ///   others      the socket's
  /// A request without a body ends at its head, whatever it announced: POST, PUT and PATCH then say
  /// that their body is empty, other methods say nothing of one.
  int recv_header(HTTP_Response& response);

  /// Receives what is there of the response's body, as soon as there is some: 1 to `size` bytes,
  /// without the framing, and the state becomes HTTP_SOCK_STATE_CONTENT_RECEIVED with the last. 0
  /// at the end of the body, in that state, only: the end of a chunked body can come after its last
  /// byte. -1 as for recv_header(); ECONNRESET for a body that was cut off.
  ssize_t recv(char* data, std::size_t size);

  /// The same behind the block's write pointer, which moves. A block without room is a failure.
  ssize_t recv(ACE_Message_Block& block);

  HTTP_SOCK_State state() const { return state_; }

  /// The errno of the failure; 0 before one.
  int error() const { return error_; }

private:
  friend class HTTP_Session;
  enum class Framing { none, length, chunked, unsaid };

  explicit HTTP_Connection(HTTP_Session* session);
  ~HTTP_Connection();
  HTTP_Connection(const HTTP_Connection&) = delete;
  HTTP_Connection& operator=(const HTTP_Connection&) = delete;

  bool begin(const HTTP_Request& request);
  bool connect();
  void end_head(bool with_body);
  bool end_request();
  bool write(std::string_view data, bool last);
  bool write_once(std::string_view data, bool last);
  bool may_send_again(int error) const;
  int receive_head(HTTP_Response& response);
  void finish();
  void leave();
  int fail(int error);
  int misuse(const char* what);

  std::atomic<int> references_{0};
  ACE_Intrusive_Auto_Ptr<HTTP_Session> session_;
  std::unique_ptr<vexa::HTTP_Link> link_;  // null once it went back or was closed
  HTTP_SOCK_State state_ = HTTP_SOCK_STATE_CONNECTED;
  int error_ = 0;

  int method_ = 0;
  std::string path_;    // what cookies are filed under
  bool close_ = false;  // the connection is not to be used again
  Framing framing_ = Framing::none;
  std::uint64_t announced_ = 0;  // bytes of Content-Length
  std::uint64_t taken_ = 0;      // bytes of the body that send() was given

  std::string head_;               // as far as it has not been let go
  std::string body_;               // the same of the body
  bool lost_ = false;              // part of the request has been let go
  bool deaf_ = false;              // the server answered and reads no more
  bool reused_ = false;            // the link served another exchange before,
  std::uint64_t sent_before_ = 0;  // and took that many bytes then
};

typedef ACE_Intrusive_Auto_Ptr<HTTP_Connection> HTTP_Connection_var;
