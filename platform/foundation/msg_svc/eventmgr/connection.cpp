#include <foundation/msg_svc/eventmgr/connection.hpp>

namespace foundation::msg_svc::eventmgr {

Connection::~Connection() = default;

ScopedConnection::~ScopedConnection() {
    disconnect();
}

ScopedConnection& ScopedConnection::operator=(ScopedConnection&& other) noexcept {
    if (this != &other) {
        assign(std::move(other.connection_));
    }
    return *this;
}

void ScopedConnection::assign(std::unique_ptr<Connection> connection) {
    disconnect();
    connection_ = std::move(connection);
}

void ScopedConnection::disconnect() {
    if (connection_) {
        std::exchange(connection_, nullptr)->disconnect();
    }
}

} // namespace foundation::msg_svc::eventmgr
