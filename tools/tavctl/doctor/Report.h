#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "tavctl/doctor/Finding.h"

namespace tavctl::doctor
{

/// "ok", "note", "warning" or "problem".
std::string nameOf(State state);

/// The entry for people, one or more lines.
/// @param isFirst      whether it is the first of its service, whose name then stands above it
/// @param isColoured   whether its state has a colour
std::string textOf(const Entry& entry, bool isFirst, bool isColoured);

/// The line that ends the report for people.
std::string summaryOf(const std::vector<Entry>& entries);

nlohmann::json jsonOf(const std::vector<Entry>& entries);

/// Whether nothing is wrong: no problem and, if `isStrict`, no warning.
bool isWell(const std::vector<Entry>& entries, bool isStrict);

/// How many entries are in this state.
std::size_t countOf(const std::vector<Entry>& entries, State state);

} // namespace tavctl::doctor
