#pragma once

namespace TAV::test
{

/// From now on, counts each time that this process asks the heap for a block or gives one back.
void startCountingHeapUse();

/// The count so far; the counting stops.
unsigned int stopCountingHeapUse();

} // namespace TAV::test
