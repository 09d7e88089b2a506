#include "base/user_folder.h"

#include <cstdlib>

#include <pwd.h>
#include <unistd.h>

namespace vimbo {

std::string UserFolder(const char* variable, const char* below)
{
    const char* named = std::getenv(variable);
    if (named != nullptr && named[0] == '/')
        return named;
    const char* home = std::getenv("HOME");
    if (home == nullptr || home[0] != '/') {
        const passwd* user = ::getpwuid(::geteuid());
        home = user != nullptr ? user->pw_dir : nullptr;
    }
    return home == nullptr ? std::string() : std::string(home) + '/' + below;
}

} // namespace vimbo
