#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "KerberosScene.h"
#include "support/Kdc.h"

namespace TAV::test
{

/// What a renewal meets. By default, all is well.
struct Circumstances
{
    KdcSettings kdc;
    std::vector<std::string> accountOptions; ///< of kadmin's addprinc, for the account "user"
    std::function<void(Kdc&)> change;        ///< done to the KDC before the renewal
    std::string defaults;                    ///< lines of the client's [libdefaults]
    std::string configText;                  ///< a whole krb5.conf instead of the usual one
    std::string user = kUser;
    std::string password = kPassword;
    std::string cacheName = "cache";
    std::string keytabName = "keytab";
    std::function<void(const KerberosScene&)> prepare; ///< done to the directory before the renewal
};

/// A state of KDC, account, configuration or files, and how the first renewal in it ends: a row of the page on
/// Kerberos.
struct KdcState
{
    const char* name;      ///< of the test's parameter
    const char* state;     ///< as the page puts it
    const char* reason;    ///< the message that is logged at level 6; null: renewed
    krb5_error_code error; ///< what libkrb5 says, so that the state is what it is said to be
    const char* files;     ///< what lies in the directory afterwards
    std::function<void(Circumstances&)> arrange;
    int seconds = 0; ///< that the renewal takes; 0: it ends at once
};

std::ostream& operator<<(std::ostream& out, const KdcState& state);

/// Those that end at once.
const std::vector<KdcState>& promptStates();

/// Those in which nothing answers, so that libkrb5 waits. Each has a realm of its own.
const std::vector<KdcState>& silentStates();

/// What befalls a handler that has renewed before, one after the other.
const std::vector<KdcState>& laterStates();

/// There is no configuration at all.
const KdcState& unconfiguredState();

/// The lines of the page for a state.
/// @param test  the full name of the test that brought it about
std::string pageRow(const KdcState& state, const std::string& test);

/// The line in which a renewal in this state ends.
LogLine lastLine(const KdcState& state);

/// All lines, if neither of the two files was there before.
std::vector<LogLine> expectedLog(const KdcState& state);

} // namespace TAV::test
