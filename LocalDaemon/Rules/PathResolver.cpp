#include "LocalDaemon/Rules/PathResolver.h"

#include "Foundation/CleanPath.h"
#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "Platform/SymbolicLinks.h"

#include <algorithm>

namespace kelvane {
namespace {

bool isSelfOrParent(const std::string& component) {
    return component == "." || component == "..";
}

} // namespace

std::optional<std::string> PathResolver::realPath(std::string_view text) const {
    const std::string path = pathFromText(text);
    if (!isAbsolutePath(path) || std::ranges::any_of(pathComponents(path), isSelfOrParent))
        return std::nullopt;
    return volumes_->realPath(path);
}

std::optional<std::string> PathResolver::pathWithoutLinks(std::string_view text) {
    const std::optional<std::string> real = realPath(text);
    if (!real || *real == "/")
        return real;
    const std::string_view folder = folderOf(*real);
    if (folder != lastFolder_) {
        lastFolder_ = folder;
        lastFolderWithoutLinks_ = withoutLinks(lastFolder_);
    }
    return appendPathComponent(lastFolderWithoutLinks_, lastPathComponent(*real));
}

} // namespace kelvane
