#pragma once

/// Ends a benchmark that does not do what it is to measure: says what failed, and errno where it is
/// set. Status 1.
[[noreturn]] void give_up(const char* what);
