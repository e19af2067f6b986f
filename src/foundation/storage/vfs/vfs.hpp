#pragma once

/// Everything that a program needs to use the system. Headers for parts of it compile faster.

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/events/change_watcher.hpp>
#include <foundation/storage/vfs/events/event.hpp>
#include <foundation/storage/vfs/events/event_publisher.hpp>
#include <foundation/storage/vfs/events/publish_events.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/listing/entries.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/file_or_folder.hpp>
#include <foundation/storage/vfs/resources/flush_filesystem.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>
#include <foundation/storage/vfs/storage_system/factory_backed_storage_system.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_decorator.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>
#include <foundation/storage/vfs/streams/buffered_io_device.hpp>
#include <foundation/storage/vfs/streams/file_streams.hpp>
#include <foundation/storage/vfs/streams/io_device.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>
#include <foundation/storage/vfs/walking/walk_folder.hpp>
