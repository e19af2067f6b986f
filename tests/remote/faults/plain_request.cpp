#include "plain_request.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <curl/curl.h>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace remote_faults {

namespace {

std::size_t append(char* bytes, std::size_t size, std::size_t count, void* to) {
    static_cast<std::string*>(to)->append(bytes, size * count);
    return size * count;
}

std::size_t take(char* buffer, std::size_t size, std::size_t count, void* from) {
    auto& left = *static_cast<std::string_view*>(from);
    std::size_t const taken = std::min(size * count, left.size());
    std::memcpy(buffer, left.data(), taken);
    left.remove_prefix(taken);
    return taken;
}

using Handle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
thread_local Handle handle{nullptr, &curl_easy_cleanup};

} // namespace

PlainAnswer plainRequest(std::string const& method, std::string const& url,
                         std::string const& body) {
    static bool const isReady = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    if (!handle) {
        handle.reset(curl_easy_init());
    }
    if (!isReady || !handle) {
        throw std::runtime_error("libcurl does not start");
    }
    CURL* const curl = handle.get();
    curl_easy_reset(curl);
    PlainAnswer answer{0, {}};
    std::string_view left = body;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 120L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &append);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer.body);
    if (method == "PUT") {
        curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(curl, CURLOPT_READFUNCTION, &take);
        curl_easy_setopt(curl, CURLOPT_READDATA, &left);
        curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(body.size()));
    } else {
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
    }
    // No wait for "100 Continue".
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> const fields(
        curl_slist_append(nullptr, "Expect:"), &curl_slist_free_all);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, fields.get());
    CURLcode const result = curl_easy_perform(curl);
    if (result != CURLE_OK) {
        throw std::runtime_error(method + ' ' + url + ": " + curl_easy_strerror(result));
    }
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &answer.status);
    return answer;
}

void closePlainConnections() {
    handle.reset();
}

} // namespace remote_faults
