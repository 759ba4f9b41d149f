#pragma once

// Writes the usage text to standard error, for the program name argv0 ("kpe" if it is null or empty).
void print_usage(const char* argv0);
