#include "LocalDaemon/Restic/ResticNames.h"

#include "Foundation/CleanPath.h"
#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace kelvane {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";
constexpr std::size_t longestCharacter = 4;

// Adds the entries of the folder whose name looks like this in JSON.
void addMatches(std::vector<std::string>& paths, const std::string& folder, const std::string& nameInJson) {
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
        if (nameInResticJson(entry->path().filename().native()) == nameInJson)
            paths.push_back(entry->path().native());
}

} // namespace

std::string nameInResticJson(std::string_view name) {
    if (isUtf8(name))
        return std::string(name);
    std::string text;
    while (!name.empty()) {
        std::size_t length = 1;
        while (length <= std::min(longestCharacter, name.size()) && !isUtf8(name.substr(0, length)))
            ++length;
        const bool isCharacter = length <= std::min(longestCharacter, name.size());
        text += isCharacter ? name.substr(0, length) : replacement;
        name.remove_prefix(isCharacter ? length : 1);
    }
    return text;
}

bool mayHaveLostBytes(std::string_view nameInJson) {
    return nameInJson.find(replacement) != std::string_view::npos;
}

std::vector<std::string> pathsOnDisk(const std::string& pathInJson) {
    if (!mayHaveLostBytes(pathInJson))
        return {pathInJson};
    std::vector<std::string> paths{"/"};
    for (const std::string& name : pathComponents(pathInJson)) {
        if (name == "/")
            continue;
        std::vector<std::string> found;
        for (const std::string& folder : paths)
            if (mayHaveLostBytes(name))
                addMatches(found, folder, name);
            else
                found.push_back(withSeparator(folder) + name);
        paths = std::move(found);
    }
    std::erase_if(paths, [](const std::string& path) {
        std::error_code error;
        return !std::filesystem::exists(std::filesystem::symlink_status(path, error));
    });
    return paths;
}

void PlainListing::take(std::string_view line) {
    if (headerLines_ > 0) {
        --headerLines_;
        return;
    }
    if (next_ == items_.size()) {
        isSame_ = false;
        return;
    }
    std::string& path = items_[next_].path;
    if (lineCount_ > 0)
        path_ += '\n';
    path_ += line;
    if (++lineCount_ <= static_cast<std::size_t>(std::ranges::count(path, '\n')))
        return;
    if (path_ != path) {
        isSame_ = isSame_ && nameInResticJson(path_) == path;
        path = path_;
    }
    ++next_;
    path_.clear();
    lineCount_ = 0;
}

} // namespace kelvane
