#include "Support/DamagedFile.h"

#include "Foundation/Format.h"
#include "Support/Logging.h"

#include <cerrno>
#include <cstdio>

namespace kelvane {

bool setAside(const std::string& path, const std::string& reason) {
    const std::string aside = path + ".damaged";
    const bool isAside = std::rename(path.c_str(), aside.c_str()) == 0;
    if (isAside)
        KelvaneSystemLog("%@ cannot be read (%@). It is set aside as %@, and a new one is begun.", path,
                         reason, aside);
    else
        KelvaneSystemLog("%@ can neither be read (%@) nor set aside (%@).", path, reason, errorText());
    return isAside;
}

} // namespace kelvane
