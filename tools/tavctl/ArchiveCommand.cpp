#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>
#include <vector>

#include "common/Password.h"
#include "common/Text.h"
#include "tav/QelArchiveUtils.h"
#include "tavctl/ArchiveTool.h"
#include "tavctl/Commands.h"
#include "tavctl/Input.h"
#include "tavctl/Program.h"

namespace tavctl
{
namespace
{

namespace fs = std::filesystem;

constexpr const char* kArchiveExamples =
    "Warning: the archive tool gets the password on its command line, where every user of the machine can read it "
    "while\n"
    "the tool runs (unless /proc is mounted with hidepid). tavctl itself takes it from a file, from an environment\n"
    "variable or from the terminal.\n"
    "\n"
    "Examples:\n"
    "  tavctl archive create --password-file pw.txt old.7z report.txt notes.txt\n"
    "  tavctl archive extract --password-file pw.txt --to out old.7z";
constexpr const char* kCreateNote =
    "The files are MOVED into the archive: each one is deleted once it is stored. Names inside the archive can be\n"
    "read without the password, and have no directories: two files of one name are refused.\n";
constexpr const char* kExtractNote = "All files come straight into the directory, over files of the same name.\n";

struct ArchiveOptions
{
    std::string archive;
    std::vector<std::string> files;
    std::string directory = ".";
    programs::SecretSource password;
};

/// A path as the archive tool takes it literally: absolute, as "@x" and "-x" mean something else to it.
std::string toolPath(const std::string& path)
{
    if (path.empty())
        throw UsageError("archive: a path is empty");
    if (path.find_first_of("*?") != std::string::npos)
        throw UsageError("archive: " + path + ": the archive tool would take * and ? as wildcards");
    return fs::absolute(path).string();
}

void requireKnownExtension(const std::string& archive)
{
    const std::string extension = fs::path(archive).extension().string();
    if (extension != ".7z" && extension != ".zip")
        throw UsageError("archive: " + archive + ": the name must end in .7z or .zip");
}

std::vector<std::string> inputPaths(const std::vector<std::string>& files)
{
    std::vector<std::string> paths;
    std::set<std::string> names;
    for (const std::string& file : files)
    {
        const std::string path = toolPath(file);
        const std::string obstacle = obstacleToRead(path);
        if (!obstacle.empty())
            throw Failure(about(file, obstacle) + "; nothing was archived");
        if (!names.insert(fs::path(path).filename().string()).second)
            throw UsageError("archive: " + file + ": a second file of that name; names inside have no directories");
        paths.push_back(path);
    }
    return paths;
}

std::string passwordOf(const ArchiveOptions& options, Context& context)
{
    if (!options.password.isGiven())
        return {};
    std::string password = programs::readPassword(options.password);
    context.logger.hide(password);
    return password;
}

int create(const ArchiveOptions& options, Context& context)
{
    requireKnownExtension(options.archive);
    const std::vector<std::string> files = inputPaths(options.files);
    const std::string archive = toolPath(options.archive);
    const std::string password = passwordOf(options, context);
    requireRunnable(kArchiveToolPath);
    TAV::QelArchiveUtils archives(context.logger, makeUtils(context));
    if (!archives.createArchive(archive, TAV::ArchiveType::SevenZip, files, {}, password))
        throw Failure(options.archive + ": the archive tool failed; files that it had stored by then may be gone from "
                                        "their place, look for them in the archive");
    for (const std::string& file : files)
    {
        if (fs::exists(fs::symlink_status(file)))
            throw Failure(file + ": stored, but could not be deleted");
    }
    nlohmann::json result{{"encrypted", !password.empty()}};
    addBytes(result, "archive", archive);
    addBytes(result, "files", files);
    context.console.show(
        "created " + programs::printable(archive) + " from " + std::to_string(files.size()) + " file(s)\n", result);
    return kSuccess;
}

int extract(const ArchiveOptions& options, Context& context)
{
    const std::string archive = toolPath(options.archive);
    const std::string directory = toolPath(options.directory);
    const std::string obstacle = obstacleToRead(archive);
    if (!obstacle.empty())
        throw Failure(options.archive + ": " + obstacle);
    const std::string password = passwordOf(options, context);
    requireRunnable(kArchiveToolPath);
    TAV::QelArchiveUtils archives(context.logger, makeUtils(context));
    if (!archives.extractArchive(archive, directory, password))
        throw Failure(options.archive +
                      ": the archive tool failed: wrong password, damaged archive, or no room in the directory");
    nlohmann::json result;
    addBytes(result, "archive", archive);
    addBytes(result, "directory", directory);
    context.console.show("extracted " + programs::printable(archive) + " into " + programs::printable(directory) + "\n",
                         result);
    return kSuccess;
}

void addPassword(CLI::App& command, programs::SecretSource& password)
{
    CLI::Option_group* group =
        command.add_option_group("Password", "Where the password comes from; none without these");
    group->add_option("--password-file", password.file, "A file that holds the password");
    group->add_option("--password-env", password.environment, "An environment variable that holds the password");
    group->add_flag("--password-prompt", password.prompt, "Ask on the terminal");
    group->require_option(0, 1);
}

void setAction(CLI::App& command,
               Action& chosen,
               const std::shared_ptr<ArchiveOptions>& options,
               int (*work)(const ArchiveOptions&, Context&))
{
    command.callback([options, work, &chosen]
                     { chosen = [options, work](Context& context) { return work(*options, context); }; });
}

} // namespace

void registerArchive(CLI::App& app, Action& chosen)
{
    auto options = std::make_shared<ArchiveOptions>();
    CLI::App* command = app.add_subcommand("archive", "Create or extract an archive, optionally with a password");
    command->require_subcommand(1);
    command->footer(kArchiveExamples);

    CLI::App* creation = command->add_subcommand("create", "MOVE files into an archive");
    creation->add_option("ARCHIVE", options->archive, "The archive, *.7z or *.zip; made, or added to")->required();
    creation->add_option("FILE", options->files, "The files")->required();
    addPassword(*creation, options->password);
    creation->footer(std::string(kCreateNote) + kArchiveExamples);
    setAction(*creation, chosen, options, create);

    CLI::App* extraction = command->add_subcommand("extract", "Put the files of an archive into a directory");
    extraction->add_option("ARCHIVE", options->archive, "The archive")->required();
    extraction->add_option("--to", options->directory, "The directory; the current one if missing");
    addPassword(*extraction, options->password);
    extraction->footer(std::string(kExtractNote) + kArchiveExamples);
    setAction(*extraction, chosen, options, extract);
}

} // namespace tavctl
