#pragma once

#include "tavctl/Context.h"
#include "tavctl/doctor/Host.h"

namespace tavctl::doctor
{

/// This machine, seen through the library wherever the library sees it.
class SystemHost : public Host
{
public:
    explicit SystemHost(Context& context) : m_context(context) {}

    std::string kernelRelease() override;
    FileText read(const std::string& path) override;
    bool exists(const std::string& path) override;
    bool isWritable(const std::string& path) override;
    std::optional<std::string> environment(const std::string& name) override;
    std::time_t now() override;

    Limit descriptorLimit() override;
    Limit coreLimit() override;
    int closeRangeError() override;

    std::string obstacleToRun(const std::string& program) override;
    CommandOutput run(const std::vector<std::string>& argv) override;

    std::string hashingError() override;
    MimeAnswer mimeTypeOf(const std::string& bytes) override;
    CurlFacts curl() override;
    KerberosFacts kerberos() override;

    Attempt connectTo(const std::string& proxy, long timeout) override;
    Attempt query(const Questions& questions) override;

private:
    Context& m_context;
};

} // namespace tavctl::doctor
