#pragma once

namespace TAV::bench
{

/// The library's side of the rows about commands: runs /bin/true.
void runTrue();

/// Runs /bin/echo and reads what it says.
void captureEcho();

} // namespace TAV::bench
