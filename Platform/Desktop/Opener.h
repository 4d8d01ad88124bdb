#pragma once

#include <functional>
#include <memory>
#include <string>

namespace kelvane {

// Opens web pages and files in the applications that the user has chosen. Main thread only.
class Opener {
public:
    // Called from the event loop at most once, with a reason for the log or the user. Never called after the
    // opener is destroyed.
    using Failure = std::function<void(const std::string& reason)>;

    Opener() = default;
    virtual ~Opener() = default;
    Opener(const Opener&) = delete;
    Opener& operator=(const Opener&) = delete;

    // A complete URL, such as "http://host/page"; one without a scheme is refused.
    virtual void openURL(const std::string& url, Failure failed) = 0;
    // An absolute path of a file or folder.
    virtual void openFile(const std::string& path, Failure failed) = 0;
};

// The desktop's opener: a program that takes the URL or path as its only argument and exits with a status
// other than 0 on failure. Calls do not wait for it, and the opened program outlives this process.
class DesktopOpener : public Opener {
public:
    explicit DesktopOpener(std::string program = "xdg-open");
    ~DesktopOpener() override;

    void openURL(const std::string& url, Failure failed) override;
    void openFile(const std::string& path, Failure failed) override;

private:
    class Children;

    void open(const std::string& subject, Failure failed);

    const std::string program_;
    const std::unique_ptr<Children> children_;
};

} // namespace kelvane
