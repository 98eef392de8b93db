#pragma once

namespace TAV::test
{

/// Makes the kernel refuse close_range(2) with `err` to this process and its children from now on, as an old kernel
/// (ENOSYS) or a container's filter (EPERM) does. Throws std::runtime_error if that cannot be had.
void refuseCloseRange(int err);

} // namespace TAV::test
