#include "LocalDaemon/Index/RepositoryFiles.h"

#include "Foundation/Format.h"
#include "Support/Logging.h"

#include <cerrno>
#include <cstdio>

namespace kelvane {
namespace {

void move(const std::string& from, const std::string& to) {
    if (std::rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT)
        logError("Cannot rename %@ to %@: %@", from, to, errorText());
}

} // namespace

void exchangeFile(const std::string& path, const std::string& previous, const std::string& present) {
    if (!previous.empty())
        move(path, path + '-' + previous);
    move(path + '-' + present, path);
}

} // namespace kelvane
