#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace foundation::storage::provider::http::test {

/// lying_server.py in a process of its own, which ends with this object.
class LyingServer {
  public:
    enum class Tls { No, Yes, Expired, OfAnotherName };

    /// With TLS it makes a certificate of its own, which nobody trusts, for 127.0.0.1; one whose
    /// time is over, or which is for another address. `script` is what is run.
    explicit LyingServer(Tls tls = Tls::No, char const* script = LYING_SERVER);
    LyingServer(LyingServer const&) = delete;
    LyingServer& operator=(LyingServer const&) = delete;
    ~LyingServer();

    /// "127.0.0.1:PORT", of the same files by one and by another origin.
    std::string const& authority() const noexcept { return authority_; }
    std::string const& otherAuthority() const noexcept { return otherAuthority_; }
    std::string const& secureAuthority() const noexcept { return secureAuthority_; }
    std::string certificate() const { return logPath_ + ".crt"; }

    /// What was asked so far, in order: port, method, target and fields, with a tab between them.
    std::vector<std::string> requests() const;
    std::size_t countOf(std::string const& part) const;
    /// How many requests a call takes. What a server said is remembered for a second; a call that
    /// takes longer, as on a busy machine, may ask again, and is not counted but done anew.
    template<class Call>
    std::size_t requestsOf(Call const& call) const {
        using Clock = std::chrono::steady_clock;
        for (int calls = 1;; ++calls) {
            std::size_t const before = requests().size();
            auto const start = Clock::now();
            call();
            bool const isQuick = Clock::now() - start < std::chrono::seconds(1);
            if (isQuick || calls == 20) {
                return requests().size() - before;
            }
        }
    }
    /// How often somebody came to the secure authority.
    std::size_t tlsConnections() const;

  private:
    void makeCertificate(Tls tls) const;

    std::string logPath_;
    pid_t pid_ = -1;
    int input_ = -1;
    std::string authority_;
    std::string otherAuthority_;
    std::string secureAuthority_;
};

/// The bytes that the server's files have, from a position on.
std::string content(std::size_t size, std::size_t from = 0);

} // namespace foundation::storage::provider::http::test
