#pragma once

#include "endpoint_scan/DenyList.h"
#include "endpoint_scan/Verdicts.h"

namespace endpointscan
{

/// The verdicts of a list that everything else is clean to.
class DenyListVerdicts : public Verdicts
{
public:
    explicit DenyListVerdicts(DenyList list) : m_list(std::move(list)) {}

    const char* name() const override { return "deny list"; }
    void prepare(std::size_t) override {}
    Opinion ask(const std::string& sha256, std::size_t) override
    {
        return {m_list.contains(sha256) ? Verdict::Denied : Verdict::Clean, "", std::nullopt};
    }

private:
    DenyList m_list;
};

} // namespace endpointscan
