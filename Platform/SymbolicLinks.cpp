#include "Platform/SymbolicLinks.h"

#include <filesystem>
#include <system_error>

namespace kelvane {

std::string withoutLinks(const std::string& path) {
    std::error_code error;
    const std::filesystem::path resolved = std::filesystem::weakly_canonical(path, error);
    return error ? path : resolved.string();
}

} // namespace kelvane
