#pragma once

#include <memory>

#include "tav/ILogger.h"
#include "tav/IQelArchiveUtils.h"
#include "tav/ITAVUtils.h"

namespace TAV
{

/// `IQelArchiveUtils` through the command operation of an `ITAVUtils`. It writes no log lines of its own.
///
/// **Threads.** It has no state that changes: any thread may call it, as far as the `ITAVUtils` allows it.
class TAV_EXPORT QelArchiveUtils : public IQelArchiveUtils
{
public:
    /// @param logger  kept by reference: it must outlive this object
    /// @param utils   runs the tool; shared with the caller, and not checked for null
    QelArchiveUtils(ILogger& logger, std::shared_ptr<ITAVUtils> utils);
    QelArchiveUtils(const QelArchiveUtils&) = delete;
    QelArchiveUtils& operator=(const QelArchiveUtils&) = delete;
    ~QelArchiveUtils() override;

    bool createArchive(const std::string& archivePath,
                       ArchiveType type,
                       const std::vector<std::string>& files,
                       const std::vector<ArchiveInputFileInfo>& fileInfos,
                       const std::string& password) override;
    bool extractArchive(const std::string& archivePath,
                        const std::string& outputDirectory,
                        const std::string& password) override;

private:
    [[maybe_unused]] ILogger& m_logger; // kept so that every service is constructed alike
    std::string m_componentName;
    std::shared_ptr<ITAVUtils> m_utils;
};

} // namespace TAV
