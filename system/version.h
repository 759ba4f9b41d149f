#pragma once

#include <string>

// The version of kpe, as VERSION, HELP and the usage text show it.

extern const int KPE_VERSION_MAJOR;
extern const int KPE_VERSION_MINOR;
extern const int KPE_VERSION_EDIT;
extern const char* const KPE_RELEASE_DATE;

// As in "V1.11-0".
std::string kpe_version_string();
// The version with its notice, and the release date, each with "\n".
std::string kpe_version_banner();
