#include "Host/Panes/PaneBundles.h"

#include "Platform/SpecialFolders.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <set>
#include <sstream>

namespace kelvane::host {
namespace {

constexpr const char* bundleType = ".prefPane";
constexpr const char* sharedFolder = "/kelvane/PreferencePanes";
constexpr int belowAllOthers = std::numeric_limits<int>::max();
constexpr const char* usualDataFolders = "/usr/local/share:/usr/share";

std::vector<std::string> systemDataFolders() {
    const char* const named = std::getenv("XDG_DATA_DIRS");
    std::istringstream list(named != nullptr && *named != '\0' ? named : usualDataFolders);
    std::vector<std::string> folders;
    for (std::string folder; std::getline(list, folder, ':');)
        if (folder.starts_with('/'))
            folders.push_back(folder);
    return folders;
}

std::vector<std::string> bundlesIn(const std::string& folder) {
    std::vector<std::string> bundles;
    std::error_code error; // a missing folder contains none
    std::filesystem::directory_iterator entry(folder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        std::error_code ignored;
        if (entry->path().extension() == bundleType && entry->is_directory(ignored))
            bundles.push_back(entry->path());
    }
    std::ranges::sort(bundles);
    return bundles;
}

// Bundles with the same result are the same pane: the identifier, or the path if there is none.
std::string identifierOf(const Bundle& bundle) {
    const std::string identifier = bundle.information("CFBundleIdentifier").stringValue();
    return identifier.empty() ? bundle.path() : identifier;
}

} // namespace

std::vector<std::string> paneFolders(const std::string& programFolder) {
    // The folders of a build, of an installation, of the user, and of packages.
    std::vector<std::string> folders{programFolder + "/Bundles", programFolder + "/../share" + sharedFolder,
                                     dataFolder() + sharedFolder};
    for (const std::string& folder : systemDataFolders())
        folders.push_back(folder + sharedFolder);
    return folders;
}

PaneDescription describePane(const std::string& path, const DaemonPaths& daemon) {
    auto bundle = std::make_shared<const Bundle>(path);
    std::string socket = daemon.socket;
    if (socket.empty() && bundle->information("DaemonPath").stringValue().empty())
        socket = defaultDaemonPath().value_or("");
    Dictionary information;
    if (!socket.empty())
        information.append("DaemonPath", socket);
    if (!daemon.log.empty())
        information.append("Kelvane Log Path", daemon.log);
    else if (bundle->information("Kelvane Log Path").stringValue().empty())
        information.append("Kelvane Log Path", defaultLogPath());
    bundle = std::make_shared<const Bundle>(path, information);

    PaneDescription pane;
    pane.title = bundle->localizedString("CFBundleName", bundle->information("CFBundleName").stringValue(),
                                         "InfoPlist");
    if (pane.title.empty())
        pane.title = std::filesystem::path(path).stem();
    pane.icon =
        bundle->resourcePath(bundle->information("CFBundleIconFile").stringValue(), "svg").value_or("");
    pane.order = bundle->plugInPath() ? bundle->information("PaneOrder").int32Value() : belowAllOthers;
    pane.bundle = std::move(bundle);
    return pane;
}

std::vector<PaneDescription> findPanes(const std::vector<std::string>& folders, const std::string& first,
                                       const DaemonPaths& daemon) {
    std::vector<PaneDescription> panes;
    std::set<std::string> identifiers;
    const auto add = [&](const std::string& path) {
        PaneDescription pane = describePane(path, daemon);
        if (identifiers.insert(identifierOf(*pane.bundle)).second)
            panes.push_back(std::move(pane));
    };
    if (!first.empty())
        add(first);
    const auto firstCount = static_cast<std::ptrdiff_t>(panes.size());
    for (const std::string& folder : folders)
        for (const std::string& path : bundlesIn(folder))
            add(path);
    std::stable_sort(panes.begin() + firstCount, panes.end(), [](const auto& left, const auto& right) {
        return std::pair(left.order, left.title) < std::pair(right.order, right.title);
    });
    return panes;
}

} // namespace kelvane::host
