#include <krb5/krb5.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "Cases.h"
#include "NoLogger.h"
#include "Pair.h"
#include "support/Kdc.h"
#include "support/TemporaryDirectory.h"
#include "tav/KrbAPIWrapper.h"
#include "tav/KrbHandler.h"
#include "tav/TAVSystemUtils.h"

namespace TAV::bench
{
namespace
{

constexpr const char* kUser = "user";
constexpr const char* kPassword = "a password";
constexpr const char* kKinit = "/usr/bin/kinit";

/// Everything but the KDC: the ticket is always granted.
class WithoutKdc : public KrbAPIWrapper
{
public:
    krb5_error_code krb5GetInitCredsKeytab(krb5_context,
                                           krb5_creds*,
                                           krb5_principal,
                                           krb5_keytab,
                                           krb5_deltat,
                                           const char*,
                                           krb5_get_init_creds_opt*) override
    {
        return 0;
    }
};

void check(krb5_error_code error)
{
    require(error == 0, "a call of libkrb5");
}

krb5_data copyOf(const char* text)
{
    krb5_data data = {};
    data.length = static_cast<unsigned int>(std::strlen(text));
    data.data = static_cast<char*>(std::calloc(8192, 1));
    std::memcpy(data.data, text, data.length);
    return data;
}

/// A renewal written straight upon libkrb5: the same calls in the same order.
void renewPlainly(const std::string& principalName, const std::string& cache, const std::string& keytabPath, bool ask)
{
    static_cast<void>(std::remove(cache.c_str()));
    static_cast<void>(std::remove(keytabPath.c_str()));
    krb5_context context = nullptr;
    check(krb5_init_context(&context));
    krb5_principal principal = nullptr;
    check(krb5_parse_name(context, principalName.c_str(), &principal));
    std::array<char, 17> typeName{"arcfour-hmac-md5"};
    krb5_keytab_entry entry = {};
    krb5_enctype type = 0;
    check(krb5_string_to_enctype(typeName.data(), &type));
    check(krb5_timeofday(context, &entry.timestamp));
    krb5_data password = copyOf(kPassword);
    krb5_data salt = {};
    check(krb5_principal2salt(context, principal, &salt));
    check(krb5_c_string_to_key(context, type, &password, &salt, &entry.key));
    krb5_free_data_contents(context, &password);
    entry.principal = principal;
    entry.vno = 2;

    krb5_keytab keytab = nullptr;
    check(krb5_kt_resolve(context, ("WRFILE:" + keytabPath).c_str(), &keytab));
    check(krb5_kt_add_entry(context, keytab, &entry));
    krb5_ccache ccache = nullptr;
    check(krb5_cc_resolve(context, cache.c_str(), &ccache));
    krb5_creds creds = {};
    if (ask)
        check(krb5_get_init_creds_keytab(context, &creds, principal, keytab, 0, nullptr, nullptr));

    krb5_free_principal(context, principal);
    krb5_free_data_contents(context, &salt);
    krb5_cc_close(context, ccache);
    krb5_kt_close(context, keytab);
    krb5_free_context(context);
}

std::unique_ptr<test::Kdc> startKdc()
{
    if (const std::string missing = test::Kdc::missing(); !missing.empty())
        throw std::runtime_error(missing);
    return std::make_unique<test::Kdc>();
}

/// A KDC with one account, and handlers for it.
class Scene
{
public:
    Scene()
    {
        m_kdc->addUser(kUser, kPassword);
        ::setenv("KRB5_CONFIG", m_kdc->clientConfig().c_str(), 1);
        TAVProxyConfig config;
        config.userPrincipal = m_principal;
        config.password = kPassword;
        m_handler = makeHandler(std::make_shared<KrbAPIWrapper>());
        m_alone = makeHandler(std::make_shared<WithoutKdc>());
        require(m_alone->configKrbSession(config), "a renewal without the KDC");
        require(m_handler->configKrbSession(config), "a renewal");
        m_keptKeytab = m_files.file("kinit.keytab");
        renewPlainly(m_principal, m_files.file("kinit.cache"), m_keptKeytab, false);
    }

    void renew() { require(m_handler->renewTicket(), "a renewal"); }
    void renewAlone() { require(m_alone->renewTicket(), "a renewal without the KDC"); }
    void renewBarely() { renewPlainly(m_principal, m_cache, m_keytab, true); }
    void renewBarelyAlone() { renewPlainly(m_principal, m_cache, m_keytab, false); }

    /// The command for the same: it writes the cache besides.
    void kinit()
    {
        const pid_t pid = ::fork();
        if (pid == 0)
        {
            ::execl(
                kKinit, kKinit, "-k", "-t", m_keptKeytab.c_str(), "-c", m_cache.c_str(), m_principal.c_str(), nullptr);
            ::_exit(127);
        }
        int status = 0;
        require(pid > 0 && ::waitpid(pid, &status, 0) == pid && status == 0, kKinit);
    }

private:
    std::unique_ptr<KrbHandler> makeHandler(std::shared_ptr<IkrbAPIWrapper> api)
    {
        return std::make_unique<KrbHandler>(
            m_logger, std::make_shared<TAVSystemUtils>(), m_cache, m_keytab, std::move(api));
    }

    std::unique_ptr<test::Kdc> m_kdc = startKdc();
    test::TemporaryDirectory m_files;
    std::string m_cache = m_files.file("cache");
    std::string m_keytab = m_files.file("keytab");
    std::string m_keptKeytab;
    std::string m_principal = std::string(kUser) + "@" + m_kdc->realm();
    NoLogger m_logger;
    std::unique_ptr<KrbHandler> m_handler;
    std::unique_ptr<KrbHandler> m_alone;
};

using Way = void (Scene::*)();

void add(const char* what, Way ours, const char* peer, Way theirs, double target)
{
    const WhileMeasured<Scene> scene;
    Pair pair{what, peer, target};
    pair.ours = [scene, ours] { ((*scene).*ours)(); };
    pair.theirs = [scene, theirs] { ((*scene).*theirs)(); };
    pair.surroundings = scene.madeBy(std::make_unique<Scene>);
    compare(std::move(pair));
}

} // namespace

void addRenewalCases()
{
    constexpr const char* kPlain = "plain libkrb5";
    add("renew a ticket", &Scene::renew, kPlain, &Scene::renewBarely, 1.05);
    add("renew a ticket", &Scene::renew, "kinit -k", &Scene::kinit, kAhead);
    add("renew, KDC's part left out", &Scene::renewAlone, kPlain, &Scene::renewBarelyAlone, kNoTarget);
    add("renew, KDC's part left out", &Scene::renewAlone, "the whole renewal", &Scene::renew, kNoTarget);
}

} // namespace TAV::bench
