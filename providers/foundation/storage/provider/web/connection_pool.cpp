#include <foundation/storage/provider/web/connection_pool.hpp>

#include <cerrno>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <new>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace foundation::storage::provider::web {

namespace {

/// An exchange may lead through some hosts, and a connection to each is worth keeping.
constexpr long connectionsOfAChannel = 4;

/// Once in the process, on whichever thread is first; other users of the library may do the same.
void initializeLibrary() {
    static CURLcode const result = ::curl_global_init(CURL_GLOBAL_DEFAULT);
    if (result != CURLE_OK) {
        throw std::runtime_error("libcurl cannot be initialized");
    }
}

CURLSH* makeShare() {
    initializeLibrary();
    CURLSH* const share = ::curl_share_init();
    if (!share) {
        throw std::bad_alloc();
    }
    return share;
}

} // namespace

Channel::Channel() : multi(::curl_multi_init()), easy(::curl_easy_init()) {
    if (!multi || !easy) {
        ::curl_easy_cleanup(easy);
        ::curl_multi_cleanup(multi);
        throw std::bad_alloc();
    }
    ::curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, connectionsOfAChannel);
}

Channel::~Channel() {
    ::curl_easy_cleanup(easy);
    ::curl_multi_cleanup(multi);
}

curl_socket_t Channel::openSocket(void* channel, curlsocktype, curl_sockaddr* address) noexcept {
    auto& sockets = static_cast<Channel*>(channel)->sockets_;
    int const socket =
        ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (socket < 0) {
        return CURL_SOCKET_BAD;
    }
    try {
        sockets.push_back(socket);
    } catch (std::bad_alloc const&) {
        ::close(socket);
        return CURL_SOCKET_BAD;
    }
    return socket;
}

int Channel::closeSocket(void* channel, curl_socket_t socket) noexcept {
    std::erase(static_cast<Channel*>(channel)->sockets_, socket);
    return ::close(socket);
}

void Channel::noteSockets() {
    ::curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &Channel::openSocket);
    ::curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, static_cast<void*>(this));
    ::curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &Channel::closeSocket);
    ::curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, static_cast<void*>(this));
}

std::uint64_t Channel::unsent() const noexcept {
    std::uint64_t total = 0;
    for (curl_socket_t const socket : sockets_) {
        int waiting = 0;
        if (::ioctl(socket, SIOCOUTQ, &waiting) == 0) { // tcp(7)
            total += static_cast<std::uint64_t>(waiting);
        }
    }
    return total;
}

bool Channel::isQuiet(int localPort) const noexcept {
    bool isFound = false;
    for (curl_socket_t const socket : sockets_) {
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            return false;
        }
        // The port stands at the same place for both families.
        if (ntohs(reinterpret_cast<sockaddr_in const*>(&address)->sin_port) != localPort) {
            continue;
        }
        isFound = true;
        char byte = 0;
        if (::recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0 ||
            (errno != EAGAIN && errno != EWOULDBLOCK)) {
            return false;
        }
    }
    return isFound;
}

ConnectionPool::ConnectionPool(std::size_t mostIdle) : mostIdle_(mostIdle), share_(makeShare()) {
    // Connections are not shared: libcurl cannot do that safely between threads.
    ::curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    ::curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    ::curl_share_setopt(share_, CURLSHOPT_LOCKFUNC, &ConnectionPool::lock);
    ::curl_share_setopt(share_, CURLSHOPT_UNLOCKFUNC, &ConnectionPool::unlock);
    ::curl_share_setopt(share_, CURLSHOPT_USERDATA, this);
    idle_.reserve(mostIdle_); // so that bringing one back takes no memory
}

ConnectionPool::~ConnectionPool() {
    idle_.clear(); // before what they share
    ::curl_share_cleanup(share_);
}

void ConnectionPool::lock(CURL*, curl_lock_data what, curl_lock_access, void* pool) noexcept {
    static_cast<ConnectionPool*>(pool)->shareMutexes_[what].lock();
}
void ConnectionPool::unlock(CURL*, curl_lock_data what, void* pool) noexcept {
    static_cast<ConnectionPool*>(pool)->shareMutexes_[what].unlock();
}

ConnectionPool::Lent ConnectionPool::lend() {
    std::unique_ptr<Channel> channel;
    {
        std::lock_guard const lock(mutex_);
        if (!idle_.empty()) {
            channel = std::move(idle_.back());
            idle_.pop_back();
        }
    }
    if (!channel) {
        channel = std::make_unique<Channel>();
    }
    ::curl_easy_setopt(channel->easy, CURLOPT_SHARE, share_);
    channel->noteSockets();
    return {channel.release(), Return{shared_from_this()}};
}

void ConnectionPool::Return::operator()(Channel* channel) const noexcept {
    std::unique_ptr<Channel> returned(channel);
    ::curl_easy_reset(channel->easy);
    std::lock_guard const lock(owner->mutex_);
    if (owner->idle_.size() < owner->mostIdle_) {
        owner->idle_.push_back(std::move(returned));
    }
}

} // namespace foundation::storage::provider::web
