#include "vexa/io_base.h"

IO_Base::~IO_Base() = default;
