#pragma once

#include <string>

#include "endpoint_scan/DenyList.h"
#include "endpoint_scan/Types.h"
#include "tav/MagicUtils.h"
#include "tav/QelSSLUtils.h"

namespace endpointscan
{

/// Looks at one file at a time: MIME type, checksums, deny list. Belongs to the thread that made it, as libmagic does.
class Examiner
{
public:
    /// @param root  an open directory, which the paths are below
    /// @throws TAV::FMXException  if the database of file types cannot be loaded
    Examiner(int root, const DenyList& denyList);
    Examiner(const Examiner&) = delete;
    Examiner& operator=(const Examiner&) = delete;
    ~Examiner();

    /// Fills in the verdict, with facts or a reason.
    void examine(Finding& finding);

private:
    bool examineOnce(Finding& finding);

    int m_root;
    const DenyList& m_denyList;
    TAV::MagicUtils m_magic;
    TAV::QelSSLUtils m_ssl;
};

} // namespace endpointscan
