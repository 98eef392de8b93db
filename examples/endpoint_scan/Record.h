#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "endpoint_scan/Types.h"

namespace endpointscan
{

/// Keeps its members in the order in which they were added: people read these texts.
using Json = nlohmann::ordered_json;

/// One file in an archive.
struct RecordEntry
{
    std::string path;     ///< where it was, below the scanned directory
    std::string storedAs; ///< its name in the archive: a number and its SHA-256
    FileFacts facts;
};

/// What came from where. It lies in the archive beside the files, as a plain copy beside the archive, and, while files
/// are being moved, in the staging directory, where it tells how to put them back.
struct Record
{
    std::string id;      ///< names the archive
    std::string created; ///< UTC, as in 2026-01-31T12:00:00Z
    std::string host;
    std::string root; ///< the scanned directory, absolute
    std::vector<RecordEntry> files;
};

/// Where a file was, absolute.
std::string placeOf(const Record& record, const RecordEntry& entry);

/// The record as JSON text. Names that are not UTF-8 stand there in base64, so that nothing is lost.
std::string toText(const Record& record);

/// @throws std::runtime_error  if the text is no record, or names a place outside the directory that it is restored to
Record recordFromText(const std::string& text);

/// Adds bytes to a JSON object: as text, and as `name` + "_base64" too if they are not UTF-8.
void addBytes(Json& object, const std::string& name, const std::string& bytes);

/// "0644".
std::string modeText(mode_t mode);
/// UTC, as in 2026-01-31T12:00:00Z.
std::string timeText(std::time_t seconds);

} // namespace endpointscan
