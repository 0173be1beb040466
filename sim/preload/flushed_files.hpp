// Records which bytes of the host's files are on the disk while the builder watches flushes;
// Host::lose_unflushed removes all others.
#pragma once

namespace kxsim::preload {

// A file was opened: its content is on the disk unless it was written since flushes are watched.
// Returns the descriptor, which may be -1.
int opened(int descriptor);

// A file was flushed with that result, which is returned.
int flushed(int descriptor, int result);

}  // namespace kxsim::preload
