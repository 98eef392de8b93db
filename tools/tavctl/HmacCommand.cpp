#include <memory>

#include "common/Password.h"
#include "tav/QelSSLUtils.h"
#include "tavctl/Commands.h"
#include "tavctl/Input.h"

namespace tavctl
{
namespace
{

constexpr const char* kHmacExamples =
    "Prints the HMAC-SHA1 of the message in base64. The key never stands on the command line, where every user of the\n"
    "machine could read it. A newline at the end of the key is dropped; a key with a zero byte is refused.\n"
    "\n"
    "Examples:\n"
    "  tavctl hmac --key-file key.txt message.txt\n"
    "  printf 'message' | tavctl hmac --key-env MY_KEY";

struct HmacOptions
{
    programs::SecretSource key;
    std::string file;
};

int printHmac(const HmacOptions& options, Context& context)
{
    const std::string key = programs::readSecret(options.key);
    std::string text;
    if (!TAV::QelSSLUtils().getHmacSha1(readInput(options.file), key, text))
        throw Failure("the HMAC cannot be computed");
    nlohmann::json result{{"hmac_sha1_base64", text}};
    addBytes(result, "input", inputName(options.file));
    context.console.show(text + "\n", result);
    return kSuccess;
}

} // namespace

void registerHmac(CLI::App& app, Action& chosen)
{
    auto options = std::make_shared<HmacOptions>();
    CLI::App* command = app.add_subcommand("hmac", "Compute the HMAC-SHA1 of a message");
    CLI::Option_group* key = command->add_option_group("Key", "Where the key comes from");
    key->add_option("--key-file", options->key.file, "A file that holds the key");
    key->add_option("--key-env", options->key.environment, "An environment variable that holds the key");
    key->require_option(1);
    command->add_option("FILE", options->file, "The message; standard input if it is missing or -");
    command->footer(kHmacExamples);
    command->callback([options, &chosen]
                      { chosen = [options](Context& context) { return printHmac(*options, context); }; });
}

} // namespace tavctl
