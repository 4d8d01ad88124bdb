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

// How long somebody who waits for a report to be sent has to wait at most.
struct ReportLimits {
    std::chrono::milliseconds zipping{30'000}; // half a gigabyte takes ten seconds
    std::chrono::milliseconds connecting{15'000};
    std::chrono::seconds standstill{60};          // of the transfer, in which no byte gets on
    std::int64_t answer = std::int64_t{8} << 20U; // bytes of it, of which nobody makes use
};

// One multipart HTTP POST of a report, made piece by piece on the thread that made it. What the server
// answers changes nothing; the library writes what it does to standard error and the answer to standard
// output.
//
// The host's name may hold anything: what it is read as is an HTTP request to that host, or nothing is sent.
class ReportTransfer {
public:
    // `archive` may be none.
    ReportTransfer(const IncidentReport& report, FileDescriptor archive, const ReportLimits& limits);
    ~ReportTransfer();
    ReportTransfer(const ReportTransfer&) = delete;
    ReportTransfer& operator=(const ReportTransfer&) = delete;

    // Goes on for no longer than that; true when it is over.
    [[nodiscard]] bool step(std::chrono::milliseconds atMost);
    // The server has the report then, whatever becomes of the rest of its answer.
    [[nodiscard]] bool isAnswered() const;
    // Once it is over: why the report did not get to the server, empty when it did.
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
    CURLMcode code_ = CURLM_OK; // the first trouble of the library itself
    std::unique_ptr<curl_mime, Release<curl_mime_free>> form_;
    const std::unique_ptr<CURL, Release<curl_easy_cleanup>> transfer_;
};

// The library's callback for each line of the answer's header: logs it.
std::size_t curlWriteHeader(char* bytes, std::size_t size, std::size_t count, void* context);

} // namespace kelvane
