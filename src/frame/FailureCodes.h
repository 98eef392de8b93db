#pragma once

namespace TAV
{

// The codes of FMXException.
constexpr int kGeneralFailure = 1;
constexpr int kDatabaseFailure = 3;

} // namespace TAV
