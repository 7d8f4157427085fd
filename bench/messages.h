#pragma once

#include <string>

/// The texts that the benchmarks read and write.
namespace messages {

/// 68 bytes: an array of numbers to add.
std::string small_request();

/// An object of 20 members, about 1 KB.
std::string middle_request();

/// `objects` records of seven members, about 100 bytes each.
std::string large_request(unsigned int objects);

struct Named {
  const char* name;
  std::string text;
};

/// One of each: "68B", "1KB" and "1MB", which has 10,000 records.
const Named (&all())[3];

}  // namespace messages

/// Ends a benchmark that does not do what it is to measure.
[[noreturn]] void give_up(const char* what);
