#include "LocalDaemon/Rules/BackupRules.h"
#include "Foundation/CleanPath.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace kelvane {

using enum PathRules::Mark;
using Reason = Verdict::Reason;

TEST(BackupRules, TheNearestRuleDecidesAndSaysWhy) {
    BackupRules rules{
        .home = "/home/joe", .policy = {"/proc/", "/home/joe/.cache/", "/**/*.tmp/"}, .paths = {}};
    rules.paths.exclusions = {"/home", "/home/joe/.cache/kept", "/home/joe/ab", "/home/joe/x.tmp"};
    rules.paths.marks = {
        {"/data", Added}, {"/data/old", Removed}, {"/data/old/best", Added}, {"/proc/1", Added}};
    rules.ownFiles = {"/home/joe/r*"};
    const std::tuple<bool, const char*, Reason, const char*> cases[] = {
        {true, "/home/joe", Reason::Home, "/home/joe"},
        {true, "/home/joe/r*/data", Reason::Policy, "/home/joe/r*"},
        {true, "/home/joe/records", Reason::Home, "/home/joe"},
        {true, "/home/joe/R*", Reason::Home, "/home/joe"},
        {true, "/home/joe/ab/deep/er", Reason::Excluded, "/home/joe/ab"},
        {true, "/home/joe/abc", Reason::Home, "/home/joe"},
        {true, "/home/joe/.cache/file", Reason::Policy, "/home/joe/.cache/"},
        {true, "/home/joe/.cached", Reason::Home, "/home/joe"},
        {true, "/home/joe/a/.kelvane-restore-7/1/x", Reason::Policy, ".kelvane-restore-*"},
        {true, "/home/joe/.CACHE", Reason::Policy, "/home/joe/.cache/"},
        {true, "/home/joe/.cache/kept", Reason::Excluded, "/home/joe/.cache/kept"},
        {true, "/home/joe/x.tmp", Reason::Excluded, "/home/joe/x.tmp"},
        {true, "/home/joe/d/y.tmp", Reason::Policy, "/**/*.tmp/"},
        {true, "/home/joey", Reason::Excluded, "/home"},
        {true, "/data/a", Reason::OutsideHome, ""},
        {true, "/", Reason::OutsideHome, ""},
        {true, "home/joe", Reason::OutsideHome, ""},
        {false, "/home/joe", Reason::NotAdded, ""},
        {false, "/data", Reason::Added, "/data"},
        {false, "/data/old/a", Reason::Removed, "/data/old"},
        {false, "/data/old/best/a", Reason::Added, "/data/old/best"},
        {false, "/data/x.tmp/a", Reason::Policy, "/**/*.tmp/"},
        {false, "/proc/2", Reason::Policy, "/proc/"},
        {false, "/proc/1/maps", Reason::Added, "/proc/1"}};
    for (const auto& [automatic, path, reason, rule] : cases) {
        rules.automaticMode = automatic;
        EXPECT_EQ(verdictFor(rules, path), (Verdict{reason, rule})) << path;
    }
}

TEST(BackupRules, WhatIsSaidOfAFolderHoldsForAllInIt) {
    PathRules paths;
    for (const char* path : {"/a", "/a/b/c", "/a/b.c"})
        paths.mark(path, Added);
    for (const char* path : {"/a/b", "/x"})
        paths.mark(path, Removed);
    EXPECT_EQ(paths.marks, (decltype(paths.marks){{"/a", Added}, {"/a/b", Removed}, {"/a/b.c", Added}}));
    paths.mark("/", Removed);
    EXPECT_EQ(paths, PathRules());
}

TEST(BackupRules, ManualModeBeginsWithWhatAutomaticModeHolds) {
    BackupRules rules{.home = "/home",
                      .policy = {"/home/cache/"},
                      .paths = {},
                      .volumes = {"/disk", "/home/a/disk", "/out"}};
    rules.paths.exclusions = {"/home/a", "/home/a/disk/x", "/out", "/elsewhere"};
    rules.paths.marks = {{"/data", Added}};
    const auto manual = [&] {
        BackupRules changed = rules;
        changed.automaticMode = false;
        changed.paths = withManualSelection(rules);
        return changed;
    };
    for (const char* path : {"/home/b", "/home/a", "/home/a/b", "/home/a/disk/y", "/home/a/disk/x/z",
                             "/disk/b", "/out", "/out/b", "/home/cache/b", "/elsewhere", "/"})
        EXPECT_EQ(verdictFor(manual(), path).isIn(), verdictFor(rules, path).isIn()) << path;
    EXPECT_TRUE(verdictFor(manual(), "/data/x").isIn());
    EXPECT_EQ(manual().paths.exclusions, rules.paths.exclusions);

    rules.paths.marks.clear();
    EXPECT_TRUE(selectsAnything(rules));
    rules.paths.exclusions = {"/disk", "/home/a/disk", "/out", "/home"};
    EXPECT_FALSE(selectsAnything(rules));
    EXPECT_FALSE(selectsAnything(manual()));
}

TEST(BackupRules, AFolderIsPartialWhenSomethingBelowItHasAnotherVerdict) {
    std::vector<std::string> paths{"/"};
    for (std::size_t at = 0; paths.size() < 85; ++at)
        for (const char* name : {"a", "b", "h", "z"})
            paths.push_back(withSeparator(paths[at]) + name);
    std::mt19937 random(7);
    const auto anyPath = [&] { return paths[random() % paths.size()]; };
    for (int round = 0; round < 100; ++round) {
        BackupRules rules{.automaticMode = random() % 2 == 0, .home = "/h/a", .policy = {}, .paths = {}};
        for (auto count = random() % 6; count > 0; --count) {
            rules.paths.exclusions.insert(anyPath());
            rules.paths.mark(anyPath(), random() % 3 == 0 ? Removed : Added);
        }
        for (const std::string& path : paths) {
            const bool isIn = verdictFor(rules, path).isIn();
            const auto differs = [&](const std::string& other) {
                return other.starts_with(withSeparator(path)) && verdictFor(rules, other).isIn() != isIn;
            };
            EXPECT_EQ(isPartial(rules, path, isIn), std::ranges::any_of(paths, differs))
                << path << " in round " << round;
        }
    }
}

} // namespace kelvane
