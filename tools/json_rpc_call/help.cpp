#include "tools/json_rpc_call/help.h"

#include <CLI/CLI.hpp>
#include <memory>

namespace {

const char* const summary =
    R"(Calls a method of a JSON-RPC 2.0 server and prints the result.

  json_rpc_call [OPTIONS] URL METHOD [PARAMS]
  json_rpc_call [OPTIONS] --notify URL METHOD [PARAMS]
  json_rpc_call [OPTIONS] --subscribe SUBJECT URL
  json_rpc_call [OPTIONS] --rest GET|POST|PUT|DELETE URL [BODY]
  json_rpc_call [OPTIONS] --form KEY=VALUE URL

URL is tcp://HOST:PORT, unix://PATH, or, but for subscriptions,
http://HOST:PORT/PATH or https://HOST:PORT/PATH; requests and forms go over
these two only. PARAMS and BODY are JSON, or @FILE, or - for standard input.
PARAMS of the latter kinds are sent while they are read, however large they
are; without PARAMS the request has none. The result goes to standard output
as JSON, in one line, the error object of an error response to standard error.)";

const char* const details =
    R"(Time. Over a stream, --timeout bounds connecting, then each wait for the peer
to take some of the params, then the wait for the answer; the last is up to a
second longer with PARAMS, and 600 s at most without. Over HTTP it bounds
connecting and each wait for the server to take or to send some bytes.

Retries. What could not be made, or was not answered in time, is made again
over a new connection, after 1, 2, 4 and so on up to 60 seconds with jitter,
until --retries or --retry-seconds is reached; --retry-seconds alone bounds
nothing else. A call that was not answered may have been carried out all the
same, and then is again.

Subscriptions. The method "subscribe" is called with {"subjects": [...]}. Each
notification is printed as it came, on one line, until --count of them have
been, or SIGINT or SIGTERM comes.

Benchmarks. The params are read once; the callers share one connection, or one
HTTP session. What is printed: calls a second, and the time within which 50, 90,
99 and 99.9 of a hundred calls were answered. Error responses are answers.

Exit status
  0  a result came, the notification has left, or the subscription was ended
  1  an error response came, or to --rest or --form a status other than 2xx
  2  the command line is wrong, or no answer came: one line on standard error
     says why

Examples
  json_rpc_call tcp://127.0.0.1:7070 sum '[1, 2]'
  json_rpc_call unix:///run/json_rpc.sock import @records.json
  generate | json_rpc_call --timeout 600 'tcp://[::1]:7070' count -
  json_rpc_call --agent node-7 --retries 5 tcp://127.0.0.1:7070 restart
  json_rpc_call --subscribe news --count 1 tcp://127.0.0.1:7070
  json_rpc_call --bench 100000 --concurrency 16 tcp://127.0.0.1:7070 echo '[1]'
  json_rpc_call --cacert ca.pem https://example.org/rpc sum '[1, 2]'
  json_rpc_call --rest PUT http://127.0.0.1:8080/things/1 '{"size": 3}'
)";

/// Of an option its name and the name of its value, and nothing that is said elsewhere.
class Help_Formatter final : public CLI::Formatter {
public:
  std::string make_usage(const CLI::App*, std::string) const override { return ""; }
  std::string make_positionals(const CLI::App*) const override { return ""; }
  std::string make_option_opts(const CLI::Option* option) const override {
    const std::string& value = option->get_option_text();
    return value.empty() ? "" : " " + value;
  }
};

}  // namespace

void describe_program(CLI::App& app) {
  app.description(summary);
  app.footer(details);
  const auto formatter = std::make_shared<Help_Formatter>();
  formatter->column_width(26);
  app.formatter(formatter);
  app.set_help_flag("-h,--help", "Print this help");
}
