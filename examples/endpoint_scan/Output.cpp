#include "endpoint_scan/Output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "common/Text.h"
#include "endpoint_scan/WholeFiles.h"

namespace endpointscan
{
namespace
{

void print(const std::string& text)
{
    if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
        throw std::runtime_error("cannot write to standard output");
}

/// @return what went wrong, if anything
std::exception_ptr tryToWrite(const std::string& path, const std::string& text)
{
    try
    {
        writeAtomically(path, text);
        return nullptr;
    }
    catch (const std::exception&)
    {
        return std::current_exception();
    }
}

} // namespace

std::string obstacleToReport(const std::string& path)
{
    if (path == kStandardOutput)
        return "";
    const std::string name = programs::printable(path) + ": ";
    struct stat status = {};
    const bool isThere = ::lstat(path.c_str(), &status) == 0;
    if (isThere && !S_ISREG(status.st_mode))
        return name + "not a regular file; - is standard output";
    const std::string directory = (std::filesystem::path(path).parent_path() / ".").string();
    if ((!isThere && errno != ENOENT) || ::access(directory.c_str(), W_OK) != 0)
        return name + std::strerror(errno);
    return "";
}

void tell(const std::string& path, const Json& report, const std::string& table)
{
    constexpr int kIndent = 2;
    const std::string text = report.dump(kIndent) + "\n";
    if (path == kStandardOutput)
        return print(text);
    const std::exception_ptr failure = path.empty() ? nullptr : tryToWrite(path, text);
    print(table);
    if (failure)
        std::rethrow_exception(failure);
}

void complain(const std::string& message)
{
    std::istringstream lines(message);
    for (std::string line; std::getline(lines, line);)
        static_cast<void>(std::fputs(("endpoint_scan: " + programs::printable(line) + "\n").c_str(), stderr));
}

} // namespace endpointscan
