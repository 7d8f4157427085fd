#pragma once

/// Marks what libvexa exports; everything else stays hidden.
#define VEXA_EXPORT __attribute__((visibility("default")))
