#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

/// Binds a process, and what it starts from now on, to one core; 0 is the calling process.
void pin(pid_t process, int core);

/// The CPU time that a process has taken so far, of all its threads; 0 is the calling process.
double cpu_seconds(pid_t process);

/// A line of a table, and how each of its figures is measured: the floor's, ours, and another's
/// where the table has one.
struct Row {
  std::string name;
  std::vector<std::function<double()>> sides;
};

/// A table that is printed while it is measured.
class Side_By_Side {
public:
  /// Whether less or more of the figures is better. The table says it in one way: which part of the
  /// floor's speed the others have.
  enum Better { LESS, MORE };

  /// @param head what the names are, and the unit of the figures
  /// @param other who is beside ours; empty: nobody
  Side_By_Side(const std::string& head, Better better, const std::string& other = "");

  /// Prints the medians of each row. All sides of all rows are measured in turn, so that noise
  /// meets them alike.
  void measure(const std::vector<Row>& rows, unsigned int rounds) const;

private:
  const Better better_;
};
