#pragma once

#include <stdexcept>
#include <string>

namespace programs
{

/// A secret that cannot be had; `what()` says why, for people.
class SecretError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Where a secret comes from. Never a command line: that is open to everybody on the machine.
struct SecretSource
{
    std::string file;        ///< path of a file; its first newline at the end is dropped
    std::string environment; ///< name of an environment variable
    bool prompt = false;     ///< ask on the terminal

    bool isGiven() const { return !file.empty() || !environment.empty() || prompt; }
};

/// Reads a secret from the one source that is given, the file first.
///
/// The terminal does not show what is typed. A signal that ends the process meanwhile, Ctrl-C for instance, finds the
/// terminal as it was before; so does Ctrl-Z, and the question is asked again when the process goes on.
/// @throws SecretError  if it is missing, empty, unreadable or holds a zero byte
std::string readSecret(const SecretSource& source);

/// The same for an archive password, which besides is one line, as the archive tool gets it as one argument.
std::string readPassword(const SecretSource& source);

} // namespace programs
