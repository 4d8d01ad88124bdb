#include "LocalDaemon/Restore/Staging/RestoreJournal.h"

#include "Common/RestoreStatus.h"
#include "Foundation/Checksum.h"
#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "LocalDaemon/Restic/Snapshots.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"
#include "Support/MessageLine.h"
#include "Support/Preferences/DamagedFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <optional>
#include <sstream>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr std::size_t largestFile = std::size_t{256} << 20U;
constexpr std::size_t mostEnded = 1000;
constexpr std::size_t mostFailures = 1000; // Failures kept for one job; the log has all of them.

constexpr int hexBase = 16;
constexpr std::size_t escapeLength = 3; // As in "%0a".

using Fields = std::vector<std::string>;

std::string escaped(std::string_view text) {
    std::string result;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (byte >= ' ' && each != '%')
            result += each;
        else
            result.append({'%', hexDigits[byte / hexBase], hexDigits[byte % hexBase]});
    }
    return result;
}

std::string unescaped(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        unsigned byte = 0;
        if (text[at] == '%' && at + escapeLength <= text.size()) {
            std::from_chars(text.data() + at + 1, text.data() + at + escapeLength, byte, hexBase);
            result += static_cast<char>(byte);
            at += escapeLength - 1;
        } else {
            result += text[at];
        }
    }
    return result;
}

std::string checksumText(std::string_view text) {
    return formatText("%016llx", checksumOf(text));
}

// A line ends with the checksum of the text before it.
std::string lineOf(const Fields& fields) {
    std::string line;
    for (const std::string& field : fields)
        line += escaped(field) + '\t';
    return line + checksumText(line) + '\n';
}

Fields fieldsOf(std::string_view line) {
    Fields fields;
    for (std::size_t tab = line.find('\t'); tab != std::string_view::npos; tab = line.find('\t')) {
        fields.push_back(unescaped(line.substr(0, tab)));
        line.remove_prefix(tab + 1);
    }
    return fields;
}

struct Line {
    Fields fields; // Empty when the line is damaged.
    bool hasChecksum = false;
};

Line lineFrom(std::string_view text) {
    const std::string_view checked = text.substr(0, text.rfind('\t') + 1);
    const std::string_view checksum = text.substr(checked.size());
    const bool isWhole = checksum.empty() || checksum == checksumText(checked);
    return {isWhole ? fieldsOf(checked) : Fields(), !checksum.empty()};
}

std::uint32_t numberIn(const std::string& text) {
    std::uint32_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

Fields fieldsOf(const RestoreJob& job) {
    return {"job",
            std::to_string(job.id),
            std::to_string(job.version),
            std::to_string(job.priority),
            job.source,
            job.target};
}

Fields fieldsOf(std::uint32_t id, const RestoreJournal::Ended& ended) {
    Fields fields{"end", std::to_string(id), std::to_string(ended.status)};
    fields.insert(fields.end(), ended.failures.begin(), ended.failures.end());
    return fields;
}

void takeJob(RestoreJournal::Contents& contents, const Fields& fields) {
    const RestoreJob job{.id = numberIn(fields[1]),
                         .version = numberIn(fields[2]),
                         .priority = numberIn(fields[3]),
                         .source = fields[4],
                         .target = fields[5]};
    contents.waiting.push_back(job);
    contents.nextId = std::max(contents.nextId, job.id + 1);
}

void takeEnd(RestoreJournal::Contents& contents, const Fields& fields) {
    const std::uint32_t id = numberIn(fields[1]);
    std::erase_if(contents.waiting, [id](const RestoreJob& job) { return job.id == id; });
    contents.ended[id] = {numberIn(fields[2]), {fields.begin() + 3, fields.end()}};
    contents.nextId = std::max(contents.nextId, id + 1);
    if (contents.ended.size() > mostEnded)
        contents.ended.erase(contents.ended.begin());
}

bool makesSense(const Fields& fields) {
    const std::string kind = fields.empty() ? "" : fields[0];
    // Neither 0 nor the largest number, after which there is no next one.
    const auto hasNumber = [&] { return numberIn(fields[1]) + 1 > 1; };
    if (kind == "job")
        return fields.size() == 6 && hasNumber() && isCleanPath(fields[4]) && isCleanPath(fields[5]);
    if (kind == "end")
        return fields.size() >= 3 && hasNumber();
    const bool isOfFolder = kind == "staging" || kind == "gone" || kind == "access" || kind == "ended";
    return isOfFolder && fields.size() == (kind == "access" ? 3 : 2) && isCleanPath(fields[1]);
}

// Applies a valid line.
void takeLine(RestoreJournal::Contents& contents, const Fields& fields) {
    const std::string& kind = fields[0];
    if (kind == "job")
        takeJob(contents, fields);
    else if (kind == "end")
        takeEnd(contents, fields);
    else if (kind == "staging")
        contents.stagingFolders.insert(fields[1]);
    else if (kind == "gone")
        contents.stagingFolders.erase(fields[1]);
    else if (kind == "access")
        contents.accessGiven.try_emplace(fields[1], numberIn(fields[2]));
    else
        contents.accessGiven.erase(fields[1]);
}

std::string textOf(const RestoreJournal::Contents& contents) {
    std::string text;
    for (const auto& [id, ended] : contents.ended)
        text += lineOf(fieldsOf(id, ended));
    for (const RestoreJob& job : contents.waiting)
        text += lineOf(fieldsOf(job));
    for (const std::string& folder : contents.stagingFolders)
        text += lineOf({"staging", folder});
    for (const auto& [folder, mode] : contents.accessGiven)
        text += lineOf({"access", folder, std::to_string(mode)});
    return text;
}

// Lines of an older version have no checksum and are used only if all of them are valid.
RestoreJournal::Contents contentsOf(const Data& bytes) {
    RestoreJournal::Contents contents;
    const std::string text(bytes.begin(), bytes.end());
    const std::size_t whole = text.rfind('\n') + 1;
    std::istringstream input(text.substr(0, whole));
    std::vector<Line> lines;
    bool isOldWhole = true;
    for (std::string line; std::getline(input, line);) {
        lines.push_back(lineFrom(line));
        isOldWhole &= lines.back().hasChecksum || makesSense(lines.back().fields);
    }
    std::size_t left = whole < text.size() ? 1 : 0;
    for (const Line& line : lines)
        if (makesSense(line.fields) && (line.hasChecksum || isOldWhole))
            takeLine(contents, line.fields);
        else
            ++left;
    if (left > 0)
        contents.damage = formatText("damaged lines: %llu", left);
    return contents;
}

} // namespace

