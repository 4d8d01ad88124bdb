#include "Support/Preferences/DamagedFile.h"

#include "Foundation/Format.h"
#include "Support/Logging.h"

#include <cstdio>
#include <unistd.h>

namespace kelvane {
namespace {

// False with `errno`.
bool keep(const std::string& path, const std::string& aside, DamagedFile file) {
    if (file == DamagedFile::Remains) {
        ::unlink(aside.c_str());
        if (::link(path.c_str(), aside.c_str()) == 0)
            return true;
    }
    return std::rename(path.c_str(), aside.c_str()) == 0;
}

} // namespace

std::string setAside(const std::string& path, const std::string& reason, DamagedFile file) {
    const std::string aside = path + ".damaged";
    if (keep(path, aside, file)) {
        logError("%@ cannot be read (%@). It is set aside as %@, and a new one is begun.", path, reason,
                 aside);
        return {};
    }
    std::string failure = errorText();
    logError("%@ can neither be read (%@) nor set aside (%@).", path, reason, failure);
    return failure;
}

} // namespace kelvane
