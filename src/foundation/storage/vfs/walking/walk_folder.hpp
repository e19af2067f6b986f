#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/fwd.hpp>
#include <foundation/storage/vfs/walking/folder_visit_result.hpp>

#include <functional>

namespace foundation::storage::vfs {

/// Tells `visitor` about `folder` and everything below it, depth first and in listing order, on the
/// calling thread. One listing is open for each folder on the way down to the present one, and
/// nothing else grows with the tree.
///
/// What a result does:
/// - Continue: the walk goes on.
/// - Skip from visitEntryBefore: the folder is not listed and has no visitEntryAfter. From
///   anything else it is as Continue.
/// - Stop: ends the walk; no folder above gets its visitEntryAfter.
/// - A value out of range is as Skip.
/// The result of the walk is that of the last call about `folder`, or Stop.
///
/// Failures. An Exception from listing a folder or from visiting something in it ends that folder:
/// visitEntryAfter where its code is ResourceNotFound, as the folder has vanished;
/// visitFolderEntryFailed otherwise. What that throws, and every exception about a folder itself,
/// is such a failure of the folder above, and leaves the walk at the top. So a visitor that
/// throws ResourceNotFound drops the rest of a folder without a word. Exceptions of other types
/// leave the walk as they are.
FOUNDATION_EXPORT FolderVisitResult walkFolder(Folder const& folder, FolderVisitor& visitor);

/// The same with the items of every folder visited at once, by the calling thread and those of
/// oneTBB's scheduler, as many as it has where this is called (tbb::global_control and
/// tbb::task_arena limit them). Returns when everything that was begun is done.
///
/// What differs:
/// - Order: visitEntryBefore of a folder comes before everything in it, and its last
///   visitEntryAfter behind; nothing else is ordered. All calls may be made at once, those of
///   visitFolderEntryFailed and visitEntryAfter also about one folder.
/// - Stop cancels nothing: the other items of the folder, and of those above, are visited; only
///   visitEntryAfter is left out on the way up.
/// - A value out of range from visitEntryBefore is as Continue.
/// - Where a handler answers the failure of an item, the other items go on, and the folder's
///   visitEntryAfter still comes at the end. An item that fails with ResourceNotFound calls it at
///   once, and it comes again at the end.
/// - A listing that fails behind its beginning is a failure of the folder above; at the top it
///   reaches the caller, ResourceNotFound too.
/// - An exception that leaves a folder drops its items that have not begun, and those of the
///   folders being walked below it, which get their visitEntryAfter all the same: it does not say
///   that everything in a folder was visited. So does an enclosing task group of the caller's that
///   is cancelled. Of several exceptions one arrives, with its type.
/// - While a thread waits for the items of a folder it visits others, so between the two calls
/// about
///   a folder it may make calls about any. A level takes about 1.5 KiB of its stack.
FOUNDATION_EXPORT FolderVisitResult walkFolderParallel(Folder const& folder,
                                                       FolderVisitor& visitor);
/// `shouldStop` is asked on entering each folder, before each item, and when all items of a folder
/// are done; once it answers true, nothing more is visited and the result is Stop. Listings that
/// are open are still read to their ends. It is called on many threads at once. An empty one throws
/// std::bad_function_call.
FOUNDATION_EXPORT FolderVisitResult walkFolderParallel(Folder const& folder, FolderVisitor& visitor,
                                                       std::function<bool()> const& shouldStop);

} // namespace foundation::storage::vfs
