#include "apps/ReputationProcess.h"

#include <unistd.h>

#include <stdexcept>

#include "support/SacrificialProcess.h"

namespace TAV::test
{

ReputationProcess::ReputationProcess(const std::vector<std::string>& malicious,
                                     const std::vector<std::string>& options,
                                     const std::vector<std::string>& launcher)
{
    std::string list;
    for (const std::string& digest : malicious)
        list += digest + "\n";
    const std::string readyFile = m_place.file("ready");
    ServerProgram program;
    program.argv = launcher;
    program.argv.insert(program.argv.end(),
                        {REPUTATION_SERVER, "--list", m_place.write("list", list), "--ready-file", readyFile});
    program.argv.insert(program.argv.end(), options.begin(), options.end());
    program.outputFile = m_place.write("output", "");
    program.environment = {"TMPDIR=" + m_place.path()};
    m_process = std::make_unique<ServerProcess>(program);
    if (!eventually([&readyFile] { return ::access(readyFile.c_str(), F_OK) == 0; }))
        throw std::runtime_error("the reputation server does not listen: " + output());
    const std::string line = readFile(readyFile);
    m_port = line.substr(0, line.find(' '));
    m_caFile = line.substr(line.find(' ') + 1);
    m_caFile.pop_back();
}

} // namespace TAV::test
