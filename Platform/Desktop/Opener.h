#pragma once

#include <functional>
#include <memory>
#include <string>

namespace kelvane {

// Opens pages and files in whatever the user has chosen for them. Main thread only.
class Opener {
public:
    // Called from the event loop, at most once, with a text for the log or the user. Never after the opener
    // has gone.
    using Failure = std::function<void(const std::string& reason)>;

    Opener() = default;
    virtual ~Opener() = default;
    Opener(const Opener&) = delete;
    Opener& operator=(const Opener&) = delete;

    // A whole URL, such as "http://host/page"; one without a scheme is refused.
    virtual void openURL(const std::string& url, Failure failed) = 0;
    // An absolute path, of a file or a folder.
    virtual void openFile(const std::string& path, Failure failed) = 0;
};

// The desktop's own opener, a program that takes the URL or path as its one argument and ends with another
// status than 0 when it fails. Neither call waits for it, and what it has opened outlives this process.
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
