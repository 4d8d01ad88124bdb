#pragma once

#include "Platform/FileDescriptor.h"
#include "PreferencePane/Help/IncidentReport.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <curl/curl.h>
#include <memory>
#include <string>

namespace kelvane {

// The limits for sending a report.
struct ReportLimits {
    std::chrono::milliseconds zipping{30'000}; // half a gigabyte takes ten seconds
    std::chrono::milliseconds connecting{15'000};
    std::chrono::seconds standstill{60};          // without a byte sent or received
    std::int64_t answer = std::int64_t{8} << 20U; // bytes of the answer, which is not used
};

// One multipart HTTP POST of a report, done step by step on the thread that created it. What the server
// answers does not matter; the library writes its activity to standard error and the answer to standard
// output.
//
// The host name may be any text: it is used for an HTTP request to that host, or nothing is sent.
class ReportTransfer {
public:
    // An empty `archive` sends the report without the log.
    ReportTransfer(const IncidentReport& report, FileDescriptor archive, const ReportLimits& limits);
    ~ReportTransfer();
    ReportTransfer(const ReportTransfer&) = delete;
    ReportTransfer& operator=(const ReportTransfer&) = delete;

    // Works for at most that time; returns true when finished.
    [[nodiscard]] bool step(std::chrono::milliseconds atMost);
    // True when the server has received the report, whatever happens to the rest of its answer.
    [[nodiscard]] bool isAnswered() const;
    // When finished: why the report did not reach the server; empty on success.
    [[nodiscard]] std::string failure() const;

private:
    template <auto release>
    struct Release {
        void operator()(auto* pointer) const { release(pointer); }
    };

    void fillForm(const IncidentReport& report);
    void setOptions(const std::string& address);
    [[nodiscard]] bool isAnswerTooLong() const;

    std::array<char, CURL_ERROR_SIZE> reason_{};
    const FileDescriptor archive_;
    const ReportLimits limits_;
    const std::unique_ptr<CURLM, Release<curl_multi_cleanup>> loop_;
    CURLMcode code_ = CURLM_OK; // the first error of the library itself
    std::unique_ptr<curl_mime, Release<curl_mime_free>> form_;
    const std::unique_ptr<CURL, Release<curl_easy_cleanup>> transfer_;
};

// The library's callback for each header line of the answer; logs the line.
std::size_t curlWriteHeader(char* bytes, std::size_t size, std::size_t count, void* context);

} // namespace kelvane
