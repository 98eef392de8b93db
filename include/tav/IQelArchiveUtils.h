#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tav/Export.h"

namespace TAV
{

/// A format of archives. `createArchive` does not look at it: the extension of the archive's name decides.
enum class ArchiveType : std::int32_t
{
    SevenZip, ///< *.7z
    Zip,      ///< *.zip
};

/// One input file of an archive. `createArchive` does not look at it.
struct ArchiveInputFileInfo
{
    std::string path;          ///< where the file is
    std::string nameInArchive; ///< what it is called in the archive
};

/// Creates and extracts archives with the 7-Zip command-line tool, from the fixed path
/// /opt/Brenlow/zel/tav/bin/7za.
///
/// **A command.** Each operation runs the tool as a command without a keep-map: all that `ITAVUtils` says of
/// `executeSystemCommand` holds, the child that comes back included. Guard each call as it says there. The call blocks
/// until the tool ends; there is no time-out.
///
/// **The password.** The tool's whole command line is logged at level 6, and any local user can read it while the tool
/// runs: the password stands in both.
///
/// **Names.** No shell is involved, so blanks and quotes need no care. The tool itself, however, reads an input "@x" as
/// a list of files, "-x" as a switch, and '*' and '?' as wildcards, and deletes what it stored: pass absolute paths
/// without wildcards.
///
/// The order of the operations is part of the binary interface.
class TAV_EXPORT IQelArchiveUtils
{
public:
    virtual ~IQelArchiveUtils() = default;

    /// Moves files into an archive, with 7-Zip's command `a` and its switch `-sdel`: the tool deletes each input once
    /// it is stored.
    ///
    /// A result of false does not mean that the inputs are intact: with one input of two missing, the other one is
    /// stored and deleted, and the result is false. Names inside stay readable without the password. A missing
    /// directory is made; a name without extension gets ".7z".
    ///
    /// @param archivePath  the archive, made or added to; empty is refused
    /// @param type         not looked at
    /// @param files        the inputs, in the order in which the tool gets them; none is refused. A directory is stored
    ///                     and deleted with all that is in it.
    /// @param fileInfos    not looked at
    /// @param password     empty for none; otherwise handed to the tool as `-p` and the password, in one argument
    /// @return whether the tool ran and ended with status 0; false also for refused arguments
    virtual bool createArchive(const std::string& archivePath,
                               ArchiveType type,
                               const std::vector<std::string>& files,
                               const std::vector<ArchiveInputFileInfo>& fileInfos,
                               const std::string& password) = 0;

    /// Extracts every file of an archive straight into one directory, over existing files, with 7-Zip's command `e` and
    /// its switch `-aoa`. The directories held in the archive are dropped, so two entries of one base name overwrite
    /// each other.
    ///
    /// @param archivePath      the archive; empty is refused
    /// @param outputDirectory  made if missing; empty is refused
    /// @param password         empty for none; a password that the archive does not need does no harm
    /// @return whether the tool ran and ended with status 0; false also for refused arguments, a wrong password (unless
    ///         every file in a 7z archive is empty) and a damaged archive. What was extracted before the failure stays.
    virtual bool
    extractArchive(const std::string& archivePath, const std::string& outputDirectory, const std::string& password) = 0;
};

} // namespace TAV
