#include "system/locale.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>
#include <locale.h>
#include <string_view>
#include <strings.h>

namespace {

const char* locale_name() {
    for (const char* const variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* const name = std::getenv(variable);
        if (name && *name) return name;
    }
    return "";
}

bool names_utf8(const char* name) {
    const char* const charset = std::strchr(name, '.');
    if (!charset) return false;
    for (const std::string_view spelling : {".UTF-8", ".UTF8"}) {
        if (strncasecmp(charset, spelling.data(), spelling.size()) == 0) return true;
    }
    return false;
}

bool find_utf8() {
    const locale_t user = newlocale(LC_CTYPE_MASK, "", locale_t{});
    if (!user) return names_utf8(locale_name());
    const bool utf8 = std::strcmp(nl_langinfo_l(CODESET, user), "UTF-8") == 0;
    freelocale(user);
    return utf8;
}

}  // namespace

bool kpe_utf8_locale() {
    static const bool utf8 = find_utf8();
    return utf8;
}

void kpe_enter_user_locale() {
    if (!std::setlocale(LC_CTYPE, "") && kpe_utf8_locale()) std::setlocale(LC_CTYPE, "C.UTF-8");
}

void kpe_leave_user_locale() { std::setlocale(LC_CTYPE, "C"); }
