#include "LibmagicDouble.h"

namespace TAV::test
{
namespace
{

LibmagicDouble* current = nullptr;

} // namespace

LibmagicDouble::LibmagicDouble() : openAnswer(handle(0))
{
    current = this;
}

LibmagicDouble::~LibmagicDouble()
{
    current = nullptr;
}

std::string LibmagicDouble::nameOf(magic_t cookie) const
{
    if (cookie == nullptr)
        return "null";
    return cookie == handle(0) ? "handle 0" : cookie == handle(1) ? "handle 1" : "unknown handle";
}

} // namespace TAV::test

using TAV::test::current;

extern "C"
{

    magic_t magic_open(int flags)
    {
        current->calls.push_back("open(" + std::to_string(flags) + ")");
        return current->openAnswer;
    }

    int magic_load(magic_t cookie, const char* path)
    {
        current->calls.push_back("load(" + current->nameOf(cookie) + ")");
        current->path = path;
        return current->loadAnswer;
    }

    const char* magic_error(magic_t cookie)
    {
        current->calls.push_back("error(" + current->nameOf(cookie) + ")");
        return current->errorAnswer;
    }

    const char* magic_file(magic_t cookie, const char* path)
    {
        current->calls.push_back("file(" + current->nameOf(cookie) + ")");
        current->path = path;
        return current->queryAnswer;
    }

    const char* magic_descriptor(magic_t cookie, int fd)
    {
        current->calls.push_back("descriptor(" + current->nameOf(cookie) + ", " + std::to_string(fd) + ")");
        return current->queryAnswer;
    }

    void magic_close(magic_t cookie)
    {
        current->calls.push_back("close(" + current->nameOf(cookie) + ")");
    }

} // extern "C"
