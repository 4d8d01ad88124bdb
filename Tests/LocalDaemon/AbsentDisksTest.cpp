#include "LocalDaemon/State/AbsentDisks.h"
#include "Tests/Common/FakeFileServices.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

// No folder is empty.
struct MountedDisks : tests::FakeDisk {
    FolderListing list(const std::string&, std::size_t) const override { return {{"file"}, true, 0}; }
    std::shared_ptr<const MountPoints> mounts() const override {
        return std::make_shared<MountPoints>(ids.begin(), ids.end());
    }
    std::string fileSystemId(const std::string& point) const override {
        return point == "/" ? "/ ext-0" : ids.at(point);
    }

    Mounts ids;
};

TEST(AbsentDisks, AreFoundWhereSomethingElseIsMountedThanWasBackedUp) {
    const auto saved = [](const std::string& path) {
        return BackedUpItem{.item = {.path = path}, .backedUp = 1, .version = 1, .snapshot = 1};
    };
    const BackupIndex index("repository", {},
                            {saved("/home/me/docs/notes"), saved("/mnt/storage/photos/one")});
    const BackupRules rules{.home = "/home/me", .policy = {}, .paths = {}, .volumes = {"/mnt/storage"}};
    const std::tuple<Mounts, Mounts, Absences> cases[] = {
        {{}, {{"/home/me/docs/new", "A"}}, {}},
        {{}, {{"/home/me/docs", "A"}}, {{"/home/me/docs", Absence::Covered}}},
        {{}, {{"/home/me/docs/notes", "A"}}, {{"/home/me/docs/notes", Absence::Covered}}},
        {{}, {{"/mnt/storage/photos", "A"}}, {{"/mnt/storage/photos", Absence::Covered}}},
        {{}, {{"/home", "/ ext-1"}}, {{"/home", Absence::Covered}}},
        {{}, {{"/home/me", "/other ext-0"}}, {{"/home/me", Absence::Covered}}},
        {{}, {{"/home/me", "/home/me ext-0"}}, {}}, // mounted on itself
        {{{"/home/me", "/one ext-1"}}, {{"/home/me", "/one ext-1"}}, {}},
        {{{"/home/me", "/one ext-1"}}, {{"/home/me", "/two ext-1"}}, {{"/home/me", Absence::Another}}},
        {{{"/home/me", "ext-1"}}, {{"/home/me", "/two ext-1"}}, {}}, // recorded by an earlier version
        {{{"/home/me", "ext-1"}}, {{"/home/me", "/two ext-2"}}, {{"/home/me", Absence::Another}}},
    };
    for (const auto& [before, now, away] : cases)
        for (const bool isEarlierVersion : {false, true}) { // whose settings contain only the mounts
            MountedDisks disks;
            disks.ids = now;
            Settings settings;
            settings.mounts = before;
            settings.mountPoints = {{"/home/me", "/"}, {"/mnt/storage", "/"}};
            Dictionary entries = valueFromSettings(settings).dictionary();
            if (isEarlierVersion)
                entries.erase("mountPoints");
            settings = settingsFromValue(entries);
            settings.disks = {"/mnt/storage/photos"}; // as soon as it is mounted
            EXPECT_EQ(absencesNow(settings, rules, index, disks), away) << now.begin()->first;
        }
}

} // namespace
} // namespace kelvane
