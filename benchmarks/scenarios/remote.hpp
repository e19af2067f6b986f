#pragma once

#include "workplace.hpp"

namespace bench {

/// How much memory a command needs that lists a million keys. To be asked first: a program that is
/// started counts what is resident here as its own.
void showMemoryOfKeys(Workplace const& place);
/// An object of 1 GiB read from the start to the end.
void holdRemoteRead(Workplace const& place);
/// 50,000 keys listed.
void holdRemoteListing(Workplace const& place);
/// A tree of folders walked, each of them asked for by itself.
void holdRemoteWalk(Workplace const& place);
/// 10,000 files of 4 KiB sent.
void holdRemoteUpload(Workplace const& place);

} // namespace bench
