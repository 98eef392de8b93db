#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace tavctl
{

/// The program's output: each result once as plain text or once as JSON, errors on standard error.
class Console
{
public:
    explicit Console(bool json) : m_json(json) {}

    bool isJson() const { return m_json; }

    /// Shows a result: `text` as it is, or `json` on lines of its own.
    void show(const std::string& text, const nlohmann::json& json);

    /// Writes bytes to standard output as they are.
    void write(const std::string& bytes);

    /// Writes a line "tavctl: MESSAGE" on standard error.
    void error(const std::string& message);

    /// @return whether everything reached standard output; if not, the reason is told as an error
    bool flush();

private:
    bool m_json;
};

/// Adds bytes to a JSON object under `name`: as text, or in base64 under `name` + "_base64" if they are not UTF-8.
void addBytes(nlohmann::json& object, const std::string& name, const std::string& bytes);

/// The same for a list: all of it in base64 if one of the texts is not UTF-8.
void addBytes(nlohmann::json& object, const std::string& name, const std::vector<std::string>& list);

/// A file name as JSON.
/// @return {"file": path}, or {"file_base64": ...}
nlohmann::json fileEntry(const std::string& path);

} // namespace tavctl
