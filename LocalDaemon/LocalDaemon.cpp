#include "LocalDaemon/LocalDaemon.h"

#include "LocalDaemon/DaemonTarget.h"
#include "Support/Logging.h"

#include <cerrno>
#include <system_error>

namespace kelvane {

LocalDaemon::LocalDaemon(Options options, std::shared_ptr<MainLoop> loop, std::function<void()> terminate)
    : options_(std::move(options)), loop_(std::move(loop)), terminate_(std::move(terminate)) {}

LocalDaemon::~LocalDaemon() {
    stop();
}

std::string LocalDaemon::start() {
    claim_.emplace(options_.socketPath);
    if (!claim_->refusal().empty())
        return claim_->refusal();
    makeWorld();
    if (!server_->listen(options_.socketPath))
        return "Cannot listen at " + options_.socketPath + ": " + std::generic_category().message(errno);
    scan_.emplace(
        options_.home, [state = state_](const ScanReport& report) { state->takeReport(report); },
        options_.scan);
    scan_->start();
    refresh_ = loop_->schedule(options_.refreshInterval, MainLoop::Repeat::Always,
                               [state = state_] { state->refresh(); });
    KelvaneCLog("Serving %@ at %@.", options_.home, options_.socketPath);
    return {};
}

void LocalDaemon::stop() {
    refresh_.stop();
    if (state_)
        state_->setObserver({});
    if (scan_)
        scan_->stop();
    if (server_)
        server_->stop();
    scan_.reset();
    server_.reset();
    state_.reset();
    claim_.reset(); // last: until now nobody else may serve here
}

void LocalDaemon::makeWorld() {
    const auto store = std::make_shared<SettingsStore>(options_.settingsPath);
    Settings settings = store->load();
    state_ = std::make_shared<DaemonState>(
        readConfiguration(options_.configurationPath), std::move(settings),
        std::make_unique<NothingBackedUp>(),
        [store](const Settings& changed, std::uint64_t version) { return store->save(changed, version); },
        options_.clock);
    const auto makeTarget = [state = state_,
                             terminate = terminate_](const std::shared_ptr<CallbackQueue>& pane) {
        return std::make_shared<DaemonTarget>(state, pane, terminate);
    };
    server_ = std::make_shared<PaneServer>(loop_, makeTarget,
                                           PaneServer::Options{options_.home, options_.sendTimeout});
    state_->setObserver(server_);
}

} // namespace kelvane
