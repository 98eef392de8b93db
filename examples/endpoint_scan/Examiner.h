#pragma once

#include <string>

#include "endpoint_scan/Types.h"
#include "endpoint_scan/Verdicts.h"
#include "tav/MagicUtils.h"
#include "tav/QelSSLUtils.h"

namespace endpointscan
{

/// Looks at one file at a time: MIME type, checksums, verdict. Belongs to the thread that made it, as libmagic does.
class Examiner
{
public:
    /// @param root      an open directory, which the paths are below
    /// @param verdicts  asked for each file
    /// @param asker     as whom to ask them
    /// @throws TAV::FMXException  if the database of file types cannot be loaded
    Examiner(int root, Verdicts& verdicts, std::size_t asker);
    Examiner(const Examiner&) = delete;
    Examiner& operator=(const Examiner&) = delete;
    ~Examiner();

    /// Fills in the verdict, with facts or a reason.
    void examine(Finding& finding);

private:
    bool examineOnce(Finding& finding);
    void judge(Finding& finding);

    int m_root;
    Verdicts& m_verdicts;
    std::size_t m_asker;
    TAV::MagicUtils m_magic;
    TAV::QelSSLUtils m_ssl;
};

} // namespace endpointscan
