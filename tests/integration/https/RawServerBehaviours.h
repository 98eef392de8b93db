#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "QueryScene.h"
#include "RawTlsServer.h"

namespace TAV::test
{

/// What becomes of the connection.
enum class Afterwards
{
    Closed,
    Kept,
};

/// A way in which a server answers the first query of a session, and what the caller gets.
struct Behaviour
{
    std::string name; ///< of the test case
    std::string what; ///< for the page
    Script script;
    CURLcode transfer = CURLE_OK;
    long status = 0;
    std::string statusText; ///< as logged
    std::string body;
    Afterwards afterwards = Afterwards::Closed;
    long timeout = 60; ///< seconds
    TlsOptions tls = {};
};

std::ostream& operator<<(std::ostream& out, const Behaviour& behaviour);

/// All of them, in the order of the page.
const std::vector<Behaviour>& rawServerBehaviours();

/// The row of a behaviour in the page.
std::string rowOf(const Behaviour& behaviour, const std::string& testName);

} // namespace TAV::test
