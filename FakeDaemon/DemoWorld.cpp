#include "FakeDaemon/DaemonWorld.h"

#include "Common/ExtensionProtocol.h"
#include "Common/RestoreStatus.h"
#include "Common/StandingAlert.h"
#include "Common/StateKeys.h"
#include "Platform/Files/FileSystem.h"
#include "Support/ServiceStates.h"

#include <ctime>

namespace kelvane {
namespace {

constexpr std::uint64_t megabyte = 1'000'000;
constexpr std::int64_t minute = 60;
constexpr auto backingUp = static_cast<std::uint32_t>(ServiceState::BackingUp);

struct DemoFile {
    const char* path;
    bool isDirectory;
    std::uint64_t size;
    bool isBackedUp;
};
constexpr DemoFile demoFiles[] = {
    {"/", true, 0, true},
    {"/Volumes/Photos", true, 0, true},
    {"/etc", true, 0, false},
    {"/etc/fstab", false, 664, false},
    {"/home", true, 0, true},
    {"/home/maria", true, 0, true},
    {"/home/maria/Desktop", true, 0, true},
    {"/home/maria/Desktop/Shopping list.txt", false, 412, true},
    {"/home/maria/Documents", true, 0, true},
    {"/home/maria/Documents/Accounts 2024.ods", false, 186'420, true},
    {"/home/maria/Documents/Contract.pdf", false, 2 * megabyte, true},
    {"/home/maria/Documents/Letters", true, 0, true},
    {"/home/maria/Documents/Letters/Landlord.odt", false, 31'877, true},
    {"/home/maria/Documents/Letters/Aunt Inés.odt", false, 28'105, true},
    {"/home/maria/Documents/Thesis", true, 0, true},
    {"/home/maria/Documents/Thesis/Chapter 1.odt", false, 148'992, true},
    {"/home/maria/Documents/Thesis/Chapter 2.odt", false, 163'840, true},
    {"/home/maria/Documents/Thesis/Figures.zip", false, 48 * megabyte, false},
    {"/home/maria/Downloads", true, 0, false},
    {"/home/maria/Downloads/debian-12-amd64.iso", false, 3'901 * megabyte, false},
    {"/home/maria/Music", true, 0, true},
    {"/home/maria/Music/Field recordings", true, 0, true},
    {"/home/maria/Music/Field recordings/Blackbird.flac", false, 38 * megabyte, true},
    {"/home/maria/Pictures", true, 0, true},
    {"/home/maria/Pictures/Summer 2024", true, 0, true},
    {"/home/maria/Pictures/Summer 2024/Harbour.jpg", false, 5 * megabyte, true},
    {"/home/maria/Pictures/Summer 2024/Lighthouse.jpg", false, 4 * megabyte, true},
    {"/Volumes/Photos/Scans", true, 0, true},
    {"/Volumes/Photos/Scans/Wedding 1961.tif", false, 92 * megabyte, true},
    {"/Volumes/Photos/Scans/Grandparents.tif", false, 88 * megabyte, false},
};

Dictionary demoState() {
    return Dictionary{{statekey::backedUpFileCount.data(), 48'213U},
                      {statekey::backedupFileSize.data(), 61'284 * megabyte},
                      {statekey::pendingFileCount.data(), 1'906U},
                      {statekey::pendingFileSize.data(), 4'117 * megabyte},
                      {statekey::currentBackupFile.data(), "/home/maria/Documents/Thesis/Figures.zip"},
                      {statekey::currentRestoreFile.data(), ""},
                      {statekey::statusString.data(), "Backing up Figures.zip"},
                      {statekey::backupState.data(), backupstate::rulesAreLoaded},
                      {statekey::currentRestoreJob.data(), 0U},
                      {statekey::isBackupNeeded.data(), true},
                      {statekey::lowerPriorityMode.data(), false},
                      {statekey::paused.data(), false},
                      {statekey::recoverMode.data(), false},
                      {statekey::serviceState.data(), backingUp},
                      {statekey::isQuotaLimited.data(), false},
                      {statekey::isOverQuota.data(), false},
                      {statekey::quotaMB.data(), 204'800U},
                      {statekey::backupControlFlags.data(), 0U}};
}

} // namespace

DaemonWorld demoWorld() {
    DaemonWorld world;
    world.state = demoState();
    world.values =
        Dictionary{{"serverURL", "backup.example.net"},
                   {"computerNumber", 481'516},
                   {"userEmail", "maria@example.net"},
                   {"marketingMessage", ""},
                   {"backedupStateString", "48,213 files are backed up"},
                   {"liveStateString", "Backing up"},
                   {"policyExcludeList", Array{"/proc/**", "/sys/**", "/dev/**", "/tmp/**", "**/.cache/**"}},
                   {"automaticMode", true},
                   {"delayShutdown", false},
                   {"pausedMinutes", 0U},
                   {"enabled", true}};
    world.profile = Dictionary{{"SkinId", "kelvane"}};
    world.fileTypes = Dictionary{{"Applications", 0U}, {"Documents", 1U}, {"Music", 1U}, {"Pictures", 1U}};
    world.progress = Dictionary{{std::to_string(restoreprogress::currentFile), "Harbour.jpg"},
                                {std::to_string(restoreprogress::currentFileSize), 5 * megabyte},
                                {std::to_string(restoreprogress::pendingCount), 12}};
    world.volumes = {"/", "/Volumes/Photos"};
    for (const DemoFile& file : demoFiles)
        world.addFile(file.path, file.isDirectory, file.size, file.isBackedUp);
    world.exclude("/home/maria/Downloads", true);
    return world;
}

void addDemoExtensions(DaemonWorld& world) {
    const auto before = [](std::int64_t seconds) { return dateFromTime(std::time(nullptr) - seconds); };
    Dictionary& state = world.state.mutableDictionary();
    state.set(statekey::extensions, Array{extension::alerts, extension::schedule, extension::verify});
    state.set(statekey::alerts,
              Array{dictionaryOf({.id = "files_not_read",
                                  .severity = "warning",
                                  .title = "Some files are not backed up.",
                                  .text = "They could not be read:\n/home/maria/Documents/Contract.pdf",
                                  .since = before(minute * 20),
                                  .actions = {std::string(dismissAction)}})});
    state.set(statekey::lastBackupDate, before(minute * 20));
    state.set(statekey::destination, "Backup disk (folder kelvane)");
    state.set(statekey::bytesPerSecond, 17 * megabyte);
    state.set(statekey::secondsLeft, std::uint64_t{240});
    state.set(statekey::lastVerifiedDate, before(minute * 60));
    state.set(statekey::lastVerification, "No damage found");
    world.values.mutableDictionary().set("verify", "");
}

} // namespace kelvane
