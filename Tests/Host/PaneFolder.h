#pragma once

#include "Tests/Harness/TemporaryFolder.h"

#include <map>

namespace kelvane::tests {

// A folder of bundles whose panes log all calls to one file.
class PaneFolder {
public:
    using Settings = std::map<std::string, std::string>;

    // Creates a bundle with these entries in its information dictionary. `code`: a plug-in or another file;
    // none when empty.
    std::string add(const std::string& name, const Settings& settings = {},
                    const std::string& code = TEST_PANE) const {
        const std::string bundle = name + ".prefPane/";
        std::string text = "<plist><dict><key>CFBundleName</key><string>" + name +
                           "</string><key>CFBundleExecutable</key><string>Code</string>"
                           "<key>Log</key><string>" +
                           (folder_ / "log") + "</string>";
        for (const auto& [key, value] : settings)
            text += "<key>" + key + "</key><string>" + value + "</string>";
        folder_.write(bundle + "Info.plist", text + "</dict></plist>");
        std::filesystem::create_directories(folder_ / (bundle + "PlugIns"));
        if (!code.empty())
            std::filesystem::create_symlink(code, folder_ / (bundle + "PlugIns/Code.so"));
        return folder_ / (name + ".prefPane");
    }
    // Returns the log on one line.
    [[nodiscard]] std::string log() const {
        std::string text = folder_.read("log");
        std::ranges::replace(text, '\n', ',');
        return text;
    }
    void forgetLog() const { std::filesystem::remove(folder_ / "log"); }
    [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }

private:
    const TemporaryFolder folder_;
};

} // namespace kelvane::tests
