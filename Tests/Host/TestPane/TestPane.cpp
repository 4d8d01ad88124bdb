// A pane that logs all calls, one word per line, to the file that its bundle specifies as "Log". It throws at
// the step that the bundle specifies as "Fault", and ends the host at the step "Terminate".

#include "Platform/Desktop/PanePlugin.h"

#include <QWidget>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kelvane {
namespace {

class TestPane : public Pane {
public:
    TestPane(PaneHost& host, PaneBundle bundle) : host_(host), bundle_(std::move(bundle)), view_(*this) {
        step("made");
    }
    ~TestPane() override { log("deleted"); }

    void awakeFromNib() override { step("awake"); }
    void mainViewDidLoad() override { step("loaded"); }
    void didSelect() override { step("selected"); }
    void willUnselect() override { step("unselected"); }
    [[nodiscard]] QWidget* mainView() override { return setting("View") == "none" ? nullptr : &view_; }
    [[nodiscard]] std::vector<std::string> tabNames() const override {
        std::istringstream names(setting("Tabs"));
        return {std::istream_iterator<std::string>(names), {}};
    }
    bool selectTab(const std::string& name) override {
        log("tab " + name);
        return setting("Tabs").find(name) != std::string::npos;
    }

private:
    struct View : QWidget {
        explicit View(TestPane& owner) : pane(owner) {}
        void paintEvent(QPaintEvent*) override {
            if (!std::exchange(isPainted, true))
                pane.log("painted");
        }
        TestPane& pane;
        bool isPainted = false;
    };

    std::string setting(std::string_view key) const { return bundle_->information(key).stringValue(); }
    void log(const std::string& word) const {
        std::ofstream(setting("Log"), std::ios::app) << setting("CFBundleName") << ' ' << word << '\n';
    }
    void step(const std::string& name) {
        log(name);
        if (setting("Terminate") == name)
            host_.terminate();
        if (setting("Fault") == name)
            throw std::runtime_error("a fault on purpose");
        if (setting("Terminate") == name)
            log("went on");
    }

    PaneHost& host_;
    const PaneBundle bundle_;
    View view_;
};

} // namespace
} // namespace kelvane

const std::uint32_t kelvanePaneInterfaceVersion = kelvane::paneInterfaceVersion + OTHER_VERSION;

kelvane::Pane* kelvaneMakePane(kelvane::PaneHost& host, const kelvane::PaneBundle& bundle) {
    return new kelvane::TestPane(host, bundle);
}
