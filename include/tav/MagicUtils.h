#pragma once

#include <magic.h>

#include "tav/IMagic.h"

namespace TAV
{

/// `IMagic` over libmagic. It neither logs nor takes collaborators.
///
/// **Ownership.** The destructor does not close the instance: call `magicClose` first, or the instance leaks. Queries
/// before `magicOpen` are not guarded; libmagic answers them with null.
class TAV_EXPORT MagicUtils : public IMagic
{
public:
    MagicUtils() = default;
    MagicUtils(const MagicUtils&) = delete;
    MagicUtils& operator=(const MagicUtils&) = delete;
    ~MagicUtils() override;

    void magicLoad(const char* path) override;
    const char* magicFile(const char* path) override;
    void magicClose() override;
    void magicOpen() override;
    const char* magicDescriptor(int fd) override;

private:
    magic_t cookie = nullptr;
};

} // namespace TAV
