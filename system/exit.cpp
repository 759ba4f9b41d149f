#include <cstdlib>

#include "system/process.h"

void kpe_exit(int status) { std::exit(status); }
