#include "http/prometheus.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <new>
#include <string_view>

#include "vexa/exception_text.h"
#include "vexa/log.h"
#include "vexa/utf8.h"

namespace http {

using transport::Metrics;

const char* const prometheus_type = "text/plain; version=0.0.4; charset=utf-8";

namespace {

/// A text between quotes, or, without `quotes`, in a line of help.
std::string escaped(const std::string& text, bool quotes) {
  std::string result;
  for (const char c : vexa::utf8_repaired(text.data(), text.size())) {
    if (c == '\\' || (quotes && c == '"')) result += '\\';
    if (c == '\n') {
      result += "\\n";
    } else {
      result += c;
    }
  }
  return result;
}

std::string decimal(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "+Inf" : "-Inf";
  char digits[32];
  return std::string(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

/// Without an exponent, as the bounds of histograms are usually written: they are texts.

template <typename Seconds>
std::string in_seconds(Seconds time) {
  const double seconds = std::chrono::duration<double>(time).count();
  char digits[32];
  return std::string(
      digits, std::to_chars(digits, digits + sizeof digits, seconds, std::chars_format::fixed).ptr);
}

std::string label(const char* name, const std::string& value) {
  return std::string(name) + "=\"" + escaped(value, true) + '"';
}

/// The text as it grows: families of samples, one after the other.
class Exposition {
public:
  /// Begins a family; its samples follow.
  void family(const std::string& name, const std::string& help, const char* type) {
    name_ = name;
    text_ += "# HELP " + name + ' ' + escaped(help, false) + "\n# TYPE " + name + ' ' + type + '\n';
  }

  /// `labels` are as label() gives them, with commas between.
  void sample(const std::string& labels, const std::string& value, const char* suffix = "") {
    text_ += name_;
    text_ += suffix;
    if (!labels.empty()) text_ += '{' + labels + '}';
    text_ += ' ' + value + '\n';
  }
  void sample(const std::string& labels, std::uint64_t value, const char* suffix = "") {
    sample(labels, std::to_string(value), suffix);
  }

  std::string take() { return std::move(text_); }

private:
  std::string text_;
  std::string name_;  // of the family that was begun
};

struct Described {
  unsigned counter;
  const char* name;
  const char* help;
};

const Described counters[] = {
    {Metrics::NOTIFICATIONS_IN, "json_rpc_notifications_received_total",
     "Notifications that were read."},
    {Metrics::NOTIFICATIONS_OUT, "json_rpc_notifications_sent_total",
     "Notifications that were queued, once for each receiver."},
    {Metrics::PARSE_FAILURES, "json_rpc_parse_failures_total", "Texts that were no JSON."},
    {Metrics::BAD_MESSAGES, "json_rpc_bad_messages_total",
     "JSON texts that were no message, messages over the limit, bad headers."},
    {Metrics::DROPPED_ANSWERS, "json_rpc_dropped_answers_total",
     "Answers of handlers to ids that awaited none."},
    {Metrics::NOTIFICATION_OVERRUNS, "json_rpc_notification_overruns_total",
     "Channels that were closed because they did not take their notifications."},
    {Metrics::RELAYS_BEGUN, "json_rpc_relays_begun_total",
     "Requests that were forwarded to an agent."},
    {Metrics::RELAYS_ENDED, "json_rpc_relays_ended_total",
     "Forwarded requests whose answer came back."},
    {Metrics::RELAYS_FAILED, "json_rpc_relays_failed_total",
     "Forwarded requests that the agent will not answer any more."},
    {Metrics::LINK_RETRIES, "json_rpc_link_retries_total",
     "Attempts to open a link again that had been down."},
    {Metrics::LATE_ANSWERS, "json_rpc_late_answers_total",
     "Answers of peers for which nobody waited."},
};
static_assert(sizeof counters / sizeof *counters == Metrics::COUNTERS);

const Described listener_counters[] = {
    {Metrics::BYTES_IN, "json_rpc_received_bytes_total", "Bytes that were read."},
    {Metrics::BYTES_OUT, "json_rpc_sent_bytes_total", "Bytes that were handed to the system."},
    {Metrics::OPENED, "json_rpc_connections_opened_total",
     "Connections that were accepted, or that links opened."},
    {Metrics::REFUSED, "json_rpc_connections_refused_total",
     "Connections that were not served, or that links could not open."},
    {Metrics::CLOSED, "json_rpc_connections_closed_total", "Connections that have ended."},
};
static_assert(sizeof listener_counters / sizeof *listener_counters == Metrics::LISTENER_COUNTERS);

void write_counters(Exposition& out, const Metrics& metrics, const Metrics::Sums& sums) {
  for (const Described& d : counters) {
    out.family(d.name, d.help, "counter");
    out.sample("", sums.get(static_cast<Metrics::Counter>(d.counter)));
  }
  for (const Described& d : listener_counters) {
    out.family(d.name, d.help, "counter");
    for (std::size_t i = 0; i < metrics.listeners().size(); ++i) {
      out.sample(label("listener", metrics.listeners()[i]),
                 sums.get(static_cast<Metrics::Listener_Counter>(d.counter), i));
    }
  }
}

std::string code_label(std::size_t index) {
  if (index == Metrics::RESULT) return label("code", "result");
  if (index == Metrics::OTHER_CODE) return label("code", "other");
  return label("code", std::to_string(Metrics::code_of(index)));
}

void write_answers(Exposition& out, const Metrics::Sums& sums) {
  out.family("json_rpc_answers_total",
             "Answers that were queued, results and errors by their code, those to text that was "
             "no message among them.",
             "counter");
  for (std::size_t i = 0; i < Metrics::CODES; ++i) {
    const int code = Metrics::code_of(i);
    const bool of_server = code <= -32000 && code >= -32099;
    if (!of_server || sums.answers(i) > 0) out.sample(code_label(i), sums.answers(i));
  }
}

void write_methods(Exposition& out, const Metrics& metrics, const Metrics::Sums& sums) {
  out.family("json_rpc_calls_total", "Requests that were read.", "counter");
  for (std::size_t m = 0; m < metrics.methods().size(); ++m) {
    out.sample(label("method", metrics.methods()[m]), sums.calls(m));
  }
  out.family("json_rpc_call_errors_total", "Requests that were answered with an error.", "counter");
  for (std::size_t m = 0; m < metrics.methods().size(); ++m) {
    out.sample(label("method", metrics.methods()[m]), sums.errors(m));
  }
}

void write_duration(Exposition& out, const std::string& method, std::size_t m,
                    const Metrics::Sums& sums) {
  std::uint64_t count = 0;
  for (std::size_t i = 0; i <= Metrics::BOUNDS; ++i) count += sums.within(m, i);
  if (count == 0) return;
  std::uint64_t so_far = 0;
  for (std::size_t i = 0; i < Metrics::BOUNDS; ++i) {
    so_far += sums.within(m, i);
    out.sample(method + ',' + label("le", in_seconds(Metrics::bounds[i])), so_far, "_bucket");
  }
  out.sample(method + ',' + label("le", "+Inf"), count, "_bucket");
  out.sample(method, in_seconds(sums.time(m)), "_sum");
  out.sample(method, count, "_count");
}

void write_durations(Exposition& out, const Metrics& metrics, const Metrics::Sums& sums) {
  out.family("json_rpc_call_duration_seconds",
             "Time from a request's arrival until its answer was queued.", "histogram");
  for (std::size_t m = 0; m < metrics.methods().size(); ++m) {
    write_duration(out, label("method", metrics.methods()[m]), m, sums);
  }
}

/// A reading that fails costs nobody the other ones.
void write_reading(Exposition& out, const Reading& reading) {
  double value;
  try {
    value = reading.read();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    VEXA_WARNING("'%C' cannot be read: %C\n", reading.name.c_str(), vexa::exception_text());
    return;
  }
  out.family(reading.name, reading.help, reading.type == Reading::COUNTER ? "counter" : "gauge");
  out.sample("", decimal(value));
}

}  // namespace

std::string prometheus_text(const Metrics& metrics, const std::vector<Reading>& readings) {
  const Metrics::Sums sums(metrics);
  Exposition out;
  write_methods(out, metrics, sums);
  write_answers(out, sums);
  write_durations(out, metrics, sums);
  write_counters(out, metrics, sums);
  for (const Reading& reading : readings) write_reading(out, reading);
  return out.take();
}

}  // namespace http
