#pragma once

#include "tav/CurlAPIUtility.h"

namespace programs
{

/// The calls into libcurl, for sessions that trust the CA file of their configuration and nobody else. libcurl by
/// itself trusts the authorities of the machine as well, which it looks up in a directory that it was built with.
class OnlyGivenCa : public TAV::CurlAPIUtility
{
public:
    void* curlEasyInit() override;
};

} // namespace programs
