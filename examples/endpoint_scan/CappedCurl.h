#pragma once

#include <cstddef>
#include <string>

#include "common/OnlyGivenCa.h"

namespace endpointscan
{

/// The calls into libcurl, with an end to every answer: a server that sends for ever must not take all the memory. An
/// answer beyond the limit is broken off, and what came of it is no complete JSON text.
///
/// Besides, nothing is thrown through libcurl, where it would leave the session unusable, and only the given CA file
/// tells whom to trust.
class CappedCurl : public programs::OnlyGivenCa
{
public:
    static constexpr std::size_t kLongestAnswer = 64UL * 1024;

    CURLcode curlSetCallbackFuncOpt(void* handle) override;

    /// libcurl's write function.
    /// @return the bytes that were taken; less than there are breaks the transfer off
    static std::size_t write(char* data, std::size_t size, std::size_t count, std::string* answer) noexcept;
};

} // namespace endpointscan
