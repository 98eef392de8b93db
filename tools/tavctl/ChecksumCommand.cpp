#include <memory>
#include <vector>

#include "common/Text.h"
#include "tav/QelSSLUtils.h"
#include "tavctl/Commands.h"
#include "tavctl/Input.h"

namespace tavctl
{
namespace
{

constexpr const char* kChecksumExamples =
    "Of a file: MD5, SHA-1 and SHA-256. Of a text: MD5 only. They identify files; MD5 and SHA-1 do not withstand\n"
    "an attacker who forges them.\n"
    "\n"
    "Examples:\n"
    "  tavctl checksum /bin/sh /etc/passwd\n"
    "  tavctl checksum --data abc";

struct ChecksumOptions
{
    std::vector<std::string> files;
    std::string data;
    bool hasData = false;
};

struct Checksums
{
    std::string md5;
    std::string sha1;
    std::string sha256;
};

void addFile(const std::string& file, std::string& text, nlohmann::json& entry)
{
    std::string obstacle = obstacleToRead(file);
    Checksums sums;
    if (obstacle.empty() &&
        !TAV::QelSSLUtils().getChecksumValues(file, TAV::INPUT_FILE_PATH, sums.md5, sums.sha1, sums.sha256))
        obstacle = "cannot be read";
    if (!obstacle.empty())
    {
        entry["error"] = obstacle;
        return;
    }
    text += programs::printable(file) + "\n  md5     " + sums.md5 + "\n  sha1    " + sums.sha1 + "\n  sha256  " +
            sums.sha256 + "\n";
    entry.update({{"md5", sums.md5}, {"sha1", sums.sha1}, {"sha256", sums.sha256}});
}

void addData(const std::string& data, std::string& text, nlohmann::json& list)
{
    Checksums sums;
    if (!TAV::QelSSLUtils().getChecksumValues(data, TAV::INPUT_DATA, sums.md5, sums.sha1, sums.sha256))
        throw Failure("the checksum cannot be computed");
    text += "data\n  md5     " + sums.md5 + "\n";
    nlohmann::json entry;
    addBytes(entry, "data", data);
    entry["md5"] = sums.md5;
    list.push_back(std::move(entry));
}

int printChecksums(const ChecksumOptions& options, Context& context)
{
    if (options.files.empty() && !options.hasData)
        throw UsageError("checksum: name a file, or give --data TEXT");
    std::string text;
    nlohmann::json list = nlohmann::json::array();
    int code = kSuccess;
    if (options.hasData)
        addData(options.data, text, list);
    for (const std::string& file : options.files)
    {
        nlohmann::json entry = fileEntry(file);
        addFile(file, text, entry);
        if (entry.contains("error"))
        {
            context.console.error(about(file, entry["error"].get<std::string>()));
            code = kFailure;
        }
        list.push_back(std::move(entry));
    }
    context.console.show(text, list);
    return code;
}

} // namespace

void registerChecksum(CLI::App& app, Action& chosen)
{
    auto options = std::make_shared<ChecksumOptions>();
    CLI::App* command = app.add_subcommand("checksum", "Compute checksums of files, or the MD5 of a text");
    command->add_option("FILE", options->files, "The files");
    const CLI::Option* data = command->add_option("--data", options->data, "A text to hash");
    command->footer(kChecksumExamples);
    command->callback(
        [options, data, &chosen]
        {
            options->hasData = data->count() > 0;
            chosen = [options](Context& context) { return printChecksums(*options, context); };
        });
}

} // namespace tavctl
