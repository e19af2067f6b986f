#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <curl/curl.h>
#include <memory>
#include <mutex>
#include <vector>

namespace foundation::storage::provider::web {

/// A handle for one exchange at a time, and the connections that it keeps open for the next one.
struct Channel {
    Channel();
    Channel(Channel const&) = delete;
    Channel& operator=(Channel const&) = delete;
    ~Channel();

    /// Has the next connections be noted.
    void noteSockets();
    /// Whether nothing waits to be received on the connection from a port of this machine.
    bool isQuiet(int localPort) const noexcept;
    /// Bytes that wait in this machine, on all connections.
    std::uint64_t unsent() const noexcept;

    CURLM* const multi;
    CURL* const easy;

  private:
    static curl_socket_t openSocket(void* channel, curlsocktype, curl_sockaddr* address) noexcept;
    static int closeSocket(void* channel, curl_socket_t socket) noexcept;

    std::vector<curl_socket_t> sockets_; ///< of the connections that are open
};

/// The connections of a provider. Each exchange takes a channel for itself, the one that was
/// brought back last; addresses and TLS sessions are known to all of them. Safe on any thread;
/// whoever has a channel keeps the pool alive.
class ConnectionPool : public std::enable_shared_from_this<ConnectionPool> {
  public:
    /// Brings a channel back.
    struct Return {
        std::shared_ptr<ConnectionPool> owner;
        void operator()(Channel* channel) const noexcept;
    };
    using Lent = std::unique_ptr<Channel, Return>;

    explicit ConnectionPool(std::size_t mostIdle);
    ConnectionPool(ConnectionPool const&) = delete;
    ConnectionPool& operator=(ConnectionPool const&) = delete;
    ~ConnectionPool();

    /// With the options that the library has by default, and nothing of the last exchange.
    Lent lend();

  private:
    static void lock(CURL*, curl_lock_data what, curl_lock_access, void* pool) noexcept;
    static void unlock(CURL*, curl_lock_data what, void* pool) noexcept;

    std::size_t const mostIdle_;
    std::array<std::mutex, CURL_LOCK_DATA_LAST> shareMutexes_;
    CURLSH* const share_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<Channel>> idle_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::web
