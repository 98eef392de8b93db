#pragma once

namespace programs
{

/// Opens /dev/null on whichever of the descriptors 0, 1 and 2 a careless parent left closed, so that no file of ours
/// lands there; and takes SIGCHLD back to its default, as a parent that ignored it would make every wait fail.
/// Call it first of all.
void restoreProcessDefaults();

/// From now on a write to a connection that the other side has closed is an error of that write, and not the end of the
/// program: libcurl's TLS does such writes. Programs that are started later inherit this.
void ignoreBrokenPipes();

} // namespace programs
