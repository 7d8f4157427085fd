#pragma once

/// Creates what the library keeps once a process. Called before there are threads.
void create_registries();
