#pragma once

namespace CLI {
class App;
}

/// Gives the program what --help says around the options, and how it sets them.
void describe_program(CLI::App& app);
