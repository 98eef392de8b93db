#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "tav/IkrbAPIWrapper.h"

namespace programs
{

/// An entry of a keytab, without its key.
struct KeytabEntry
{
    std::string principal;
    unsigned int version = 0;
    krb5_enctype type = 0;
    std::string typeName;
    std::time_t time = 0;
};

/// What is in a keytab, and who may read it.
struct Keytab
{
    std::string path;
    mode_t mode = 0; ///< permission bits
    std::uint64_t size = 0;
    std::vector<KeytabEntry> entries;
};

/// Reads a keytab with the calls of `api`.
/// @throws std::runtime_error  if it cannot be read; what() names the file and the reason
Keytab readKeytab(TAV::IkrbAPIWrapper& api, const std::string& path);

/// The principal in full, with the default realm if it has none.
/// @throws std::runtime_error  if it is no principal
std::string fullPrincipal(TAV::IkrbAPIWrapper& api, const std::string& principal);

} // namespace programs
