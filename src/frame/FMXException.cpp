#include "tav/FMXException.h"

#include <utility>

namespace TAV
{

FMXException::FMXException(int failureCode, std::string reason) : code(failureCode), message(std::move(reason)) {}

} // namespace TAV
