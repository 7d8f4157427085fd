#pragma once

/// What the process ends with.
enum Exit_Status {
  EXIT_ANSWERED = 0,  ///< a result came, or nothing was asked for
  EXIT_ERROR = 1,     ///< the peer answered with an error
  EXIT_FAILED = 2     ///< the command line is wrong, or no answer came
};
