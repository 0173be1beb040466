// Which bytes of the host's files are on the disk, while the builder watches flushes: all others
// are lost by Host::lose_unflushed.
#pragma once

namespace kxsim::preload {

// A file was opened: what it holds is on the disk unless it was written to since flushes are
// watched. Returns the descriptor, which may be -1.
int opened(int descriptor);

// A file was flushed with that result, which is returned.
int flushed(int descriptor, int result);

}  // namespace kxsim::preload
