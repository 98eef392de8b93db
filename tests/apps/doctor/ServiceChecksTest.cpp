#include "CheckCase.h"

namespace TAV::test
{
namespace
{

using namespace tavctl::doctor;

class ServiceChecksTest : public testing::TestWithParam<CheckCase>
{
};

TEST_P(ServiceChecksTest, TellsStateTextAndAdvice)
{
    expectFinding(GetParam());
}

CheckCase bundle(const char* name,
                 const std::string& text,
                 std::time_t time,
                 State state,
                 const char* found,
                 const char* advice = "")
{
    const auto arrange = [text, time](FakeHost& h, Questions& q)
    { h.files["ca.pem"] = text, h.time = time, q.caFile = "ca.pem"; };
    return {name, checkCertificates, arrange, state, found, advice};
}

const std::string kBoth = std::string("# two\n") + kPastCertificate + "\n" + kPresentCertificate;

INSTANTIATE_TEST_SUITE_P(
    Queries,
    ServiceChecksTest,
    testing::Values(
        CheckCase{"Libcurl", checkLibcurl, nothing, State::Ok, "libcurl 7.88.1 with OpenSSL/3.0.11"},
        CheckCase{"LibcurlWithoutTls",
                  checkLibcurl,
                  [](FakeHost& h, Questions&) { h.curlFacts.tls = ""; },
                  State::Problem,
                  "libcurl 7.88.1 was built without TLS",
                  "libcurl4"},
        CheckCase{"LibcurlWithoutHttps",
                  checkLibcurl,
                  [](FakeHost& h, Questions&) { h.curlFacts.speaksHttps = false; },
                  State::Problem,
                  "libcurl 7.88.1 was built without TLS",
                  "libcurl4"},
        CheckCase{"Http2", checkHttp2, nothing, State::Ok, "spoken where the server offers it"},
        CheckCase{"NoHttp2",
                  checkHttp2,
                  [](FakeHost& h, Questions&) { h.curlFacts.speaksHttp2 = false; },
                  State::Note,
                  "not built in: queries use HTTP/1.1, and work as well"},
        CheckCase{"Negotiate", checkNegotiate, nothing, State::Ok, "GSSAPI and SPNEGO: a proxy may ask for Kerberos"},
        CheckCase{"NoNegotiate",
                  checkNegotiate,
                  [](FakeHost& h, Questions&) { h.curlFacts.speaksNegotiate = false; },
                  State::Warning,
                  "no GSSAPI or no SPNEGO: a proxy that asks for Kerberos cannot be passed",
                  "not needed if no proxy asks for it"},
        bundle("OneCertificate", kPresentCertificate, kMidst2025, State::Ok, "ca.pem: 1 certificate, valid now"),
        bundle("CertificateOfThePast",
               kPastCertificate,
               kMidst2025,
               State::Problem,
               "ca.pem: none of 1 certificate is valid now",
               "clock"),
        bundle("CertificatesOfTheFuture",
               kBoth,
               kMidst2019,
               State::Problem,
               "ca.pem: none of 2 certificates is valid now",
               "clock"),
        bundle("CertificatesOfThePast",
               kBoth,
               kMidst2035,
               State::Problem,
               "ca.pem: none of 2 certificates is valid now",
               "clock"),
        bundle("OneExpired",
               kBoth,
               kMidst2025,
               State::Note,
               "ca.pem: 1 certificate valid, 1 expired, 0 not yet valid",
               "refused"),
        bundle("OneNotYetValid",
               kBoth,
               kMidst2020,
               State::Note,
               "ca.pem: 1 certificate valid, 0 expired, 1 not yet valid",
               "refused"),
        bundle("Empty", "", kMidst2025, State::Problem, "ca.pem holds no certificate", "code 77"),
        bundle("NoPem", "\x30\x82\x01", kMidst2025, State::Problem, "ca.pem holds no certificate", "code 77"),
        bundle("Damaged",
               std::string(kPresentCertificate) + "-----BEGIN CERTIFICATE-----\nMIIBxx\n-----END CERTIFICATE-----\n",
               kMidst2025,
               State::Problem,
               "ca.pem is damaged behind 1 certificate",
               "replace it"),
        bundle("CutOff",
               std::string(kPresentCertificate).substr(0, 200),
               kMidst2025,
               State::Problem,
               "ca.pem is damaged behind 0 certificates",
               "replace it"),
        CheckCase{"CertificatesUnreadable",
                  checkCertificates,
                  [](FakeHost& h, Questions& q) { q.caFile = "ca.pem", h.unreadable.insert("ca.pem"); },
                  State::Problem,
                  "ca.pem: Permission denied",
                  "code 77"},
        CheckCase{"CertificatesMissing",
                  checkCertificates,
                  [](FakeHost&, Questions& q) { q.caFile = "no\n.pem"; },
                  State::Problem,
                  "no\\x0a.pem: No such file or directory",
                  "code 77"}),
    nameOfCase);

void askServer(Questions& questions)
{
    questions.server = "host:8443";
}

INSTANTIATE_TEST_SUITE_P(
    Network,
    ServiceChecksTest,
    testing::Values(CheckCase{"ServerNotAskedFor",
                              checkServer,
                              nothing,
                              State::Note,
                              "not tried; --server HOST:PORT --ca FILE sends it a query"},
                    CheckCase{"Server",
                              checkServer,
                              [](FakeHost&, Questions& q) { askServer(q); },
                              State::Ok,
                              "host:8443 answers with HTTP 200 in 47 ms, TLS stood after 32 ms"},
                    CheckCase{"ServerOfAnotherStatus",
                              checkServer,
                              [](FakeHost& h, Questions& q) {
                                  askServer(q), h.queryAttempt = {"", 404, 0.005, 0};
                              },
                              State::Ok,
                              "host:8443 answers with HTTP 404 in 5 ms"},
                    CheckCase{"ServerThatIsSlow",
                              checkServer,
                              [](FakeHost& h, Questions& q) {
                                  askServer(q), h.queryAttempt = {"", 200, 2.5, 2.4};
                              },
                              State::Note,
                              "host:8443 answers with HTTP 200 in 2500 ms, TLS stood after 2400 ms, which is long"},
                    CheckCase{"ServerWantsUser",
                              checkServer,
                              [](FakeHost& h, Questions& q) {
                                  askServer(q), h.queryAttempt = {"", 407, 0.005, 0};
                              },
                              State::Warning,
                              "host:8443 answers with HTTP 407 in 5 ms",
                              "wants a user"},
                    CheckCase{"ServerUnreachable",
                              checkServer,
                              [](FakeHost& h, Questions& q)
                              { askServer(q), h.queryAttempt.error = "Couldn't connect to server"; },
                              State::Problem,
                              "host:8443: Couldn't connect to server",
                              "tavctl query --verbose"},
                    CheckCase{"ServerUnreachableBehindProxy",
                              checkServer,
                              [](FakeHost& h, Questions& q)
                              { askServer(q), q.proxy = "proxy:3128", h.queryAttempt.error = "no answer"; },
                              State::Problem,
                              "host:8443: no answer",
                              "Kerberos ticket"},
                    CheckCase{"Proxy",
                              checkProxy,
                              [](FakeHost&, Questions& q) { q.proxy = "proxy:3128"; },
                              State::Ok,
                              "proxy:3128 takes connections in 2 ms"},
                    CheckCase{"ProxyUnreachable",
                              checkProxy,
                              [](FakeHost& h, Questions& q)
                              { q.proxy = "proxy:3128", h.connection.error = "Couldn't resolve host name"; },
                              State::Problem,
                              "proxy:3128: Couldn't resolve host name",
                              "name and port"}),
    nameOfCase);

CheckCase kerberos(const char* name,
                   Look look,
                   const std::function<void(KerberosFacts&)>& change,
                   State state,
                   const char* text,
                   const char* advice = "")
{
    return {name, look, [change](FakeHost& h, Questions&) { change(h.kerberosFacts); }, state, text, advice};
}

INSTANTIATE_TEST_SUITE_P(
    Kerberos,
    ServiceChecksTest,
    testing::Values(
        CheckCase{"Configuration",
                  checkKerberosConfiguration,
                  nothing,
                  State::Ok,
                  "/etc/krb5.conf, default realm EXAMPLE.ORG"},
        CheckCase{"SecondOfTwoFiles",
                  checkKerberosConfiguration,
                  [](FakeHost& h, Questions&) { h.variables["KRB5_CONFIG"] = "/missing:/etc/krb5.conf"; },
                  State::Ok,
                  "/missing:/etc/krb5.conf, default realm EXAMPLE.ORG"},
        CheckCase{"NoFile",
                  checkKerberosConfiguration,
                  [](FakeHost& h, Questions&) { h.variables["KRB5_CONFIG"] = "/missing:/neither"; },
                  State::Warning,
                  "/missing:/neither cannot be read: no realm is configured",
                  "KRB5_CONFIG"},
        CheckCase{"EmptyVariable",
                  checkKerberosConfiguration,
                  [](FakeHost& h, Questions&) { h.variables["KRB5_CONFIG"] = ""; },
                  State::Warning,
                  "the empty path in KRB5_CONFIG cannot be read: no realm is configured",
                  "KRB5_CONFIG"},
        kerberos(
            "Malformed",
            checkKerberosConfiguration,
            [](KerberosFacts& f) { f.error = "Improper format of Kerberos configuration file"; },
            State::Problem,
            "/etc/krb5.conf: Improper format of Kerberos configuration file",
            "renewal fails"),
        kerberos(
            "NoDefaultRealm",
            checkKerberosConfiguration,
            [](KerberosFacts& f) { f.defaultRealm = ""; },
            State::Note,
            "/etc/krb5.conf sets no default_realm: give principals as user@REALM"),
        kerberos(
            "SampleRealm",
            checkKerberosConfiguration,
            [](KerberosFacts& f) { f.defaultRealm = "ATHENA.MIT.EDU"; },
            State::Warning,
            "/etc/krb5.conf is the distribution's sample: its default realm is ATHENA.MIT.EDU",
            "on the Internet"),
        CheckCase{"Rc4", checkRc4, nothing, State::Ok, "an arcfour-hmac-md5 key was derived, and is permitted"},
        kerberos(
            "Rc4WithSettings",
            checkRc4,
            [](KerberosFacts& f) { f.allowWeakCrypto = "true", f.allowRc4 = "true"; },
            State::Ok,
            "an arcfour-hmac-md5 key was derived, and is permitted (allow_weak_crypto = true, allow_rc4 = true)"),
        kerberos(
            "Rc4NotPermitted",
            checkRc4,
            [](KerberosFacts& f) { f.isRc4Permitted = false, f.permittedEnctypes = "aes256-cts"; },
            State::Problem,
            "arcfour-hmac is not among the permitted types: no ticket is found for its key (permitted_enctypes = "
            "aes256-cts)",
            "add arcfour-hmac to permitted_enctypes"),
        kerberos(
            "Rc4NotDerived",
            checkRc4,
            [](KerberosFacts& f) { f.rc4Error = "Bad encryption type"; },
            State::Problem,
            "no arcfour-hmac-md5 key can be derived: Bad encryption type",
            "FIPS"),
        kerberos(
            "Rc4SwitchedOffLater",
            checkRc4,
            [](KerberosFacts& f) { f.allowRc4 = "false"; },
            State::Warning,
            "arcfour-hmac is usable now, but switched off for newer releases (allow_rc4 = false)",
            "allow_rc4 = true"),
        kerberos(
            "Rc4NotTried",
            checkRc4,
            [](KerberosFacts& f) { f.error = "broken"; },
            State::Problem,
            "not tried: the Kerberos library does not start")),
    nameOfCase);

} // namespace
} // namespace TAV::test
