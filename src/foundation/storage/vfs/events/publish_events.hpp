#pragma once

#include <foundation/export.hpp>
#include <foundation/msg_svc/eventmgr/fwd.hpp>
#include <foundation/storage/events/kind.hpp>
#include <foundation/storage/vfs/resources/file_or_folder.hpp>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <vector>

namespace foundation::storage::vfs {

/// Whether watching a folder covers what lies deeper.
enum class WithRecursiveChangeEvents : std::uint32_t { Yes = 0, No = 1 };

/// "WithRecursiveChangeEvents::Yes" for 0, "WithRecursiveChangeEvents::No" for everything else.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, WithRecursiveChangeEvents recursive);

namespace detail {

/// Has the provider report changes of the resource to the event manager of its storage system, on
/// the thread that they are noticed on. Each call adds one publication. Every value but `No` is
/// recursive.
///
/// Returns the event manager, which somebody else owns: the storage system, and the provider as
/// long as it publishes. Throws ChangeEventsNotSupportedException where the system has no event
/// manager, without asking the provider, and what publishEvents() or publishEventsRecursively()
/// of the resource throws.
FOUNDATION_EXPORT foundation::msg_svc::eventmgr::EventMgr*
publishEventsFor(FileOrFolder const& resource,
                 std::vector<foundation::storage::events::Kind> const& kinds,
                 WithRecursiveChangeEvents recursive);

/// Ends the oldest publication of the resource.
FOUNDATION_EXPORT void stopPublishingEventsFor(FileOrFolder const& resource);

} // namespace detail

/// Ends the oldest publication of the resource, then the subscription, where there is one; it stays
/// with its owner. Where stopping throws, the subscription goes on.
FOUNDATION_EXPORT void
unsubscribe(FileOrFolder const& resource,
            std::unique_ptr<foundation::msg_svc::eventmgr::Connection> const& connection);

} // namespace foundation::storage::vfs
