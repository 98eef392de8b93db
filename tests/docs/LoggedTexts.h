#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "DocumentChecks.h"

namespace TAV::test
{

/// The sentences that the sources below a directory can log, or parts of sentences where values stand between them.
///
/// They are found by what they are not, so that none is overlooked: every text with a blank and a letter in it that is
/// not just thrown (by a `throw` or by `require`), nor a value in a table ({404, "Not Found"}).
std::set<std::string> loggedTexts(const std::filesystem::path& directory);

/// Where a page and the sources differ: "not on the page: TEXT" and "not in the sources: TEXT". The page's texts stand
/// in the tables headed "| level | text | from |", where "..." is a value and the level "-" means that it is not
/// logged.
std::vector<std::string> wrongTexts(const Page& page, const std::set<std::string>& logged);

} // namespace TAV::test
