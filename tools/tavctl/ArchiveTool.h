#pragma once

namespace tavctl
{

/// Where the library runs 7-Zip from.
inline constexpr const char* kArchiveToolPath = "/opt/Brenlow/zel/tav/bin/7za";

} // namespace tavctl
