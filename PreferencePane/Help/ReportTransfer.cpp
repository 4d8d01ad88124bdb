#include "PreferencePane/Help/ReportTransfer.h"

#include "Foundation/Unicode.h"
#include "PreferencePane/Help/LogArchive.h"
#include "Support/Logging.h"

#include <utility>

namespace kelvane {
namespace {

constexpr const char* archiveField = "KelvaneLog";
constexpr const char* onlyProtocol = "http";

// Initialises the library before its first use.
CURLM* makeLoop() {
    return curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK ? curl_multi_init() : nullptr;
}

} // namespace

ReportTransfer::ReportTransfer(const IncidentReport& report, FileDescriptor archive,
                               const ReportLimits& limits)
    : archive_(std::move(archive)),
      limits_(limits),
      loop_(makeLoop()),
      transfer_(loop_ ? curl_easy_init() : nullptr) {
    if (!loop_ || !transfer_)
        return;
    form_.reset(curl_mime_init(transfer_.get()));
    fillForm(report);
    setOptions(report.address());
    code_ = curl_multi_add_handle(loop_.get(), transfer_.get());
}

ReportTransfer::~ReportTransfer() {
    if (loop_ && transfer_)
        curl_multi_remove_handle(loop_.get(), transfer_.get());
}

void ReportTransfer::fillForm(const IncidentReport& report) {
    for (const auto& [name, contents] : report.fields()) {
        curl_mimepart* const part = curl_mime_addpart(form_.get());
        curl_mime_name(part, name.c_str());
        curl_mime_data(part, contents.data(), contents.size());
    }
    if (!archive_)
        return;
    curl_mimepart* const part = curl_mime_addpart(form_.get());
    curl_mime_name(part, archiveField);
    // Sends the file that was checked and not whatever has its name by now.
    curl_mime_filedata(part, ("/proc/self/fd/" + std::to_string(archive_.get())).c_str());
    curl_mime_filename(part, LogArchive::name);
}

void ReportTransfer::setOptions(const std::string& address) {
    CURL* const transfer = transfer_.get();
    curl_easy_setopt(transfer, CURLOPT_URL, address.c_str());
    // Otherwise the library would use FTP for a host called "ftp.example.org", and read a local file for a
    // "file:///" address.
    curl_easy_setopt(transfer, CURLOPT_DEFAULT_PROTOCOL, onlyProtocol);
    curl_easy_setopt(transfer, CURLOPT_PROTOCOLS_STR, onlyProtocol);
    curl_easy_setopt(transfer, CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
    curl_easy_setopt(transfer, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(transfer, CURLOPT_MIMEPOST, form_.get());
    curl_easy_setopt(transfer, CURLOPT_HEADERFUNCTION, &curlWriteHeader);
    curl_easy_setopt(transfer, CURLOPT_VERBOSE, 1L);
    curl_easy_setopt(transfer, CURLOPT_HEADER, 1L);
    curl_easy_setopt(transfer, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits_.connecting.count()));
    curl_easy_setopt(transfer, CURLOPT_LOW_SPEED_LIMIT, 1L); // bytes per second: a slow line is not a failure
    curl_easy_setopt(transfer, CURLOPT_LOW_SPEED_TIME, static_cast<long>(limits_.standstill.count()));
    curl_easy_setopt(transfer, CURLOPT_ERRORBUFFER, reason_.data());
    // Otherwise cancelling would wait for a name server that does not answer.
    curl_easy_setopt(transfer, CURLOPT_QUICK_EXIT, 1L);
}

bool ReportTransfer::step(std::chrono::milliseconds atMost) {
    int running = 0;
    if (!loop_ || code_ != CURLM_OK)
        return true;
    code_ = curl_multi_perform(loop_.get(), &running);
    if (code_ != CURLM_OK || running == 0 || isAnswerTooLong())
        return true;
    code_ = curl_multi_poll(loop_.get(), nullptr, 0, static_cast<int>(atMost.count()), nullptr);
    return code_ != CURLM_OK;
}

bool ReportTransfer::isAnswered() const {
    constexpr long firstFinalStatus = 200;
    long status = 0;
    if (transfer_)
        curl_easy_getinfo(transfer_.get(), CURLINFO_RESPONSE_CODE, &status);
    return status >= firstFinalStatus;
}

std::string ReportTransfer::failure() const {
    if (!loop_ || !transfer_)
        return curl_easy_strerror(CURLE_FAILED_INIT);
    if (isAnswered())
        return {};
    if (code_ != CURLM_OK)
        return curl_multi_strerror(code_);
    int left = 0;
    const CURLMsg* const message = curl_multi_info_read(loop_.get(), &left);
    if (message == nullptr)
        return curl_easy_strerror(CURLE_GOT_NOTHING);
    if (message->data.result == CURLE_OK)
        return {};
    return reason_.front() != '\0' ? reason_.data() : curl_easy_strerror(message->data.result);
}

bool ReportTransfer::isAnswerTooLong() const {
    long header = 0;
    curl_off_t body = 0;
    curl_easy_getinfo(transfer_.get(), CURLINFO_HEADER_SIZE, &header);
    curl_easy_getinfo(transfer_.get(), CURLINFO_SIZE_DOWNLOAD_T, &body);
    return header + body > limits_.answer;
}

std::size_t curlWriteHeader(char* bytes, std::size_t size, std::size_t count, void* /*context*/) {
    const std::string_view line(bytes, count);
    KelvaneCLog("curl: %@", isUtf8(line) ? Value(line) : Value());
    return size * count;
}

} // namespace kelvane
