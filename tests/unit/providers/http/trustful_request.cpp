#include "trustful_request.hpp"

#include <curl/curl.h>
#include <memory>

namespace foundation::storage::provider::http::test {

long statusForTheTrustful(std::string const& url) {
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> const curl(curl_easy_init(),
                                                                   &curl_easy_cleanup);
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");
    curl_easy_setopt(curl.get(), CURLOPT_NOBODY, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 20L);
    curl_easy_setopt(curl.get(), CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl.get(), CURLOPT_SSL_VERIFYHOST, 0L);
    long status = 0;
    if (curl_easy_perform(curl.get()) == CURLE_OK) {
        curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    }
    return status;
}

} // namespace foundation::storage::provider::http::test
