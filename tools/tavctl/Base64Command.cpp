#include <algorithm>
#include <cctype>
#include <memory>

#include "tav/QelSSLUtils.h"
#include "tavctl/Commands.h"
#include "tavctl/Input.h"

namespace tavctl
{
namespace
{

constexpr const char* kBase64Examples =
    "Both ways take any bytes. The decoder skips blanks and line breaks and accepts nothing but what the encoder\n"
    "would have made.\n"
    "\n"
    "Examples:\n"
    "  tavctl base64 encode photo.jpg > photo.txt\n"
    "  tavctl base64 decode photo.txt > photo.jpg\n"
    "  printf 'Zm9v' | tavctl base64 decode";

std::string encoded(const std::string& bytes)
{
    std::string text;
    // Its result is whether the text is not empty, which says nothing about success.
    TAV::QelSSLUtils().encodeBase64(bytes, text);
    return text;
}

std::string withoutBlanks(std::string text)
{
    const auto isBlank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    text.erase(std::remove_if(text.begin(), text.end(), isBlank), text.end());
    return text;
}

/// Decodes strictly: the library accepts a few odd texts ("====", "Zm9vx"), which do not survive the way back.
std::string decoded(const std::string& text)
{
    std::string bytes;
    const bool ok = text.empty() || TAV::QelSSLUtils().decodeBase64(text, bytes);
    if (!ok || encoded(bytes) != text)
        throw Failure("the input is not base64");
    return bytes;
}

int encode(const std::string& file, Context& context)
{
    const std::string bytes = readInput(file);
    const std::string text = encoded(bytes);
    nlohmann::json result{{"bytes", bytes.size()}, {"base64", text}};
    addBytes(result, "input", inputName(file));
    context.console.show(text + "\n", result);
    return kSuccess;
}

int decode(const std::string& file, Context& context)
{
    const std::string bytes = decoded(withoutBlanks(readInput(file)));
    nlohmann::json result{{"bytes", bytes.size()}};
    addBytes(result, "input", inputName(file));
    addBytes(result, "data", bytes);
    context.console.show(bytes, result);
    return kSuccess;
}

void registerDirection(
    CLI::App& parent, Action& chosen, const char* name, const char* about, int (*work)(const std::string&, Context&))
{
    auto file = std::make_shared<std::string>();
    CLI::App* command = parent.add_subcommand(name, about);
    command->add_option("FILE", *file, "The input; standard input if it is missing or -");
    command->callback([file, work, &chosen]
                      { chosen = [file, work](Context& context) { return work(*file, context); }; });
}

} // namespace

void registerBase64(CLI::App& app, Action& chosen)
{
    CLI::App* command = app.add_subcommand("base64", "Encode bytes as base64 text, or decode it");
    command->require_subcommand(1);
    command->footer(kBase64Examples);
    registerDirection(*command, chosen, "encode", "Bytes to text", encode);
    registerDirection(*command, chosen, "decode", "Text to bytes", decode);
}

} // namespace tavctl
