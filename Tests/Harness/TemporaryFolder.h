#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kelvane::tests {

// A private folder of the test, removed with its contents.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "kelvane-test-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("cannot create a temporary folder");
        path_ = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    std::string operator/(std::string_view name) const { return path_ + '/' + std::string(name); }

    // Creates missing folders, too. Returns the path.
    std::string write(std::string_view name, std::string_view contents) const {
        const std::filesystem::path file = *this / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << contents;
        return file;
    }
    // Creates a program that the user may run.
    std::string writeProgram(std::string_view name, std::string_view script) const {
        const std::string path = write(name, script);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path;
    }
    [[nodiscard]] std::string read(std::string_view name) const {
        std::ifstream file(*this / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] std::set<std::string> names() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_))
            names.insert(entry.path().filename());
        return names;
    }

private:
    std::string path_;
};

} // namespace kelvane::tests
