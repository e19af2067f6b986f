#pragma once

#include <foundation/storage/provider/web/exchange.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

namespace foundation::storage::provider::web {

/// Says who asks: fields of a request, and where else to look (netrc(5)), if anywhere.
struct Identity {
    Headers fields = {};
    std::string netrcFile = {};
    /// Called for each request before it is sent, and again when it is sent again.
    std::function<void(Request&)> sign = {};
};

/// Sends requests, follows redirects, and tries again what may pass. What says who asks goes to
/// the server that it was given for alone. Safe on any thread; immutable but for its
/// connections.
class Client {
  public:
    /// `identity` is told to the origin of `home`, and to no other.
    Client(Url home, Identity identity, WebOptions options);

    WebOptions const& options() const noexcept { return options_; }
    /// For the time that an operation may take as a whole; a stop ends it at once.
    Deadline deadline(std::stop_token stop = {}) const {
        return Deadline(options_.operationTimeout, std::move(stop));
    }

    /// Sends a request, and returns the answer with its head, whatever its status is. What is not
    /// repeatable is sent again only where the server cannot have done it. Redirects keep the
    /// method; where they would change it, they are the answer. Throws Failure, and what reading
    /// the body throws.
    std::unique_ptr<Exchange> send(Request const& request, Deadline const& deadline) const;

    /// The pause before an attempt, counted from 2; at least `minimum` long. Throws `last` where it
    /// would go beyond the deadline.
    void pauseBefore(unsigned attempt, std::chrono::milliseconds minimum, Deadline const& deadline,
                     Failure const& last) const;

  private:
    std::unique_ptr<Exchange> follow(Request const& request, Deadline const& deadline) const;
    std::unique_ptr<Exchange> sendOnce(Request const& request, Deadline const& deadline) const;
    /// With what says who asks, where it goes to the server that is told it.
    Request identified(Request request) const;

    Url const home_;
    Identity const identity_;
    WebOptions const options_;
    std::shared_ptr<ConnectionPool> const pool_;
};

} // namespace foundation::storage::provider::web
