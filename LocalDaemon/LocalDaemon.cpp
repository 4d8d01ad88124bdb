#include "LocalDaemon/LocalDaemon.h"

#include "LocalDaemon/DaemonTarget.h"
#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace kelvane {
namespace {

bool haveSamePlaces(const Volumes& left, const Volumes& right) {
    return std::ranges::equal(left.all(), right.all(), {}, &Volume::mountPoint, &Volume::mountPoint);
}

} // namespace

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
    // Before anybody can change the rules.
    scan_.emplace(
        state_->rules(), [state = state_](const ScanReport& report) { state->takeReport(report); },
        options_.scan);
    state_->setRulesListener([this](const DaemonState::Rules& rules) { scan_->setRules(rules); });
    if (!server_->listen(options_.socketPath))
        return "Cannot listen at " + options_.socketPath + ": " + std::generic_category().message(errno);
    scan_->start();
    refresh_ = loop_->schedule(options_.refreshInterval, MainLoop::Repeat::Always, [this] { refresh(); });
    KelvaneCLog("Serving %@ at %@.", options_.home, options_.socketPath);
    return {};
}

void LocalDaemon::stop() {
    refresh_.stop();
    if (state_) {
        state_->setObserver({});
        state_->setRulesListener({});
        nodes_->stop();
    }
    if (scan_)
        scan_->stop();
    if (server_)
        server_->stop();
    scan_.reset();
    server_.reset();
    nodes_.reset();
    state_.reset();
    claim_.reset(); // last: until now nobody else may serve here
}

void LocalDaemon::makeWorld() {
    volumes_ = options_.fileSystem->volumes();
    const auto store = std::make_shared<SettingsStore>(options_.settingsPath);
    Settings settings = store->load();
    state_ = std::make_shared<DaemonState>(
        readConfiguration(options_.configurationPath, options_.home, *volumes_), std::move(settings),
        std::make_unique<NothingBackedUp>(),
        [store](const Settings& changed, std::uint64_t version) { return store->save(changed, version); },
        options_.clock);
    nodes_ = std::make_shared<NodeAnswers>(state_, options_.fileSystem);
    const DaemonTarget::World world{state_, options_.fileSystem, nodes_, terminate_};
    const auto makeTarget = [world](const std::shared_ptr<CallbackQueue>& pane) {
        return std::make_shared<DaemonTarget>(world, pane);
    };
    server_ = std::make_shared<PaneServer>(loop_, makeTarget,
                                           PaneServer::Options{options_.fileSystem, options_.sendTimeout});
    state_->setObserver(server_);
}

void LocalDaemon::refresh() {
    state_->refresh();
    // What is mounted over a watched folder is not told as a change of it.
    const auto volumes = options_.fileSystem->volumes();
    if (!haveSamePlaces(*std::exchange(volumes_, volumes), *volumes))
        scan_->lookAtEverything();
}

} // namespace kelvane
