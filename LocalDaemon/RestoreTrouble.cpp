#include "LocalDaemon/RestoreTrouble.h"

#include <algorithm>

namespace kelvane {
namespace {

struct TroubleRow {
    ResticTrouble trouble;
    const char* text;
    bool mayPass;
};
constexpr TroubleRow rows[] = {
    {ResticTrouble::NoRepository, "the backup's repository is not there", true}, // a disk that is away
    {ResticTrouble::Unreachable, "the backup's repository cannot be reached", true},
    {ResticTrouble::NoNetwork, "there is no network for the backup", true},
    {ResticTrouble::Locked, "somebody else is at work in the backup's repository", true},
    {ResticTrouble::Stopped, "nothing has come out of the backup for too long", true},
    {ResticTrouble::WrongPassword, "the key does not fit the backup's repository", false},
    {ResticTrouble::Failed, "restic could not go on", false},
};

const TroubleRow& rowOf(ResticTrouble trouble) {
    const auto* const row = std::ranges::find(rows, trouble, &TroubleRow::trouble);
    return row == std::end(rows) ? *std::rbegin(rows) : *row;
}

} // namespace

std::string restoreFailureFor(const ResticOutcome& outcome) {
    const std::string word = lastWordIn(outcome.errors);
    return std::string(rowOf(outcome.trouble).text) + (word.empty() ? "" : ": " + word);
}

// Without a word: somebody has killed it, or the memory was short.
bool mayPass(const ResticOutcome& outcome) {
    return outcome.errors.empty() || rowOf(outcome.trouble).mayPass;
}

bool mayPass(const ErrorsByPath& errors, const ErrorsByPath& before) {
    const bool isOfTheWay = std::ranges::any_of(errors, [](const auto& error) {
        const ResticTrouble trouble = troubleSaidIn(error.second);
        return trouble == ResticTrouble::Unreachable || trouble == ResticTrouble::NoNetwork;
    });
    const auto pathOf = [](const auto& error) -> const std::string& { return error.first; };
    return isOfTheWay && !std::ranges::equal(errors, before, {}, pathOf, pathOf);
}

} // namespace kelvane
