#include "tav/TAVUtils.h"

namespace TAV
{

void TAVUtils::closePipeFds(std::array<int, 2>& fds)
{
    for (int& fd : fds)
    {
        int scratch = 0;
        m_systemUtils->close(fd, scratch);
    }
    // Deliberately 0, not -1: what a later use of the pair touches depends on it.
    fds.fill(0);
}

bool TAVUtils::checkIfFdToBeKeptOpen(int fd, const std::map<int, bool>* fds) const
{
    if (fds == nullptr)
        return false;
    const auto entry = fds->find(fd);
    return entry != fds->end() && entry->second;
}

void TAVUtils::duplicateFd(int oldFd, int newFd, const std::map<int, bool>* fds, int err) const
{
    if (!checkIfFdToBeKeptOpen(newFd, fds) && newFd != oldFd)
        m_systemUtils->dup2(oldFd, newFd, err);
}

} // namespace TAV
