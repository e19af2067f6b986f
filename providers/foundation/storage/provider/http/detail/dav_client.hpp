#pragma once

#include <foundation/storage/provider/http/detail/dav_listing.hpp>
#include <foundation/storage/provider/http/detail/dav_path.hpp>
#include <foundation/storage/provider/http/detail/dav_xml.hpp>
#include <foundation/storage/provider/web/client.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::http::detail {

/// What a server says of one item.
struct DavItem {
    int status = 0;
    DavProperties properties; ///< where the status is success
    bool isFolder = false;    ///< the same
    /// Else it may be a folder all the same.
    bool isKindTold = false;
};

/// What came of a change.
struct DavOutcome {
    int status = 0;
    /// How often it was sent: only the last answer is known.
    unsigned sendings = 1;
    /// The item below for which it failed, where the server names one.
    std::optional<DavPath> failed = std::nullopt;

    /// That a change was taken note of, and is done later, is none (RFC 9110, section 15.3.3).
    bool isSuccess() const noexcept { return web::isSuccess(status) && status != accepted; }

    static constexpr int accepted = 202;
};

/// What must be at a place where a file is put.
struct DavExpected {
    enum class State { Anything, Nothing, Tagged };

    State state = State::Anything;
    std::string tag = {}; ///< where it is tagged; a strong one
};

/// The requests of WebDAV (RFC 4918) to one server. Safe on any thread. Everything throws
/// web::Failure where there is no answer, or none that can be used; what the server answers is in
/// the results. Changes are sent once: where a failure says that it may pass, it is not known
/// whether they were done. They are not led elsewhere: a folder that has come to be at the place of
/// a file would be what is changed.
class DavClient {
  public:
    DavClient(std::shared_ptr<web::Client const> client, std::uint64_t largestAnswer)
        : client_(std::move(client)),
          largestAnswer_(largestAnswer) {}

    enum class Speech { Dav, Web, Unknown, Refused };
    /// Unknown where there is nothing at the place, and the server tells no more than that. Refused
    /// where another time, or somebody else, may get an answer.
    struct Spoken {
        Speech speech;
        std::optional<web::Failure> refusal = std::nullopt;
    };
    Spoken speechAt(web::Url const& url, unsigned attempts, web::Deadline const& deadline) const;

    DavItem find(web::Url const& url, web::Deadline const& deadline) const;
    DavListing list(web::Url const& folder, web::Deadline const& deadline) const;

    DavOutcome makeFolder(web::Url const& url, web::Deadline const& deadline) const;
    /// With a strong tag, only where the item has it.
    DavOutcome remove(web::Url const& url, std::string const& tag,
                      web::Deadline const& deadline) const;

    enum class Transfer { Copy, Move };
    enum class Overwriting { Allowed, Refused };
    DavOutcome transfer(Transfer what, web::Url const& source, web::Url const& destination,
                        Overwriting overwriting, web::Deadline const& deadline) const;

    /// The server may take so long once it has the whole body.
    DavOutcome put(web::Url const& url, web::Body body, DavExpected const& expected,
                   std::chrono::milliseconds longestWork, web::Deadline const& deadline) const;

    /// Sets the time of the last change. A success says that the server has taken note of it.
    DavOutcome setLastModified(web::Url const& url, std::int64_t seconds,
                               web::Deadline const& deadline) const;

  private:
    std::vector<DavResponse> ask(web::Url& url, char const* depth, int& status,
                                 web::Deadline const& deadline) const;
    DavOutcome change(web::Request request, web::Deadline const& deadline) const;
    std::vector<DavResponse> partsOf(web::Exchange& answer, web::Deadline const& deadline) const;

    std::shared_ptr<web::Client const> const client_;
    std::uint64_t const largestAnswer_;
};

} // namespace foundation::storage::provider::http::detail