RestoreJournal::Ended RestoreJournal::Ended::with(const std::vector<RestoreFailure>& failures) {
    Ended ended{failures.empty() ? restorestatus::finished : restorestatus::incomplete, {}};
    for (const RestoreFailure& failure : failures) {
        if (ended.failures.size() == mostFailures) {
            ended.failures.push_back(formatText("and %llu more", failures.size() - mostFailures));
            break;
        }
        ended.failures.push_back(messageLine(failure.path + ": " + failure.reason));
    }
    return ended;
}

std::size_t RestoreJournal::Ended::bytes() const {
    std::size_t bytes = 0;
    for (const std::string& line : failures)
        bytes += sizeof(std::string) + line.size();
    return bytes;
}

RestoreJournal::Contents RestoreJournal::open() {
    const std::scoped_lock guard(mutex_);
    const FileReading file = readFile(path_, largestFile);
    Contents contents = contentsOf(file.bytes);
    if (!file.succeeded() && file.error != ENOENT)
        contents.damage = file.reason;
    if (!contents.damage.empty() && !setAside(path_, contents.damage).empty()) {
        unusable_ = file.error != 0 ? file.error : EIO;
        Contents none;
        none.damage = contents.damage;
        return none;
    }
    rewrite(contents);
    return contents;
}

void RestoreJournal::tidyUp() {
    const FileReading file = readFile(path_, largestFile);
    const Contents contents = contentsOf(file.bytes);
    if (file.succeeded() && contents.damage.empty())
        return rewrite(contents);
    logWarning("The restore journal cannot be rewritten: %@", file.reason + contents.damage);
    tidyAt_ *= 2;
}

void RestoreJournal::rewrite(const Contents& contents) {
    const std::string text = textOf(contents);
    const FileOutcome outcome = replacePrivateFile(path_, text);
    if (!outcome.succeeded())
        logError("The restore journal cannot be written: %@", outcome.reason);
    tidyAt_ = outcome.succeeded() ? 2 * static_cast<off_t>(text.size()) + spareSize : 2 * tidyAt_;
    file_.reset(::open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW));
}

std::string RestoreJournal::add(const RestoreJob& job) {
    return append(fieldsOf(job), Flush::Yes) ? "" : path_ + " cannot be written: " + errorText();
}

void RestoreJournal::end(std::uint32_t id, const Ended& ended) {
    static_cast<void>(append(fieldsOf(id, ended)));
}

void RestoreJournal::stagingMade(const std::string& folder) {
    static_cast<void>(append({"staging", folder}));
}

void RestoreJournal::stagingGone(const std::string& folder) {
    static_cast<void>(append({"gone", folder}));
}

void RestoreJournal::accessGiven(const std::string& folder, mode_t before) {
    static_cast<void>(append({"access", folder, std::to_string(before)}));
}

void RestoreJournal::accessEnded(const std::string& folder) {
    static_cast<void>(append({"ended", folder}));
}

bool RestoreJournal::append(const Fields& fields, Flush flush) {
    const std::scoped_lock guard(mutex_);
    const bool isWritten = isOpen() && appendText(lineOf(fields), flush);
    const int error = errno;
    if (!isWritten)
        logError("A line cannot be added to %@: %@", path_, errorText());
    else if (::lseek(file_.get(), 0, SEEK_END) > tidyAt_)
        tidyUp();
    errno = error;
    return isWritten;
}

// A file that could not be opened because its disk was full may be writable by now.
bool RestoreJournal::isOpen() {
    if (!file_ && unusable_ == 0)
        file_.reset(
            ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, privateFileMode));
    else if (!file_)
        errno = unusable_;
    return static_cast<bool>(file_);
}

// A partly written line is truncated, so that the next line does not join it; so is a line that was not
// flushed, since its job counts as not saved.
bool RestoreJournal::appendText(const std::string& text, Flush flush) {
    const off_t before = ::lseek(file_.get(), 0, SEEK_END);
    const ssize_t written = ::write(file_.get(), text.data(), text.size());
    const bool isWhole = written == static_cast<ssize_t>(text.size());
    if (isWhole && (flush == Flush::No || ::fdatasync(file_.get()) == 0))
        return true;
    const int error = written < 0 || isWhole ? errno : ENOSPC;
    if (before >= 0 && written > 0 && ::ftruncate(file_.get(), before) != 0)
        logWarning("A line that could not be saved cannot be removed from %@: %@", path_, errorText());
    errno = error;
    return false;
}

} // namespace kelvane
