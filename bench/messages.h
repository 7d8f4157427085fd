#pragma once

#include <string>

/// The texts that the benchmarks read and write.
namespace messages {

struct Named {
  const char* name;
  std::string text;
};

/// Requests: "68B", an array of numbers to add; "1KB", an object of 20 members; "1MB", 10,000
/// records of seven members.
const Named (&all())[3];

}  // namespace messages
