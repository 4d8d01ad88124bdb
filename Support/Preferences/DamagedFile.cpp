#include "Support/Preferences/DamagedFile.h"

#include "Foundation/Format.h"
#include "Support/Logging.h"

#include <cstdio>
#include <unistd.h>

namespace kelvane {
namespace {

// Returns false with `errno` set on failure.
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
        logError("%@ cannot be read (%@). It is kept as %@, and a new one will be written.", path, reason,
                 aside);
        return {};
    }
    std::string failure = errorText();
    logError("%@ can neither be read (%@) nor set aside (%@).", path, reason, failure);
    return failure;
}

} // namespace kelvane
