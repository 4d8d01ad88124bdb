#include "Host/Panes/PaneLoading.h"

#include <dlfcn.h>
#include <exception>
#include <filesystem>

namespace kelvane::host {
namespace {

using MakePane = decltype(&kelvaneMakePane);

constexpr const char* installAgain = " Install it again.";

PaneLoading failure(std::string problem) {
    return {nullptr, std::move(problem)};
}

std::string otherVersion(std::uint32_t version) {
    return "It was built for another version of this program (" + std::to_string(version) + " instead of " +
           std::to_string(paneInterfaceVersion) + "). Install matching versions.";
}

// Returns why the bundle has no usable plug-in, without the bundle's path, which the page shows below.
std::string faultOf(const Bundle& bundle) {
    std::string error = bundle.error();
    const std::string folder = bundle.path() + '/';
    for (std::size_t place = 0; (place = error.find(folder, place)) != std::string::npos;)
        error.erase(place, folder.size());
    return error.empty() ? "Its bundle contains no plug-in." : "It is damaged: " + error + '.';
}

PaneLoading makePane(void* code, const PaneBundle& bundle, PaneHost& host) {
    const auto* const version =
        static_cast<const std::uint32_t*>(::dlsym(code, "kelvanePaneInterfaceVersion"));
    if (version == nullptr)
        return failure(std::string("Its plug-in is not a pane.") + installAgain);
    if (*version != paneInterfaceVersion)
        return failure(otherVersion(*version));
    const auto make = reinterpret_cast<MakePane>(::dlsym(code, "kelvaneMakePane"));
    std::unique_ptr<Pane> pane(make != nullptr ? make(host, bundle) : nullptr);
    if (!pane || pane->mainView() == nullptr)
        return failure(std::string("Its plug-in did not create a pane.") + installAgain);
    return {std::move(pane), {}};
}

} // namespace

PaneLoading loadPane(const PaneBundle& bundle, PaneHost& host) {
    std::error_code ignored;
    if (!std::filesystem::is_directory(bundle->path(), ignored))
        return failure("There is no such folder. Check the path, or install the pane again.");
    const std::optional<std::string> plugIn = bundle->plugInPath();
    if (!plugIn)
        return failure(faultOf(*bundle) + installAgain);
    // Never unloaded: the plug-in's registrations with the toolkit would dangle.
    void* const code = ::dlopen(plugIn->c_str(), RTLD_NOW | RTLD_LOCAL);
    if (code == nullptr)
        return failure(std::string("Its plug-in cannot be loaded: ") + ::dlerror() + '.' + installAgain);
    try {
        return makePane(code, bundle, host);
    } catch (const std::exception& error) {
        return failure(std::string("It could not start: ") + error.what() + '.');
    }
}

} // namespace kelvane::host
