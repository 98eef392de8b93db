#pragma once

namespace endpointscan
{

/// From now on SIGINT and SIGTERM only leave a note. System calls go on: a wait for the archive tool that was broken
/// off would look like a failure of the tool while it still runs.
void noteInterrupts();

/// Whether there was one. Any thread.
bool isInterrupted();

} // namespace endpointscan
