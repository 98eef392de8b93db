#include "tav/MagicUtils.h"

#include "frame/FailureCodes.h"
#include "tav/FMXException.h"

namespace TAV
{
namespace
{

constexpr const char* kCreateFailed = "Failed to create magic instance";

} // namespace

// Deliberately leaves the instance open: releasing it is the owner's call to magicClose.
MagicUtils::~MagicUtils() = default;

void MagicUtils::magicLoad(const char* path)
{
    if (magic_load(cookie, path) != -1)
        return;
    const char* reason = magic_error(cookie);
    throw FMXException(kDatabaseFailure, reason == nullptr ? "" : reason);
}

const char* MagicUtils::magicFile(const char* path)
{
    return magic_file(cookie, path);
}

void MagicUtils::magicClose()
{
    // The member deliberately keeps the stale handle; the contract forbids a second close.
    if (cookie != nullptr)
        magic_close(cookie);
}

void MagicUtils::magicOpen()
{
    cookie = magic_open(MAGIC_MIME_TYPE);
    if (cookie == nullptr)
        throw FMXException(kGeneralFailure, kCreateFailed);
}

const char* MagicUtils::magicDescriptor(int fd)
{
    return magic_descriptor(cookie, fd);
}

} // namespace TAV
