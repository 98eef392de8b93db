#include "reputation_server/WorkDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace reputationserver
{

WorkDirectory::WorkDirectory()
{
    const char* place = std::getenv("TMPDIR");
    std::string path = place == nullptr || *place == '\0' ? "/tmp" : place;
    path += "/reputation_server.XXXXXX";
    if (::mkdtemp(path.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), "cannot make a directory like " + path);
    m_path = std::move(path);
}

WorkDirectory::~WorkDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string WorkDirectory::write(const std::string& name, const std::string& content) const
{
    std::string path = m_path + "/" + name;
    std::ofstream file(path, std::ios::binary);
    if (!(file << content) || !file.flush())
        throw std::runtime_error("cannot write " + path);
    return path;
}

} // namespace reputationserver
