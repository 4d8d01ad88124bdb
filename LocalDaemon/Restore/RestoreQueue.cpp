#include "LocalDaemon/Restore/RestoreQueue.h"

#include "Common/RestoreStatus.h"
#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "LocalDaemon/Restore/RestorePlan.h"
#include "LocalDaemon/Restore/RestoreTrouble.h"
#include "LocalDaemon/Restore/Staging/RestoreAccess.h"
#include "Support/Logging.h"
#include "Support/MessageLine.h"

#include <algorithm>

namespace kelvane {
namespace {

constexpr std::size_t mostQueued = 20'000;
constexpr std::size_t mostEnded = 10'000;
constexpr std::size_t mostBytesOfEnded = std::size_t{16} << 20U;
constexpr const char* beingListed = "The repository is being listed.";
constexpr const char* failuresDropped = "the log lists the failures";
// Jobs are run in batches, since each restic call takes half a second; the limit keeps the first jobs of
// a batch from waiting too long for the last.
constexpr std::size_t mostInBatch = 500;
constexpr std::uint64_t mostBytesInBatch = std::uint64_t{1} << 30U;

bool goesBefore(const RestoreJob& left, const RestoreJob& right) {
    return left.priority != right.priority ? left.priority > right.priority : left.id < right.id;
}

bool isIn(std::string_view path, const std::string& folder) {
    return path == folder || path.starts_with(withSeparator(folder));
}

bool overlaps(const std::vector<RestoreJob>& jobs, const RestoreJob& job) {
    return std::ranges::any_of(jobs, [&](const RestoreJob& each) {
        return isIn(job.source, each.source) || isIn(each.source, job.source);
    });
}

// An unknown number counts as one.
std::uint64_t filesOf(const RestoreJob& job, const BackupIndex* index) {
    const BackupIndex::Item* const item = index ? index->find(job.source) : nullptr;
    return item ? std::max<std::uint64_t>(lastTotals(*index, *item).count, 1) : 1;
}

} // namespace

std::vector<std::chrono::milliseconds> RestoreQueue::usualWaits() {
    using std::chrono::seconds;
    return {seconds(2),  seconds(5),  seconds(10), seconds(20),  seconds(40),
            seconds(60), seconds(90), seconds(90), seconds(120), seconds(120)};
}

RestoreQueue::RestoreQueue(Options options) : options_(std::move(options)), journal_(options_.journalPath) {}

RestoreQueue::~RestoreQueue() {
    stop();
}

void RestoreQueue::start() {
    raiseDescriptorLimit();
    RestoreJournal::Contents contents = journal_.open();
    if (!contents.damage.empty())
        options_.onDamagedJournal(options_.journalPath + ": " + contents.damage +
                                  ". Restore again what is missing.");
    const std::scoped_lock guard(mutex_);
    nextId_ = contents.nextId;
    for (auto& [id, ended] : contents.ended)
        keep(id, std::move(ended));
    std::ranges::sort(contents.waiting, goesBefore);
    for (RestoreJob& job : contents.waiting)
        queue_.push_back({std::move(job)});
    report();
    thread_ = std::thread([this, left = std::move(contents)] {
        runGuarded("cleaning up after an interrupted restore", options_.failed, [&] { removeLeft(left); });
        work();
    });
}

void RestoreQueue::stop() {
    {
        const std::scoped_lock guard(mutex_);
        stopping_.set();
        if (batchStop_)
            batchStop_->set();
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

void RestoreQueue::wake() {
    const std::scoped_lock guard(mutex_);
    changed_.notify_all();
}

std::uint32_t RestoreQueue::add(RestoreJob job) {
    job.target = targetWithoutLinks(job.target);
    bool isRoom = false;
    {
        const std::scoped_lock guard(mutex_);
        isRoom = queue_.size() < mostQueued;
        job.id = nextId_++;
    }
    if (!isRoom)
        return refuse(job.source + " cannot be restored: there are too many restore jobs");
    if (!isCleanPath(job.source) || !isCleanPath(job.target))
        return refuse(job.source + " cannot be restored: its paths are not absolute and clean");
    if (const std::string failure = journal_.add(job); !failure.empty())
        options_.onJobNotSaved(messageLine(failure));
    const std::scoped_lock guard(mutex_);
    const auto place = std::ranges::find_if(
        queue_, [&](const QueuedJob& each) { return !each.isRunning && goesBefore(job, each.job); });
    const std::uint64_t files = filesOf(job, options_.index().get());
    queue_.insert(place, {job, files});
    report();
    changed_.notify_all();
    return job.id;
}

std::uint32_t RestoreQueue::refuse(const std::string& reason) {
    logError("Restore refused: %@", reason);
    const std::string line = messageLine(reason);
    options_.onRefusal(line);
    const std::scoped_lock guard(mutex_);
    refusal_ = line;
    return 0;
}

void RestoreQueue::cancelAll() {
    std::unique_lock lock(mutex_);
    if (batchStop_)
        batchStop_->set();
    endAll(lock, restorestatus::cancelled, {});
}

void RestoreQueue::endAll(std::unique_lock<std::mutex>& lock, std::uint32_t status,
                          const std::string& reason) {
    std::vector<std::pair<std::uint32_t, RestoreJournal::Ended>> all;
    while (!queue_.empty()) {
        const RestoreJob job = queue_.front().job;
        all.push_back({job.id, {status, {}}});
        if (!reason.empty()) {
            failures_.push_back({job.source, reason});
            all.back().second.failures = {messageLine(job.source + ": " + reason)};
        }
        end(job.id, all.back().second);
    }
    if (!all.empty())
        reportEnd();
    changed_.notify_all();
    lock.unlock();
    for (const auto& [id, ended] : all)
        journal_.end(id, ended);
    lock.lock();
}

std::uint32_t RestoreQueue::currentJob() const {
    const std::scoped_lock guard(mutex_);
    return firstJob();
}

std::uint32_t RestoreQueue::status(std::uint32_t id) const {
    const std::scoped_lock guard(mutex_);
    const auto queued = std::ranges::find(queue_, id, [](const QueuedJob& each) { return each.job.id; });
    if (queued != queue_.end())
        return queued->isRunning || id == firstJob() ? restorestatus::running : restorestatus::waiting;
    const auto ended = ended_.find(id);
    return ended == ended_.end() ? restorestatus::unknown : ended->second.status;
}

std::string RestoreQueue::failures(std::uint32_t id) const {
    const std::scoped_lock guard(mutex_);
    std::string text = id == 0 && !refusal_.empty() ? refusal_ + '\n' : "";
    if (const auto ended = ended_.find(id); ended != ended_.end())
        for (const std::string& failure : ended->second.failures)
            text += failure + '\n';
    return text;
}

void RestoreQueue::removeLeft(const RestoreJournal::Contents& left) {
    for (const auto& [folder, mode] : left.accessGiven)
        if (endAccess(folder, mode))
            journal_.accessEnded(folder);
    for (const std::string& folder : left.stagingFolders)
        if (!stopping_.isSet())
            removeJournaledStaging(journal_, folder, &stopping_);
}

void RestoreQueue::work() {
    std::unique_lock lock(mutex_);
    std::shared_ptr<const BackupIndex> index;
    while (waitForWork(lock, index)) {
        const std::vector<RestoreJob> jobs = takeBatch(*index);
        batchStop_ = std::make_shared<StopSignal>();
        report();
        lock.unlock();
        runGuarded(
            "restoring", [&](const std::string& reason) { failBatch(jobs, reason); },
            [&] { runBatch(jobs, index); });
        lock.lock();
    }
}

bool RestoreQueue::waitForWork(std::unique_lock<std::mutex>& lock,
                               std::shared_ptr<const BackupIndex>& index) {
    const auto isOver = [&] {
        index = queue_.empty() ? nullptr : options_.index();
        return stopping_.isSet() || index != nullptr;
    };
    std::size_t turns = 0;
    std::size_t troubles = 0;
    while (!isOver()) {
        if (queue_.empty() || options_.waits.empty()) {
            turns = troubles = 0;
            changed_.wait(lock);
            continue;
        }
        const auto pause = options_.waits[std::min(turns++, options_.waits.size() - 1)];
        if (changed_.wait_for(lock, pause, isOver) || queue_.empty())
            continue;
        lock.unlock();
        const std::string trouble = troubleWithBackup();
        options_.onWait(trouble.empty() ? beingListed : trouble);
        lock.lock();
        if (!trouble.empty() && !stopping_.isSet() && ++troubles == options_.waits.size())
            endAll(lock, restorestatus::incomplete, trouble);
    }
    if (turns > 0)
        options_.onWait({});
    return !stopping_.isSet();
}

// Asks restic, since the thread that lists the repository may be busy, or wait for the repository itself.
std::string RestoreQueue::troubleWithBackup() const {
    Restic::Call call;
    call.arguments = {"cat", "config", "--no-lock"};
    const ResticOutcome outcome = options_.restic->run(call, stopping_);
    if (stopping_.isSet())
        return {};
    const std::string reason =
        outcome.succeeded() ? options_.askForIndex() : restoreTroubleFor(outcome).reason;
    if (!reason.empty())
        logWarning("Restore delayed until the repository has been listed: %@", reason);
    return reason;
}

std::vector<RestoreJob> RestoreQueue::takeBatch(const BackupIndex& index) {
    std::vector<RestoreJob> jobs;
    std::uint64_t bytes = 0;
    for (QueuedJob& each : queue_) {
        const BackupIndex::Item* const item = index.find(each.job.source);
        each.files = filesOf(each.job, &index);
        bytes += item ? lastTotals(index, *item).bytes : 0;
        if (!jobs.empty() &&
            (jobs.size() == mostInBatch || bytes > mostBytesInBatch || overlaps(jobs, each.job)))
            break;
        jobs.push_back(each.job);
        each.isRunning = true;
    }
    return jobs;
}

void RestoreQueue::runBatch(const std::vector<RestoreJob>& jobs,
                            const std::shared_ptr<const BackupIndex>& index) {
    const auto onArrival = [this](const Arrival& arrival) {
        const std::scoped_lock guard(mutex_);
        arrival_ = arrival;
        report();
    };
    RestoreRun run({options_.restic, index, journal_, *batchStop_, onArrival, options_.waits,
                    options_.refusal, options_.onWait, options_.freeSpace});
    std::vector<RestoreRun::Failures> failures = run.run(jobs);
    const std::set<std::uint32_t> repeated =
        batchStop_->isSet() ? std::set<std::uint32_t>() : takeRepeated(jobs, failures, index);
    if (!repeated.empty())
        options_.onSnapshotGone();
    std::map<std::uint32_t, RestoreJournal::Ended> ended;
    for (std::size_t number = 0; number < jobs.size() && !batchStop_->isSet(); ++number) {
        if (repeated.contains(jobs[number].id))
            continue;
        const auto done = ended.emplace(jobs[number].id, RestoreJournal::Ended::with(failures[number])).first;
        journal_.end(done->first, done->second);
        for (const RestoreFailure& failure : failures[number])
            logError("Not restored: %@: %@", failure.path, failure.reason);
    }
    const std::scoped_lock guard(mutex_);
    const bool wasStopped = batchStop_->isSet();
    batchStop_.reset();
    arrival_ = {};
    if (wasStopped)
        return; // Cancelled jobs have ended; interrupted ones run again after the next start.
    for (std::size_t number = 0; number < jobs.size(); ++number) {
        if (repeated.contains(jobs[number].id))
            continue;
        failures_.insert(failures_.end(), failures[number].begin(), failures[number].end());
        end(jobs[number].id, std::move(ended[jobs[number].id]));
    }
    if (queue_.empty())
        reportEnd();
}

// A job that failed because a snapshot was removed is run once more, with an index without that snapshot. The
// files that only the removed snapshot held then count as failed.
std::set<std::uint32_t> RestoreQueue::takeRepeated(const std::vector<RestoreJob>& jobs,
                                                   std::vector<RestoreRun::Failures>& failures,
                                                   const std::shared_ptr<const BackupIndex>& index) {
    std::set<std::uint32_t> repeated;
    const std::scoped_lock guard(mutex_);
    for (std::size_t number = 0; number < jobs.size(); ++number) {
        const auto queued =
            std::ranges::find(queue_, jobs[number].id, [](const QueuedJob& each) { return each.job.id; });
        if (queued == queue_.end())
            continue;
        const BackupIndex* const before = queued->before.get();
        if (before && index->find(jobs[number].source)) {
            for (std::string& path : goneFrom(*index, *before, jobs[number].source))
                failures[number].push_back({std::move(path), goneSnapshot().reason, true});
        } else if (!before && std::ranges::any_of(failures[number], &RestoreFailure::isSnapshotGone)) {
            queued->before = index;
            queued->isRunning = false;
            repeated.insert(jobs[number].id);
        }
    }
    return repeated;
}

void RestoreQueue::failBatch(const std::vector<RestoreJob>& jobs, const std::string& reason) {
    options_.failed(reason);
    std::vector<RestoreJournal::Ended> ended;
    for (const RestoreJob& job : jobs) {
        ended.push_back(RestoreJournal::Ended::with({{job.source, "internal error: " + reason}}));
        journal_.end(job.id, ended.back());
    }
    const std::scoped_lock guard(mutex_);
    batchStop_.reset();
    arrival_ = {};
    for (std::size_t number = 0; number < jobs.size(); ++number) {
        failures_.push_back({jobs[number].source, "internal error: " + reason});
        end(jobs[number].id, std::move(ended[number]));
    }
    if (queue_.empty())
        reportEnd();
}

void RestoreQueue::end(std::uint32_t id, RestoreJournal::Ended ended) {
    const auto place = std::ranges::find(queue_, id, [](const QueuedJob& each) { return each.job.id; });
    if (place != queue_.end())
        queue_.erase(place);
    keep(id, std::move(ended));
}

// Drops the failures of the oldest jobs when all of them take too much memory, and much later their status.
void RestoreQueue::keep(std::uint32_t id, RestoreJournal::Ended ended) {
    endedBytes_ += ended.bytes();
    ended_[id] = std::move(ended);
    for (auto oldest = ended_.begin(); endedBytes_ > mostBytesOfEnded && oldest != ended_.end(); ++oldest) {
        endedBytes_ -= oldest->second.bytes();
        if (!oldest->second.failures.empty())
            oldest->second.failures = {failuresDropped};
        endedBytes_ += oldest->second.bytes();
    }
    if (ended_.size() <= mostEnded)
        return;
    endedBytes_ -= ended_.begin()->second.bytes();
    ended_.erase(ended_.begin());
}

void RestoreQueue::report() {
    RestoreProgress progress;
    progress.job = firstJob();
    if (progress.job == 0)
        return;
    std::uint64_t running = 0;
    for (const QueuedJob& each : queue_) {
        progress.pending += each.files;
        running += each.isRunning ? each.files : 0;
    }
    progress.pending -= std::min(arrival_.files, running);
    // Files count as soon as they are staged, but 0 must mean that the last one has been delivered.
    progress.pending = std::max<std::uint64_t>(progress.pending, 1);
    progress.file = arrival_.newestFile;
    progress.fileSize = arrival_.newestSize;
    options_.onProgress(progress);
}

void RestoreQueue::reportEnd() {
    options_.onProgress({});
    options_.onEnd(failures_);
    failures_.clear();
}

std::uint32_t RestoreQueue::firstJob() const {
    return queue_.empty() ? 0 : queue_.front().job.id;
}

} // namespace kelvane
