#include "system/version.h"

#include <array>
#include <cstdio>

const int KPE_VERSION_MAJOR = 1;
const int KPE_VERSION_MINOR = 11;
const int KPE_VERSION_EDIT = 0;
const char* const KPE_RELEASE_DATE = "2026-09-11";

std::string kpe_version_string() {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "V%d.%02d-%d", KPE_VERSION_MAJOR, KPE_VERSION_MINOR, KPE_VERSION_EDIT);
    return text.data();
}

std::string kpe_version_banner() {
    return kpe_version_string() + "       Copyright (c) 2026 the kpe authors\nRelease date: " + KPE_RELEASE_DATE + "\n";
}
