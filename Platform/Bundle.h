#pragma once

#include "Foundation/Value.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

// A bundle folder: its information dictionary, string tables and files.
//
//   Info.plist                          the information dictionary
//   PlugIns/<CFBundleExecutable>.so     the code, where it has some
//   Helpers/<name>                      auxiliary programs
//   Resources/<name>.<type>             resources
//   Resources/en.lproj/<table>.strings  string tables
//
// All texts are read once, in the constructor, and are immutable: any thread may read them. Property lists
// are XML or binary. A file that cannot be read counts as empty, and `error` says why.
class Bundle {
public:
    // `overrides` are added to the information dictionary and replace its entries.
    explicit Bundle(std::string path, const Dictionary& overrides = {});
    // Creates a bundle with an information dictionary only: for programs without a bundle folder, and for
    // tests.
    explicit Bundle(Value information);

    // One line for each file that could not be read; empty when there was no error.
    [[nodiscard]] const std::string& error() const { return error_; }
    // Empty for a bundle without a folder.
    [[nodiscard]] const std::string& path() const { return path_; }

    [[nodiscard]] const Value& information(std::string_view key) const { return information_[key]; }

    // `fallback` when the table does not have the key.
    [[nodiscard]] std::string localizedString(std::string_view key, std::string_view fallback,
                                              std::string_view table = "Localizable") const;

    // None when there is no such file. `type` is the extension without its dot and may be empty.
    [[nodiscard]] std::optional<std::string> resourcePath(std::string_view name, std::string_view type) const;
    // None when the dictionary names no code, or there is no such file.
    [[nodiscard]] std::optional<std::string> plugInPath() const;
    // None when there is no such file or it cannot be executed.
    [[nodiscard]] std::optional<std::string> auxiliaryExecutable(std::string_view name) const;

private:
    [[nodiscard]] Value readDictionary(const std::string& file);
    void readStringTables();

    std::string path_;
    Value information_;
    std::map<std::string, Value, std::less<>> stringTables_;
    std::string error_;
};

} // namespace kelvane
