#include "Host/Options.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <filesystem>
#include <map>

namespace kelvane::host {
namespace {

const std::map<std::string, AuthorizationChoice> authorizations{{"polkit", AuthorizationChoice::Polkit},
                                                                {"granted", AuthorizationChoice::Granted},
                                                                {"denied", AuthorizationChoice::Denied}};
const std::map<std::string, Appearance> appearances{
    {"system", Appearance::System}, {"light", Appearance::Light}, {"dark", Appearance::Dark}};

// A pane may change the working directory, and a bundle is identified by its path.
void makeAbsolute(std::string& path) {
    if (!path.empty())
        path = std::filesystem::absolute(path).lexically_normal();
    if (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
}

} // namespace

std::variant<Options, int> readOptions(int argc, const char* const* argv) {
    Options options;
    CLI::App app("The settings of Kelvane: a list of panes and the selected pane.");
    app.set_version_flag("--version", "kelvane-settings " KELVANE_VERSION, "Show the program's version");
    app.add_option("--pane", options.pane, "The bundle of a pane to show")->type_name("DIR");
    app.add_option("--daemon", options.daemon, "The daemon's socket (default: the one that the pane names)")
        ->type_name("SOCKET");
    app.add_option("--log", options.log, "That daemon's log file (default: the one that the pane names)")
        ->type_name("FILE");
    app.add_option("--authorization", options.authorization,
                   "How changes are authorized: polkit, or for a trial run granted or denied")
        ->transform(CLI::Transformer(authorizations).description(""))
        ->type_name("WHO");
    app.add_option("--tab", options.tab, "The tab to show")->type_name("NAME");
    app.add_option("--screenshot", options.screenshotFolder,
                   "Folder for a screenshot of each tab; exit when they are saved")
        ->type_name("DIR");
    app.add_option("--appearance", options.appearance, "system, light or dark")
        ->transform(CLI::Transformer(appearances).description(""))
        ->type_name("NAME");
    app.add_flag("--end-when-painted", options.endsWhenPainted,
                 "Exit once the window is painted, before a pane is loaded, to measure the start-up time");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    for (std::string* const path : {&options.pane, &options.daemon, &options.log, &options.screenshotFolder})
        makeAbsolute(*path);
    return options;
}

} // namespace kelvane::host
