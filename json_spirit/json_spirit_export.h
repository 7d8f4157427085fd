#pragma once

/// Marks what the library that contains the value tree exports; everything else stays hidden.
#define JSON_SPIRIT_EXPORT __attribute__((visibility("default")))
