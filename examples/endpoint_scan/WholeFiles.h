#pragma once

#include <string>

/// Files that are there whole or not at all, whatever happens. Until they are complete they have names of their own,
/// ".partial-PROCESS-NUMBER": the final name may be as long as the file system allows. Failures are std::system_error.
namespace endpointscan
{

/// Moves a file. Across file systems it is copied under another name first, synced, renamed, and only then removed at
/// its old place. An existing file of the new name makes it fail.
void moveFile(int fromDirectory, const std::string& fromName, int toDirectory, const std::string& toName);

/// Gives a file a second name, or copies it where the file system has no second names.
void linkOrCopy(int fromDirectory, const std::string& fromName, int toDirectory, const std::string& toName);

/// Writes a file, and replaces a former one. A link, a device or whatever else is no regular file stays, and makes it
/// fail.
void writeAtomically(int directory, const std::string& name, const std::string& content);
/// The same by path.
void writeAtomically(const std::string& path, const std::string& content);

} // namespace endpointscan
