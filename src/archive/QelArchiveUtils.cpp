#include "tav/QelArchiveUtils.h"

#include <utility>

namespace TAV
{
namespace
{

constexpr const char* kArchiveToolPath = "/opt/Brenlow/zel/tav/bin/7za";

} // namespace

QelArchiveUtils::QelArchiveUtils(ILogger& logger, std::shared_ptr<ITAVUtils> utils)
    : m_logger(logger), m_componentName("QelArchiveUtils"), m_utils(std::move(utils))
{
}

QelArchiveUtils::~QelArchiveUtils() = default;

bool QelArchiveUtils::createArchive(const std::string& archivePath,
                                    ArchiveType,
                                    const std::vector<std::string>& files,
                                    const std::vector<ArchiveInputFileInfo>&,
                                    const std::string& password)
{
    if (archivePath.empty() || files.empty())
        return false;

    std::vector<std::string> argv{kArchiveToolPath, "a", "-sdel"};
    if (!password.empty())
        argv.push_back("-p" + password);
    argv.push_back(archivePath);
    argv.insert(argv.end(), files.begin(), files.end());
    return m_utils->executeSystemCommand(argv, nullptr);
}

bool QelArchiveUtils::extractArchive(const std::string& archivePath,
                                     const std::string& outputDirectory,
                                     const std::string& password)
{
    if (archivePath.empty() || outputDirectory.empty())
        return false;

    std::vector<std::string> argv{kArchiveToolPath, "e"};
    if (!password.empty())
        argv.push_back("-p" + password);
    argv.insert(argv.end(), {"-aoa", archivePath, "-o" + outputDirectory});
    return m_utils->executeSystemCommand(argv, nullptr);
}

} // namespace TAV
