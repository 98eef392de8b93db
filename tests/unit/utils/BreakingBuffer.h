#pragma once

#include <fstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <utility>

namespace TAV::test
{

/// Gives a text and then fails as a device does, not as a file that ends.
class BreakingBuffer : public std::streambuf
{
public:
    explicit BreakingBuffer(std::string text) : m_text(std::move(text))
    {
        setg(m_text.data(), m_text.data(), m_text.data() + m_text.size());
    }

    /// Makes an open stream read from here; it still counts as open.
    void serve(std::ifstream& stream) { static_cast<std::istream&>(stream).rdbuf(this); }

    unsigned int failures() const { return m_failures; }

protected:
    int_type underflow() override
    {
        ++m_failures;
        throw std::runtime_error("the device has gone");
    }

private:
    std::string m_text;
    unsigned int m_failures = 0;
};

} // namespace TAV::test
