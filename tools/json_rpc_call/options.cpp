#include "tools/json_rpc_call/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <limits>

#include "tools/json_rpc_call/exit_status.h"
#include "tools/json_rpc_call/help.h"
#include "transport/endpoint.h"

namespace {

constexpr int max_seconds = 365 * 24 * 3600;
constexpr int no_limit = -1;

/// The command line's grammar, and what the options leave to be made sense of.
class Command_Line {
public:
  explicit Command_Line(Options& options);

  /// Throws CLI::Error.
  void parse(int argc, char** argv) { app_.parse(argc, argv); }
  int exit(const CLI::Error& error) const { return app_.exit(error); }

  /// Gives what was parsed its meaning; "" or what is wrong with it.
  std::string finish();

private:
  void add_words();
  void add_tasks();
  void add_times();
  void add_transport();
  void add_output();

  bool given(const std::string& name) const { return app_.get_option(name)->count() != 0; }
  std::string take_task();
  std::string take_url();
  std::string take_words();
  std::string take_fields();
  std::string misplaced() const;

  Options& options_;
  CLI::App app_;
  std::string first_word_;
  std::string second_word_;
  int timeout_;  // seconds
  std::string framing_ = "line";
  std::string verb_;                 // of --rest
  std::vector<std::string> form_;    // KEY=VALUE
  std::vector<std::string> fields_;  // Name: value
};

Command_Line::Command_Line(Options& options)
    : options_(options),
      app_("", "json_rpc_call"),
      timeout_(static_cast<int>(options.timeout.count())) {
  describe_program(app_);
  add_words();
  add_tasks();
  add_times();
  add_transport();
  add_output();
}

void Command_Line::add_words() {
  app_.add_option("URL", options_.url)->required();
  app_.add_option("METHOD", first_word_);
  app_.add_option("PARAMS", second_word_);
}

void Command_Line::add_tasks() {
  app_.add_option("--agent", options_.agent,
                  "Call the method of the agent of this id, by agent.call")
      ->option_text("ID");
  app_.add_flag("--notify", "Send a notification, and end when it has left");
  app_.add_option("--subscribe", options_.subjects,
                  "Print notifications of this name, * for all; repeatable")
      ->allow_extra_args(false)
      ->option_text("SUBJECT");
  app_.add_option("--count", options_.count, "End after so many notifications")
      ->check(CLI::Range(std::size_t{1}, std::numeric_limits<std::size_t>::max()))
      ->option_text("N");
  app_.add_option("--bench", options_.bench, "Make so many calls, and tell how long they took")
      ->check(CLI::Range(std::size_t{1}, std::size_t{100'000'000}))
      ->option_text("N");
  app_.add_option("--concurrency", options_.concurrency, "So many calls of --bench at a time")
      ->check(CLI::Range(1u, 1024u))
      ->option_text("C [1]");
  app_.add_option("--rest", verb_, "Send an HTTP request with a JSON body or none")
      ->check(CLI::IsMember({"GET", "POST", "PUT", "DELETE"}))
      ->option_text("GET|POST|PUT|DELETE");
  app_.add_option("--form", form_, "Post a form with this field; repeatable")
      ->allow_extra_args(false)
      ->option_text("KEY=VALUE");
}

void Command_Line::add_times() {
  app_.add_option("--timeout", timeout_, "Seconds to wait")
      ->check(CLI::Range(1, max_seconds))
      ->option_text("S [60]");
  app_.add_option("--retries", options_.retries, "Attempts after one that failed, -1: any number")
      ->check(CLI::Range(no_limit, std::numeric_limits<int>::max()))
      ->option_text("N [0]");
  app_.add_option(
          "--retry-seconds", options_.retry_seconds,
          "Seconds of waiting between attempts in all, -1: any number; without --retries as "
          "many attempts as fit")
      ->check(CLI::Range(no_limit, max_seconds))
      ->option_text("S [-1]");
}

void Command_Line::add_transport() {
  app_.add_option("--framing", framing_,
                  "A message a line, or each behind a header with its Content-Length")
      ->check(CLI::IsMember({"line", "header"}))
      ->option_text("line|header [line]");
  app_.add_option("--header", fields_, "Send this field with HTTP requests; repeatable")
      ->allow_extra_args(false)
      ->option_text("'NAME: VALUE'");
  app_.add_option("--cacert", options_.cacert, "Trust the certificates of this PEM file, no others")
      ->option_text("FILE");
  app_.add_flag("--insecure", options_.insecure, "Do not look at the server's certificate");
  app_.add_flag("--no-stream", "Hold the HTTP body, and send it with its length");
}

void Command_Line::add_output() {
  app_.add_flag("--pretty", options_.style.pretty, "Indent the result");
  app_.add_flag("--raw", options_.style.raw,
                "Print a result that is a text without quotes and escapes");
  app_.add_flag("--verbose", options_.verbose, "Show the library's log on standard error");
  app_.set_version_flag("--version", "json_rpc_call " JSON_RPC_VERSION, "Print the version");
}

std::string Command_Line::finish() {
  options_.timeout = std::chrono::seconds(timeout_);
  if (framing_ == "header") options_.framing = transport::Framing::HEADERS;
  if (given("--retry-seconds") && !given("--retries")) options_.retries = no_limit;
  options_.stream = !given("--no-stream");
  typedef std::string (Command_Line::*Step)();
  for (const Step step : {&Command_Line::take_task, &Command_Line::take_url,
                          &Command_Line::take_words, &Command_Line::take_fields}) {
    std::string wrong = (this->*step)();
    if (!wrong.empty()) return wrong;
  }
  return misplaced();
}

std::string Command_Line::take_task() {
  static const std::pair<const char*, Options::Task> tasks[] = {{"--notify", Options::NOTIFY},
                                                                {"--subscribe", Options::SUBSCRIBE},
                                                                {"--rest", Options::REST},
                                                                {"--form", Options::FORM}};
  for (const auto& task : tasks) {
    if (!given(task.first)) continue;
    if (options_.task != Options::CALL) {
      return "only one of --notify, --subscribe, --rest and --form can be done";
    }
    options_.task = task.second;
  }
  return "";
}

std::string Command_Line::take_url() {
  std::string reason;
  options_.http = Http_URL::is_one(options_.url);
  transport::Endpoint ignored;
  const bool good = options_.http ? Http_URL::parse(options_.url, options_.http_url, reason)
                                  : transport::Endpoint::parse(options_.url, ignored, reason);
  return good ? "" : options_.url + ": " + reason;
}

std::string Command_Line::take_words() {
  const bool rest = options_.task == Options::REST;
  const bool called = options_.task == Options::CALL || options_.task == Options::NOTIFY;
  if (called && first_word_.empty()) return "METHOD is missing";
  if (given("--agent") && options_.agent.empty()) return "the ID of --agent is empty";
  if (!called && given(rest ? "PARAMS" : "METHOD")) return "there is a word too much";
  options_.method = rest ? verb_ : first_word_;
  options_.input = rest ? first_word_ : second_word_;
  options_.has_input = given(rest ? "METHOD" : "PARAMS");
  if (rest && options_.has_input && (verb_ == "GET" || verb_ == "DELETE")) {
    return "--rest " + verb_ + " takes no BODY";
  }
  return "";
}

/// The fields of the form and of the head.
std::string Command_Line::take_fields() {
  for (const std::string& field : form_) {
    const std::size_t equals = field.find('=');
    if (equals == 0 || equals == std::string::npos) return "--form " + field + " is no KEY=VALUE";
    if (!options_.form.emplace(field.substr(0, equals), field.substr(equals + 1)).second) {
      return "--form has a KEY twice: " + field.substr(0, equals);
    }
  }
  for (const std::string& field : fields_) {
    const std::size_t colon = field.find(':');
    if (colon == 0 || colon == std::string::npos) return "--header " + field + " is no NAME: VALUE";
    const std::size_t value = std::min(field.find_first_not_of(" \t", colon + 1), field.size());
    options_.headers.emplace_back(field.substr(0, colon), field.substr(value));
  }
  return "";
}

/// An option that has nothing to do with the rest.
std::string Command_Line::misplaced() const {
  const Options& o = options_;
  const bool json_rpc = o.task == Options::CALL || o.task == Options::NOTIFY;
  const bool subscribe = o.task == Options::SUBSCRIBE;
  const bool tls = o.http && o.http_url.tls;
  const struct {
    const char* option;
    bool in_place;
    const char* place;
  } rules[] = {
      {"--subscribe", !o.http, "tcp:// and unix://"},
      {"--framing", !o.http, "tcp:// and unix://"},
      {"--rest", o.http, "http:// and https://"},
      {"--form", o.http, "http:// and https://"},
      {"--header", o.http, "http:// and https://"},
      {"--no-stream", o.http && o.task != Options::FORM, "bodies of JSON over HTTP"},
      {"--cacert", tls && !o.insecure, "https:// without --insecure"},
      {"--insecure", tls, "https://"},
      {"--agent", json_rpc, "calls and notifications"},
      {"--count", subscribe, "--subscribe"},
      {"--bench", o.task == Options::CALL, "calls"},
      {"--concurrency", o.bench != 0, "--bench"},
      {"--retries", !subscribe && o.bench == 0, "what is neither --subscribe nor --bench"},
      {"--retry-seconds", !subscribe && o.bench == 0, "what is neither --subscribe nor --bench"},
      {"--pretty", !subscribe, "results"},
      {"--raw", !subscribe, "results"},
  };
  for (const auto& rule : rules) {
    if (given(rule.option) && !rule.in_place) {
      return std::string(rule.option) + " is for " + rule.place + " only";
    }
  }
  return "";
}

}  // namespace

bool Options::parse(int argc, char** argv, int& status) {
  Command_Line line(*this);
  std::string wrong;
  try {
    line.parse(argc, argv);
    wrong = line.finish();
  } catch (const CLI::Success& asked) {
    status = line.exit(asked);
    return false;
  } catch (const CLI::ParseError& error) {
    wrong = error.what();
  }
  if (wrong.empty()) return true;
  status = complain(wrong);
  return false;
}
