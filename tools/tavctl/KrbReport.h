#pragma once

#include <nlohmann/json.hpp>

#include <string>

#include "common/Keytab.h"
#include "common/KrbTicket.h"

namespace tavctl
{

/// A keytab for people: a line for the file, and one for each entry if `withEntries`.
/// @param remark  stands behind the file's line
std::string textOf(const programs::Keytab& keytab, bool withEntries, const std::string& remark = "");

/// Adds the same to an object.
void addKeytab(nlohmann::json& object, const programs::Keytab& keytab, bool withEntries);

/// {"cause", "advice", "error"}
nlohmann::json jsonOf(const programs::KrbFailure& failure);

/// [{"level", "component", "message"}]
nlohmann::json jsonOf(const std::vector<programs::QueryLine>& lines);

} // namespace tavctl
