#pragma once

namespace TAV
{

// The values are syslog's: critical, notice and informational.
constexpr int kLogFailure = 2;
constexpr int kLogState = 5;
constexpr int kLogDetail = 6;

} // namespace TAV
