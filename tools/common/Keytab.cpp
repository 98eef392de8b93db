#include "common/Keytab.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace programs
{
namespace
{

constexpr mode_t kPermissions = 07777;

/// A library context, and how to tell of its errors.
class Context
{
public:
    Context(TAV::IkrbAPIWrapper& api, std::string name) : m_api(api), m_name(std::move(name))
    {
        require(api.krb5InitContext(&m_context));
    }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    ~Context() { m_api.krb5FreeContext(m_context); }

    krb5_context get() const { return m_context; }

    void require(krb5_error_code error) const
    {
        if (error == 0)
            return;
        // Without the context, which need not be there and may be a test's.
        const char* text = krb5_get_error_message(nullptr, error);
        const std::string message = m_name + ": " + text;
        krb5_free_error_message(nullptr, text);
        throw std::runtime_error(message);
    }

private:
    TAV::IkrbAPIWrapper& m_api;
    std::string m_name;
    krb5_context m_context = nullptr;
};

/// The text of a principal, which is released however that goes.
std::string takenText(TAV::IkrbAPIWrapper& api, const Context& context, krb5_principal principal)
{
    char* name = nullptr;
    const krb5_error_code error = api.krb5UnparseName(context.get(), principal, &name);
    api.krb5FreePrincipal(context.get(), principal);
    context.require(error);
    std::string text = name;
    krb5_free_unparsed_name(context.get(), name);
    return text;
}

std::string nameOf(krb5_enctype type)
{
    std::array<char, 64> name{};
    if (krb5_enctype_to_name(type, 0, name.data(), name.size()) != 0)
        return "type " + std::to_string(type);
    return name.data();
}

/// Reads the entries one by one, and ends the reading however it goes.
class Reader
{
public:
    Reader(TAV::IkrbAPIWrapper& api, const Context& context, const std::string& path) : m_api(api), m_context(context)
    {
        context.require(api.krb5KtResolve(context.get(), ("FILE:" + path).c_str(), &m_keytab));
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader()
    {
        if (m_hasBegun)
            m_api.krb5KtEndSeqGet(m_context.get(), m_keytab, &m_cursor);
        m_api.krb5KtClose(m_context.get(), m_keytab);
    }

    std::vector<KeytabEntry> readAll()
    {
        m_context.require(m_api.krb5KtStartSeqGet(m_context.get(), m_keytab, &m_cursor));
        m_hasBegun = true;
        std::vector<KeytabEntry> entries;
        for (;;)
        {
            krb5_keytab_entry entry{};
            const krb5_error_code error = m_api.krb5KtNextEntry(m_context.get(), m_keytab, &entry, &m_cursor);
            if (error == KRB5_KT_END)
                return entries;
            m_context.require(error);
            entries.push_back(taken(entry));
        }
    }

private:
    /// Takes what may be shown, and releases the rest.
    KeytabEntry taken(krb5_keytab_entry& entry)
    {
        KeytabEntry result;
        result.version = entry.vno;
        result.type = entry.key.enctype;
        result.typeName = nameOf(entry.key.enctype);
        result.time = static_cast<std::uint32_t>(entry.timestamp); // beyond 2038 too
        m_api.krb5FreeKeyblockContents(m_context.get(), &entry.key);
        result.principal = takenText(m_api, m_context, entry.principal);
        return result;
    }

    TAV::IkrbAPIWrapper& m_api;
    const Context& m_context;
    krb5_keytab m_keytab = nullptr;
    krb5_kt_cursor m_cursor = nullptr;
    bool m_hasBegun = false;
};

} // namespace

Keytab readKeytab(TAV::IkrbAPIWrapper& api, const std::string& path)
{
    Keytab keytab;
    keytab.path = path;
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    if (!S_ISREG(status.st_mode))
        throw std::runtime_error(path + ": not a regular file");
    keytab.mode = status.st_mode & kPermissions;
    keytab.size = static_cast<std::uint64_t>(status.st_size);
    const Context context(api, path);
    keytab.entries = Reader(api, context, path).readAll();
    return keytab;
}

std::string fullPrincipal(TAV::IkrbAPIWrapper& api, const std::string& principal)
{
    const Context context(api, principal);
    krb5_principal parsed = nullptr;
    context.require(api.krb5ParseName(context.get(), principal.c_str(), &parsed));
    return takenText(api, context, parsed);
}

} // namespace programs
