#include <cstdlib>

#include "app/process.h"

void kpe_exit(int status) { std::exit(status); }
