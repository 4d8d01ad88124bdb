#include "Tools/kelvanectl/Arguments/PathArgument.h"

#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "Platform/SymbolicLinks.h"
#include "Tools/kelvanectl/Arguments/CommandLine.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <filesystem>

namespace kelvane::ctl {
namespace {

std::string folderAround(const std::string& path, const Volumes& volumes) {
    return deleteLastPathComponent(withoutLinks(volumes.realPath(path).value_or(path)));
}

bool isThere(const std::optional<std::string>& path) {
    std::error_code error;
    return path && std::filesystem::exists(std::filesystem::symlink_status(*path, error));
}

std::string wholePath(const std::string& text, const Volumes& volumes) {
    if (text.empty())
        throw CLI::ValidationError("PATH", "the path is empty");
    std::string path = isAbsolutePath(text) ? "/" : std::filesystem::current_path().string();
    for (const std::string& name : pathComponents(text)) {
        if (name == "..")
            path = folderAround(path, volumes);
        else if (name != ".")
            path = appendPathComponent(path, name);
    }
    return path;
}

} // namespace

std::string volumePathFromText(const std::string& text, const Volumes& volumes) {
    const std::string path = wholePath(text, volumes);
    const bool isPrintedForm = pathFromText(path) != path && !isThere(volumes.realPath(path));
    return volumes.volumePath(isPrintedForm ? path : textFromPath(path));
}

std::string shownPath(const std::string& volumePath) {
    static const Volumes volumes = Volumes::current();
    return printableName(volumes.realPath(volumePath).value_or(volumePath));
}

PathReadings pathReadings(const std::string& text, const Volumes& volumes) {
    const std::string path = wholePath(text, volumes);
    PathReadings readings{volumes.volumePath(textFromPath(path)), std::nullopt};
    if (pathFromText(path) != path)
        readings.asPrinted = volumes.volumePath(path);
    return readings;
}

} // namespace kelvane::ctl
