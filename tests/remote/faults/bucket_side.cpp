#include "plain_request.hpp"
#include "server_side.hpp"

#include <pugixml.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace remote_faults {

namespace {

/// The names in use here need no encoding but for their slashes in a query.
std::string encoded(std::string_view text) {
    std::string result;
    for (char const c : text) {
        if (c == '/') {
            result += "%2F";
        } else {
            result += c;
        }
    }
    return result;
}

class BucketSide final : public ServerSide {
  public:
    BucketSide(std::string const& endpoint, std::string const& bucket, std::string prefix)
        : url_(endpoint + '/' + bucket),
          prefix_(std::move(prefix)) {}

    void put(std::string const& path, std::string const& content) override {
        ask("PUT", urlOf(path), content);
    }
    void remove(std::string const& path) override { ask("DELETE", urlOf(path)); }

    Files files(std::string const& folder) override {
        Files result;
        pugi::xml_document document;
        load(document, url_ + "?list-type=2&prefix=" + encoded(prefix_ + folder));
        pugi::xml_node const listing = document.child("ListBucketResult");
        if (listing.child("IsTruncated").text().as_bool()) {
            throw std::runtime_error(folder + " has more keys than a page");
        }
        for (pugi::xml_node const object : listing.children("Contents")) {
            std::string const key = object.child("Key").text().get();
            result[key.substr(prefix_.size())] = ask("GET", url_ + '/' + key);
        }
        return result;
    }

    std::vector<std::string> takeUploads() override {
        std::vector<std::string> result;
        for (bool isMore = true; isMore;) {
            pugi::xml_document document;
            load(document, url_ + "?uploads&max-uploads=50");
            pugi::xml_node const listing = document.child("ListMultipartUploadsResult");
            if (!listing) {
                throw std::runtime_error(url_ + " gives no listing of uploads");
            }
            std::size_t const before = result.size();
            for (pugi::xml_node const upload : listing.children("Upload")) {
                std::string const key = upload.child("Key").text().get();
                std::string const id = upload.child("UploadId").text().get();
                ask("DELETE", url_ + '/' + key + "?uploadId=" + id);
                result.push_back(key);
            }
            // What is removed is not on the next page.
            isMore = listing.child("IsTruncated").text().as_bool();
            if (isMore && result.size() == before) {
                throw std::runtime_error(url_ + " lists no uploads, and has more");
            }
        }
        return result;
    }

  private:
    std::string urlOf(std::string const& path) const { return url_ + '/' + prefix_ + path; }
    static std::string ask(std::string const& method, std::string const& url,
                           std::string const& body = {}) {
        PlainAnswer answer = plainRequest(method, url, body);
        if (answer.status / 100 != 2) {
            throw std::runtime_error(method + ' ' + url + " gives " +
                                     std::to_string(answer.status));
        }
        return std::move(answer.body);
    }
    static void load(pugi::xml_document& document, std::string const& url) {
        std::string const text = ask("GET", url);
        if (!document.load_buffer(text.data(), text.size())) {
            throw std::runtime_error(url + " gives no XML");
        }
    }

    std::string const url_;
    std::string const prefix_;
};

} // namespace

std::unique_ptr<ServerSide> makeBucketSide(std::string const& endpoint, std::string const& bucket,
                                           std::string const& prefix) {
    return std::make_unique<BucketSide>(endpoint, bucket, prefix);
}

} // namespace remote_faults
