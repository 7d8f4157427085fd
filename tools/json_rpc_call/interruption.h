#pragma once

/// From now on SIGINT and SIGTERM end the process with `status`, between two lines of output; a
/// second one ends it by the signal. Called before there are other threads.
void leave_when_interrupted(int status);
