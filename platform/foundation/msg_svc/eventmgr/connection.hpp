#pragma once

#include <foundation/export.hpp>

#include <memory>
#include <utility>

namespace foundation::msg_svc::eventmgr {

/// A subscription. Dropping the connection does not end it (ScopedConnection does); it may outlive
/// the event manager.
class FOUNDATION_EXPORT Connection {
  public:
    virtual ~Connection();
    /// Ends the subscription. When this returns the handler is not running, on any thread, and will
    /// not run again; what the handler holds has been let go of.
    ///
    /// From inside the handler it returns as well: the handler runs to its end, and never again.
    /// Two handlers that end each other at once on two threads wait for each other for ever.
    ///
    /// Safe on any thread, also twice and at once.
    virtual void disconnect() = 0;

  protected:
    Connection() = default;
    Connection(Connection const&) = default;
    Connection& operator=(Connection const&) = default;
};

/// Ends a subscription when it goes. For one thread at a time.
class FOUNDATION_EXPORT ScopedConnection {
  public:
    ScopedConnection() = default;
    explicit ScopedConnection(std::unique_ptr<Connection> connection)
        : connection_(std::move(connection)) {}
    ScopedConnection(ScopedConnection&&) noexcept = default;
    ScopedConnection& operator=(ScopedConnection&& other) noexcept;
    ~ScopedConnection();

    /// Ends the subscription that was held, and holds this one.
    void assign(std::unique_ptr<Connection> connection);
    void disconnect();

  private:
    std::unique_ptr<Connection> connection_;
};

} // namespace foundation::msg_svc::eventmgr
