#include <memory>
#include <vector>

#include "common/Text.h"
#include "tav/MagicUtils.h"
#include "tavctl/Commands.h"
#include "tavctl/Input.h"

namespace tavctl
{
namespace
{

constexpr const char* kMimeExamples = "Examples:\n"
                                      "  tavctl mime /bin/bash ~/photo.jpg\n"
                                      "  tavctl mime --json *.pdf";

/// libmagic with its default database, released at the end.
class FileTypes
{
public:
    FileTypes()
    {
        m_magic.magicOpen();
        try
        {
            m_magic.magicLoad(nullptr);
        }
        catch (...)
        {
            m_magic.magicClose();
            throw;
        }
    }
    FileTypes(const FileTypes&) = delete;
    FileTypes& operator=(const FileTypes&) = delete;
    ~FileTypes() { m_magic.magicClose(); }

    /// @return the MIME type, or an empty text
    std::string of(const std::string& path)
    {
        const char* type = m_magic.magicFile(path.c_str());
        return type == nullptr ? "" : type;
    }

private:
    TAV::MagicUtils m_magic;
};

int printTypes(const std::vector<std::string>& files, Context& context)
{
    FileTypes types;
    std::string text;
    nlohmann::json list = nlohmann::json::array();
    int code = kSuccess;
    for (const std::string& file : files)
    {
        nlohmann::json entry = fileEntry(file);
        std::string obstacle = obstacleToRead(file);
        const std::string type = obstacle.empty() ? types.of(file) : "";
        if (obstacle.empty() && type.empty())
            obstacle = "libmagic has no answer";
        if (obstacle.empty())
        {
            text += programs::printable(file) + ": " + type + "\n";
            entry["mime_type"] = type;
        }
        else
        {
            context.console.error(about(file, obstacle));
            entry["error"] = obstacle;
            code = kFailure;
        }
        list.push_back(std::move(entry));
    }
    context.console.show(text, list);
    return code;
}

} // namespace

void registerMime(CLI::App& app, Action& chosen)
{
    auto files = std::make_shared<std::vector<std::string>>();
    CLI::App* command = app.add_subcommand("mime", "Tell the MIME type of each file");
    command->add_option("FILE", *files, "The files")->required();
    command->footer(kMimeExamples);
    command->callback([files, &chosen] { chosen = [files](Context& context) { return printTypes(*files, context); }; });
}

} // namespace tavctl
