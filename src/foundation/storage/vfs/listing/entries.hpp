#pragma once

/// What listings are made of.

#include <foundation/storage/vfs/listing/file_entry.hpp>
#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/folder_entry.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>
